// Opening fixed paths below /tmp, where everybody may plant a link or a file.
#pragma once

#include <sys/types.h>

#include "platform/ownership.h"

// Opens or creates `path` for writing (`flags` adds O_APPEND, O_TRUNC, O_SYNC and the like to
// O_WRONLY or O_RDWR): never follows a link in the last element (O_NOFOLLOW), close-on-exec, and
// only a regular file is accepted. Tries without O_CREAT first and then with O_CREAT|O_EXCL, so
// that it works under fs.protected_regular=2. Returns the descriptor, or none with errno set.
[[nodiscard]] unique_fd safe_open_for_writing(const char* path, int flags, mode_t mode);

// Opens a regular file for reading, never through a link in the last element, when it belongs to
// root or to us and has no second name: somebody may have linked a secret file of root's there.
// None otherwise.
[[nodiscard]] unique_fd safe_open_trusted(const char* path);

// Lock files that keep two maintenance commands of one kind from running at once: advisory record
// locks (fcntl(2)) across processes, with the holder's pid in the file. The system drops the lock
// with its process, and the next attempt takes the stale file over.
#pragma once

#include <sys/types.h>

struct wms_strbuf;

enum lock_kind : int {
    lock_upgrade_image = 0,
    lock_upgrade_package = 1,
    lock_flash_archive = 2,
    lock_crash_archive = 3,
    lock_log_archive = 4,
};

// Opens or creates `path` for reading and writing, mode 0777. The descriptor, or -1.
[[nodiscard]] int open_file_for_locking(const char* path);

// 0 locked, `pid` written to the file; 1 held by another process, its pid in `holder`; 2 held by
// another whose pid could not be read.
[[nodiscard]] int lock_file(int fd, pid_t pid, pid_t* holder);

// Takes the lock of a kind. Null when it is held now, else the message to show; `upgrade_busy` is
// set when an image upgrade is being run by another.
[[nodiscard]] const char* lock_file_for_clisession_str(int kind, bool* upgrade_busy);

// Takes the lock of a kind. 1 when it is held now; 0 after writing the message into `response`.
[[nodiscard]] int lock_file_for_clisession(wms_strbuf* response, int kind);

// Releases a kind and deletes its lock file; does nothing when it is not held.
void unlock_file_for_clisession(int kind);

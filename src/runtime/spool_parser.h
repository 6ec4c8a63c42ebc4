// Takes a spooled multipart body apart in windows of a fixed size, so that an upload of any length
// needs no more memory than one window and its small parts.
#pragma once

#include "runtime/cgi.h"

// Parses the spooled body.
//   spool      readable from its present offset to its end; borrowed
//   window     body_chunk bytes of scratch space; borrowed for the call
//   has_image  set when a file came with it, which is now whole at paths::os_image_new
// Results and effects as spool_upload, but that the caller removes what is at that path when there
// is no whole file: after a failure, or when the file's part was cut short, which counts as none.
[[nodiscard]] int spool_parse(cgi* input, int spool, char* window, bool* has_image);

// Writes all bytes, however many calls it takes. Returns false with errno set.
[[nodiscard]] bool write_whole(int fd, const char* bytes, std::size_t length);

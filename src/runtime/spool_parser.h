// Takes a spooled multipart body apart in windows of a fixed size, so that an upload of any length
// needs no more memory than one window and its small parts.
#pragma once

#include "runtime/cgi.h"

// Parses the spooled body.
//   spool   readable from its present offset to its end; borrowed
//   window  body_chunk bytes of scratch space; borrowed for the call
// Results and effects as spool_upload, but that the caller removes the image after a failure. An
// image whose part is cut short is removed, and the part counts as none.
[[nodiscard]] int spool_parse(cgi* input, int spool, char* window);

// Writes all bytes, however many calls it takes. Returns false with errno set.
[[nodiscard]] bool write_whole(int fd, const char* bytes, std::size_t length);

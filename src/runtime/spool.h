// Uploads that are too large for memory: the body of a POST to one of the two large-upload pages
// goes to a spool file on flash or the RAM disk first, and is taken apart from there.
#pragma once

#include <cstdint>

#include "runtime/cgi.h"

inline constexpr char os_upload_page[] = "wms-os-upload.html";

// Receives and parses a spooled upload. The first part with a file goes to the image file on flash,
// further ones are dropped, all other parts become input->pairs over input->body. The spool file is
// gone when this returns, and after a failure so is the image.
//   length  CONTENT_LENGTH, above 0
// Returns 0 or a cgi_parse_error; with cgi_low_space the body has been read and dropped.
[[nodiscard]] int spool_upload(cgi* input, std::int64_t length);

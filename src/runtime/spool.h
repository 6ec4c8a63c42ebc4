// Uploads that are too large for memory: the body of a POST to one of the two large-upload pages
// goes to a spool file on flash or the RAM disk first, and is taken apart from there.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "runtime/cgi.h"

inline constexpr std::string_view os_upload_page = "wms-os-upload.html";

// The pages whose uploads are spooled: also their rows' names in the dispatch table.
inline constexpr std::array<std::string_view, 2> spooled_pages{"captiveportal_import.html",
                                                               os_upload_page};

// Receives and parses a spooled upload. The first part with a file goes to the image file on flash,
// further ones are dropped, all other parts become input->pairs over input->body. The spool file is
// gone when this returns. An earlier upload's image is removed when a body is received, so the
// image file is always the latest upload's; after a failure there is none. Uploads take turns: one
// that comes while another one is being received waits for it, however long its client takes.
//   length  CONTENT_LENGTH, above 0
// Returns 0 or a cgi_parse_error; with cgi_low_space the body has been read and dropped.
[[nodiscard]] int spool_upload(cgi* input, std::int64_t length);

// Removes the image: for a request that turned out to be refused after its upload was stored.
void spool_drop_image();
// Removes whatever uploads left: the image and the spool files.
void spool_drop_all();

// Uploads that are too large for memory: the body of a POST to one of the two large-upload pages
// goes to a spool file on flash or the RAM disk first, and is taken apart from there.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "runtime/cgi.h"
#include "runtime/request.h"

inline constexpr std::string_view os_upload_page = "wms-os-upload.html";

// The pages whose uploads are spooled, as a request's URI names them. Their rows in the dispatch
// table say so, too; the compiler checks that they agree.
inline constexpr std::array<std::string_view, 2> spooled_pages{"captiveportal_import.html",
                                                               os_upload_page};

// Receives and parses a spooled upload of the current request. The first part with a file goes to a
// file beside the staged image, further ones are dropped, all other parts become input->pairs over
// input->body. The spool file is gone when this returns, and after a failure the new file is, too.
// Otherwise the request holds its turn until spool_keep_image or spool_drop_upload: an upload that
// comes meanwhile waits for it, however long this one's client takes. Only when there is no room
// for the upload is the staged image removed.
//   length  CONTENT_LENGTH, above 0
// Returns 0 or a cgi_parse_error; with cgi_low_space the body has been read and dropped.
[[nodiscard]] int spool_upload(cgi* input, std::int64_t length);

// Makes the upload's file the staged image in one step, and ends its turn. The staged image stays
// as it was where there is no upload, or one without a file. Returns false when it cannot be done:
// then an error was logged, and all is as after spool_drop_upload.
[[nodiscard]] bool spool_keep_image(received_upload& upload);

// Removes the upload's file and ends its turn; the staged image stays. Does nothing when there is
// no upload, or none any more.
void spool_drop_upload(received_upload& upload);

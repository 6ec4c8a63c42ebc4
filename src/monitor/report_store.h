// The saved definitions of custom reports: one file, which the browser writes and reads.
#pragma once

#include <cstdint>

struct wms_strbuf;

// Appends all of the file. Returns its size; -1, with nothing appended, when there is none, or it
// is another user's or a link, or cannot be read whole.
[[nodiscard]] std::int32_t report_store_read(wms_strbuf* out);

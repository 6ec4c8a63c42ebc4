// The saved definitions of custom reports: one file, which the browser writes and reads.
#pragma once

#include <cstdint>

struct wms_strbuf;

inline constexpr std::int32_t report_store_max = 1024 * 1024;  // bytes of the file

// Appends all of the file. Returns its size; -1, with nothing appended, when there is none, or it
// is another user's, a link or larger than report_store_max, or cannot be read whole.
[[nodiscard]] std::int32_t report_store_read(wms_strbuf* out);

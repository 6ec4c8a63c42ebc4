// The two documents that requests are refused with. Each replaces what the response held;
// a reason is cut at 1023 characters. Texts that come from the database, a command reply or the
// client must be escaped by the caller (error_text_escape).
#pragma once

#include <cstddef>
#include <string_view>

struct wms_strbuf;

inline constexpr char xml_header[] = "Content-Type: text/xml\r\nExpires: 0\r\n\r\n";

inline constexpr char memory_reason[] = "Memory allocation failure";

// What wuic_generic_error makes of `memory_reason`, header included; needs no memory.
std::string_view memory_error_response();

// <qorin> document with status "Error" and the reason.
[[gnu::format(printf, 2, 3)]] void wuic_generic_error(wms_strbuf* response, const char* format,
                                                      ...);

// <re><ERROR>reason</ERROR></re> document.
[[gnu::format(printf, 2, 3)]] void wuic_generic_error_ii(wms_strbuf* response, const char* format,
                                                         ...);

// Copies `text` (null: "(null)") into `out` with &, < and > escaped, NUL-terminated within
// `out_size` bytes; where it must be cut, the cut never splits an entity. Returns `out`.
const char* error_text_escape(char* out, std::size_t out_size, const char* text);

// What a request of the configuration API means to the controller: one line of fields.
#pragma once

#include <cstddef>

// Builds the line.
//   uri          path and query as the client sent them (REQUEST_URI)
//   operation    "get_api", "json" or "operation=set"
//   payload      query text or body, NUL-terminated; null or empty when there is none
//   payload_len  its length in bytes
// Returns a malloc'ed, NUL-terminated line that the caller frees, cut at payload_len + 255 bytes.
// Null when the request cannot be told in one: a read without payload, a query that is no form, a
// kind or name with a quote or a backslash, one of these or a configuration path or file name with
// "&", CR, LF or NUL; and when memory runs out.
[[nodiscard]] char* parse_uri(const char* uri, const char* operation, const char* payload,
                              std::size_t payload_len);

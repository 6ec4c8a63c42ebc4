// The entries of a form: how their array grows and is sorted, and the URL-encoded form. Internal to
// the reading of requests.
#pragma once

#include <cstddef>
#include <cstdint>

#include "runtime/cgi.h"

// Grows the array, in steps of 16, until it can hold `need` entries; one that can stays as it is.
// New entries are not initialised. Returns 0; -1 for a need below 0 or above cgi_pairs_max or when
// memory runs out, the array unchanged.
[[nodiscard]] int cgi_entries_reserve(cgi_pair** entries, std::int32_t* capacity,
                                      std::int64_t need);

// Sorts parsed fields by name, bytewise; a null name comes first.
void form_sort(cgi_pairs* pairs);

// Parses a URL-encoded form in place (WHATWG URL standard, section 5.1), appends its fields to
// input->pairs and sorts them.
//   text    `length` bytes and one writable byte behind them; must outlive the pairs
// Returns 0, or -1 when there are more than cgi_pairs_max fields or memory runs out.
[[nodiscard]] int form_parse_urlencoded(cgi* input, char* text, std::size_t length);

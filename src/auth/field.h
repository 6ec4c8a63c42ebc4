// Fixed text fields of records, and the numbers that arrive as text beside them.
#pragma once

#include <cstdint>
#include <span>

// Copies `text` (null counts as empty) into `out`, always terminated. Returns false when it had to
// be cut. REQUIRES: `out` is not empty.
bool field_copy(std::span<char> out, const char* text);

// The decimal number that `text` begins with; 0 for a null text, no digits or a number that does
// not fit.
std::int32_t field_int32(const char* text);
std::uint64_t field_uint64(const char* text);

// Names for people, from the tables that are installed with the program. A request maps each table
// once, when it first needs it, and keeps it: a page of the search looks up a name for each row.
//
// Both write into `out` of `out_size` bytes, NUL-terminated, what does not fit being cut, and
// return `out`. What they write is not escaped.
#pragma once

#include <cstdint>

// The name of a hardware model. A code that the table does not have stands for itself; null is "".
const char* oem_ap_user_visible_model(const char* code, char* out, std::int32_t out_size);

// The vendor of a MAC address in any usual notation; "" when it is unknown.
const char* oui_to_vendor(const char* mac, char* out, std::int32_t out_size);

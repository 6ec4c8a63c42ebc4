// Whom the IEEE has assigned a MAC address to. The table is made by deploy/platform/vendor_table.py
// from the registries, and looked up by bisection. All numbers in it are big-endian:
//
//   8 bytes   "WMSVEND1"
//   4 bytes   number of ranges
//   12 bytes  for each range, by its first address: that address (6), the length of the vendor's
//             name (2), and where in the names it begins (4)
//   the rest  the names, in UTF-8
//
// A range ends where the next one begins. One that is assigned to nobody has a name of length 0.
#pragma once

#include <string_view>

// The vendor of an address in any notation of 12 hexadecimal digits, with colons, hyphens, dots or
// nothing between them. Empty for one that is null, malformed or nobody's, and for a table that is
// damaged there. The name points into the table.
std::string_view vendor_name_find(std::string_view table, const char* mac);

// Reading one cookie from a Cookie header (RFC 6265 section 4.2).
#pragma once

// What stands between the first "name=" in the header and the ";" behind it, if there is one;
// URL-decoded with `unescape`, and cut to 4095 bytes. A longer name that ends in `name` is taken
// for it. Null for a missing header or name, and when the header has no such text. The value lies
// in the request record: the next call overwrites it.
[[nodiscard]] const char* cp_get_cookie(const char* cookie_header, const char* name, bool unescape);

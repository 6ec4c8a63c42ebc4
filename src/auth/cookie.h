// Reading one cookie from a Cookie header (RFC 6265 section 4.2).
#pragma once

// The value of the cookie `name`, up to the next ";" or the end of the header; with `unescape`
// URL-decoded, else as it stands; cut to 4095 characters. Null when the header is null or the name
// is not there. Of several cookies whose names end in `name`, the first is taken. The text lies in
// the request record: the next call overwrites it.
[[nodiscard]] const char* cp_get_cookie(const char* cookie_header, const char* name, bool unescape);

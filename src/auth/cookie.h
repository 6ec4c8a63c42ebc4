// Reading one cookie from a Cookie header (RFC 6265 section 4.2).
#pragma once

// The value of the cookie `name`, up to the next ";" or the end of the header; with `unescape`
// URL-decoded, else as it stands; cut to 4095 characters. Null when the header is null or the name
// is not there. The search is for the text "name=" anywhere, so a cookie whose name ends with the
// wanted one matches too. The text lies in the request record: the next call overwrites it.
[[nodiscard]] const char* cp_get_cookie(const char* cookie_header, const char* name, bool unescape);

// URL escaping and unescaping (RFC 3986 section 2.1, and "+" for a blank as HTML forms write it).
//
// Results count the whole output: positive up to `out_size`, negated beyond. Exactly `out_size`
// bytes leave no room for a NUL and get none, so a caller that needs it keeps a byte back. A
// negative length or size, or an output longer than the result can tell, is -1 with nothing
// written.
#pragma once

#include <cstdint>

// Letters and digits are copied, LF is "%0A", with `crlf` a CR LF pair is a single "%0A", all else
// is "%" and two upper-case digits.
int cgi_escape_url(char* out, std::int32_t out_size, const char* in, std::int32_t in_len,
                   bool crlf);
// Also copies the characters ~!?@#$%&*()-_+=[]{};:',./ and terminates a text that does not fit at
// the last byte of the buffer.
int cgi_escape_url_ex(char* out, std::int32_t out_size, const char* in, std::int32_t in_len,
                      bool crlf);

// Decode; digits are not validated. What lies beyond the counted input reads as NUL. `out` may be
// `in`. cgi_unescape_url2 leaves "+" as it is.
int cgi_unescape_url(char* out, std::int32_t out_size, const char* in, std::int32_t in_len);
int cgi_unescape_url2(char* out, std::int32_t out_size, const char* in, std::int32_t in_len);

// Writing texts into markup so that they stay texts, and telling what came as one. CDATA sections:
// XML 1.0 section 2.7.
#pragma once

#include <string_view>

struct sgml_tokenizer;
struct wms_strbuf;

// Appends a plain text as element content or as an attribute's value. Bytes from 0x80 are kept, so
// that it agrees with the unescaped texts around it.
void markup_append(wms_strbuf* out, std::string_view text);

// Appends text to the content of a CDATA section. A "]]>" in it is spread over two sections: a
// reader gets the same text.
// REQUIRES: all of the section's text comes in one call.
void cdata_append(wms_strbuf* out, std::string_view text);

// Whether the current token is the text of a section, in which markup and references mean nothing.
[[nodiscard]] bool cdata_is_current(const sgml_tokenizer* tokenizer);

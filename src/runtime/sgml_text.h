// Conversions between plain text and markup (XML 1.0 sections 2.4 and 4.1, leniently read), and
// comparisons and searches on counted bytes. They need no tokenizer.
//
// Results of the four conversions: the bytes produced when they are fewer than `size`, else their
// negated number, so that a call with size 0 measures. No NUL is added. A negative length, a
// missing text with a length, or a result beyond 32 bits is -1. A text that was cut is a failure:
// what was stored of it must not be used.
#pragma once

#include <cstdint>

#include "runtime/escape_table.h"

struct wms_strbuf;

// Compare counted bytes, as signed characters, st_strcmpi in any case of (ASCII) letters. Return
// the first difference; 1 or -1 when one is the beginning of the other; 0 when they are equal.
int st_strcmp(const char* a, std::int32_t a_length, const char* b, std::int32_t b_length);
int st_strcmpi(const char* a, std::int32_t a_length, const char* b, std::int32_t b_length);

// The offset of the first `needle`, or -1. With `quote_aware` it does not begin between quotes or
// behind a backslash.
std::int32_t st_strsearch(const char* haystack, std::int32_t haystack_length, const char* needle,
                          std::int32_t needle_length, bool quote_aware);

// Decodes &lt; &gt; &amp; &quot; and decimal references; copies everything else, unknown references
// included. A number is written as its low eight bits, after being held to the largest int. `out`
// may be `text`, and is then never overrun with `size` = `length`.
int sgml_tokenizer_unescape(char* out, std::int32_t size, const char* text, std::int32_t length);

// What an attribute value, as written in the markup, means: quotes are dropped, a backslash makes
// the next byte literal, references are decoded everywhere. `out` may be `value`.
int sgml_tokenizer_compact(char* out, std::int32_t size, const char* value, std::int32_t length);

// Copies the text without the bytes of `set` (null: blank, tab, CR, LF) at both ends. When nothing
// remains, writes a single NUL and returns 0. `out` may be `text`.
int sgml_tokenizer_trim(char* out, std::int32_t size, const char* text, std::int32_t length,
                        const char* set);

// Escapes for element content and attribute values. Bytes from 0x80 become a numeric reference
// each. With `newline`, LF, CR and CR LF become "&#10;". Control bytes, white space excepted,
// become "?" with `control`, else a numeric reference. What is stored of a text that does not fit
// ends with a whole reference; the rest of `out` is zeroed.
int sgml_tokenizer_escape(char* out, std::int32_t size, const char* text, std::int32_t length,
                          bool newline, bool control);

// Appends the escaped text. Returns the bytes added; 0 when nothing was, or the buffer cannot grow.
int st_esc2(wms_strbuf* buf, const char* text, std::int32_t length, bool newline, bool control);

// Appends <element>value</element> and a newline, the value escaped (newlines kept, control bytes
// as "?") when `escape`, else as it stands. A missing value is empty.
void st_prnv(wms_strbuf* buf, const char* element, const char* value, bool escape);

// Appends a blank and attribute="value", the value escaped as in st_prnv.
void st_pratt(wms_strbuf* buf, const char* attribute, const char* value);

// The table behind the escapers above.
const escape_table& sgml_escape_table(bool newline, bool control);

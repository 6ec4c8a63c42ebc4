// What makes a text safe inside SQL, JavaScript, markup and dotted location names; and a random
// identifier.
#pragma once

#include <cstddef>
#include <cstdint>

struct wms_strbuf;

// SQL literal (the server must read backslashes in literals, see database.h): a backslash before
// each quote, apostrophe and backslash, and before "%" when `escape_percent`. Returns the length of
// the literal. One that does not fit with its NUL is a failure, since half a literal is another
// literal: `out` is zeroed throughout, and the result is that length negated, or -1 where there is
// none. A text with a NUL in it, where the query would end, fails alike, and so does a missing text
// with a length.
[[nodiscard]] int wuic_escape_sql(char* out, std::int32_t out_size, const char* in,
                                  std::int32_t in_len, bool escape_percent);

// JavaScript string; a length below 1 means the text's own. Around an angle bracket the literal is
// split in two, which keeps "</script>" out of the page. A cut never splits a replacement. Both
// return the buffer's text ("" for a buffer without a block).
const char* wuic_jsesc(char* out, std::int32_t out_size, const char* in, std::int32_t in_len);
const char* wuic_jsesc_ii(wms_strbuf* buf, const char* in, std::int32_t in_len);

// Markup: newlines kept, control bytes as "?". A cut never splits an entity. Both return the text.
const char* wuic_sgmlesc(char* out, std::int32_t out_size, const char* in, std::int32_t in_len);
const char* wuic_sgmlesc_ii(wms_strbuf* buf, const char* in, std::int32_t in_len);

// Markup text and attributes in single quotes, for results that are put together by hand: & < > and
// the apostrophe are escaped, the double quote is not. The second writes, NUL-terminated, what the
// first tells the size of, NUL included.
// REQUIRES: `out` has that size.
[[nodiscard]] std::size_t xml_escape_the_string_len(const char* text);
void xml_escape_the_string(const char* text, char* out);

// A word as the command line reads it: double quotes are dropped; so are backslashes, but for the
// double quote or backslash behind one, which is kept. At most `size` - 1 bytes and a NUL are
// written; nothing with a size below 1. `out` may be `text`. Returns `out`.
char* __strip_escape_and_quotes(  // NOLINT(readability-identifier-naming): fixed name
    const char* text, char* out, std::int32_t size);

// Dotted location names (campus.building.floor.area): in a part, backslashes are doubled and dots
// escaped. Results as fsb (fsb.h).
int wuic_escape_fqln_part(char* out, std::int32_t out_size, const char* part,
                          std::int32_t part_len);
// Joins four parts with dots (a missing one is empty); of an escaped part at most 255 characters
// take part. Result as fsb.
int wuic_build_fqln(char* out, std::int32_t out_size, const char* a, const char* b, const char* c,
                    const char* d);
// Splits at unescaped dots into up to four buffers, which are emptied first, and removes the
// escapes; text after a fourth dot is dropped. Returns 0.
// NOLINTNEXTLINE(readability-function-size): fixed interface
int wuic_crack_fqln(const char* name, char* a, std::int32_t a_size, char* b, std::int32_t b_size,
                    char* c, std::int32_t c_size, char* d, std::int32_t d_size);

// Writes a new version 4 UUID (RFC 4122 section 4.4) and a NUL, 37 bytes; an empty text when the
// kernel gives none or they do not fit.
void wuic_get_uuid(char* out, std::int32_t out_size);

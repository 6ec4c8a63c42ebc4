// Pull tokenizer for SGML and XML-like text: each call gives one token (a tag, the text between
// tags, the end, an error). It copies and changes nothing of the input, allocates nothing, and
// remembers the path of open elements: callers can ask where they are, and close tags are
// checked. Lenient on purpose: no validation, at most 30 attributes of a tag and 20 open elements
// are remembered.
//
// Everything that a tokenizer hands out points into the caller's text and lives as long as that.
#pragma once

#include <array>
#include <cstdint>

#include "runtime/sgml_text.h"

inline constexpr int sgml_attributes_max = 30;
inline constexpr int sgml_stack_max = 20;

// Results of sgml_tokenizer_next.
inline constexpr int sgml_error = -1;
inline constexpr int sgml_end = 0;
inline constexpr int sgml_tag = 1;
inline constexpr int sgml_text = 2;

enum sgml_error_code : std::int32_t {
    sgml_no_error = 0,
    sgml_unterminated_string = 1,
    sgml_mismatched_bracket = 2,
    sgml_mismatched_tag = 3,
    sgml_unknown_entity = 4,  // for callers; the tokenizer does not set it
    sgml_semantic_error = 5,  // likewise
};

// Value as it stands in the text: with its quotes, backslashes and references.
struct sgml_attr {
    const char* name;
    const char* value;  // null without "="
    std::int32_t name_length;
    std::int32_t value_length;
};

struct sgml_token {
    std::int32_t start;  // offset of the "<" of a tag, else of the first byte of the text
    std::int32_t size;   // bytes, a tag's brackets included
    const char* name;    // null for text
    std::int32_t name_length;
    std::int32_t self_closing;     // ended in "/>"
    std::int32_t closing;          // began with "</"
    std::int32_t attribute_count;  // entries of `attributes` that mean something
    std::array<sgml_attr, sgml_attributes_max> attributes;
};

struct sgml_tokenizer {
    const char* text;          // borrowed; need not end in a NUL
    std::int32_t length;       // bytes of it
    std::int32_t kind;         // result of the last call, except that a tag is not recorded
    std::int32_t position;     // offset of the next unread byte
    std::int32_t word_length;  // of the attribute lexer's last word
    sgml_token token;          // the current one
    std::int32_t depth;        // open elements; may exceed what `stack` holds
    std::array<sgml_token, sgml_stack_max> stack;  // the open elements, outermost first
    std::int32_t error_line;                       // from 1
    std::int32_t error_column;                     // from 1, in bytes
    const char* error_line_start;
    std::int32_t error_line_length;  // without CR and LF
    std::int32_t error_code;
};

// Starts at the head of `length` bytes of `text` (a negative length is an empty text). Returns 0.
int sgml_tokenizer_init(sgml_tokenizer* tokenizer, const char* text, std::int32_t length);

// Advances by one token; returns sgml_tag, sgml_text, sgml_end or sgml_error. A CDATA section is a
// text. An opening tag counts as open from the next call on, and a closed element until then. After
// an error the tokenizer is finished: loop while the result is above 0.
int sgml_tokenizer_next(sgml_tokenizer* tokenizer);

// As above, but CDATA sections stay part of the text around them, markers included.
int sgml_tokenizer_next_cdata(sgml_tokenizer* tokenizer);

// True for a tag of exactly this name that is closing or not, as asked. False for null.
bool sgml_tokenizer_is_tag(const sgml_token* token, const char* name, bool closing);
// True for a token without a name. False for null.
bool sgml_tokenizer_is_text(const sgml_token* token);
// Whether an open element has this name. Index 0 is the innermost, 1 the one around it; -1 is the
// outermost, -2 the next. False for one that is not open or not remembered.
bool sgml_tokenizer_stack_is_tag(const sgml_tokenizer* tokenizer, const char* name,
                                 std::int32_t index);

// Look for an attribute of the current token, in any case of letters. The second hands out the
// first one's value and leaves the outputs alone when there is none.
bool sgml_tokenizer_has_attribute(const sgml_tokenizer* tokenizer, const char* name,
                                  std::int32_t name_length);
bool sgml_tokenizer_get_attributes(const sgml_tokenizer* tokenizer, const char* name,
                                   std::int32_t name_length, const char** value,
                                   std::int32_t* value_length);

// Records an error at an offset, with the line and column that it falls on.
void sgml_tokenizer_set_error(sgml_tokenizer* tokenizer, std::int32_t position, std::int32_t code);

// Writes the recorded error: line, column, message, the line itself and a caret below the place.
// Returns the length, negated when it did not fit. Only the first line is NUL-terminated, and only
// until the next is written behind it: go by the length.
int sgml_tokenizer_strerror(char* out, std::int32_t size, const sgml_tokenizer* tokenizer);

// True at an opening tag whose path, from the outermost open element down to the tag itself, is
// exactly these names. The list of names ends with a null pointer.
[[gnu::sentinel]] bool st_is(const sgml_tokenizer* tokenizer, const char* name, ...);

// Collects the text of the current element, that of nested ones included, into the buffer, and
// leaves the tokenizer at its close tag; a current text is the first that is collected. `unescape`
// decodes references, `clear` empties the buffer first, `trim` drops white space at both ends of
// what it then holds. Returns 0, at the end of input and at an error too; -1 when the buffer cannot
// grow.
int st_to_str(sgml_tokenizer* tokenizer, wms_strbuf* buf, bool unescape, bool clear, bool trim);

// Appends the value of an attribute of the current token, as it stands or as plain text
// (`compact`); nothing when there is none. Returns 0, or -1 when the buffer cannot grow.
int st_get_attr(wms_strbuf* buf, const sgml_tokenizer* tokenizer, const char* name, bool compact,
                bool clear);
// The same under the name that the captive-portal pages use.
int sgml_get_all_attr(wms_strbuf* buf, const sgml_tokenizer* tokenizer, const char* name,
                      bool compact, bool clear);

// An attribute as a number, in decimal, 0x hexadecimal or 0 octal; what follows the digits is
// ignored, as is what lies beyond 127 characters; numbers beyond 32 bits end at the nearest. An
// absent attribute is `fallback`.
int st_attr_to_int(const sgml_tokenizer* tokenizer, const char* name, int fallback);

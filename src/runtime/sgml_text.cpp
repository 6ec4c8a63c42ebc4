#include "runtime/sgml_text.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <string_view>

#include "runtime/quote_scan.h"
#include "runtime/strbuf.h"
#include "runtime/text.h"

namespace {

using std::string_view;

// ---- escaping

constexpr bool is_space(unsigned c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

constexpr escape_entry numeric_reference(unsigned byte) {
    constexpr string_view digits = "0123456789";
    escape_entry entry;
    entry.set("&#");
    if (byte >= 100) entry.add(digits.substr(byte / 100, 1));
    if (byte >= 10) entry.add(digits.substr(byte / 10 % 10, 1));
    entry.add(digits.substr(byte % 10, 1));
    entry.add(";");
    return entry;
}

constexpr escape_table make_table(bool newline, bool control) {
    escape_table table;
    for (unsigned byte = 0; byte < 256; ++byte) {
        const bool is_control = (byte < 0x20 && !is_space(byte)) || byte == 0x7F;
        if (is_control && control) {
            table.entries[byte].set("?");
        } else if (is_control || byte >= 0x80) {
            table.entries[byte] = numeric_reference(byte);
        }
    }
    table.set('"', "&quot;");
    table.set('&', "&amp;");
    table.set('\'', "&#39;");
    table.set('<', "&lt;");
    table.set('>', "&gt;");
    if (newline) {
        table.set('\n', "&#10;");
        table.set('\r', "&#10;");
        table.drops_cr_before_lf = true;
    }
    return table;
}

constexpr escape_table kept_lines = make_table(false, false);
constexpr escape_table kept_lines_no_control = make_table(false, true);
constexpr escape_table encoded_lines = make_table(true, false);
constexpr escape_table encoded_lines_no_control = make_table(true, true);

// ---- references

struct named_reference {
    string_view name;  // what follows the "&"
    char byte;
};
constexpr named_reference named_references[] = {
    {"lt;", '<'}, {"gt;", '>'}, {"amp;", '&'}, {"quot;", '"'}};

struct decoded {
    std::size_t length;  // bytes behind the "&" that belong to the reference; 0: there is none
    char byte;
};

constexpr bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// `text` begins with "#". Only so many digits count; the others are read over.
decoded read_number(string_view text) {
    constexpr std::size_t counted_digits = 31;
    std::int64_t value = 0;
    std::size_t i = 1;
    for (; i < text.size() && is_digit(text[i]); ++i) {
        if (i <= counted_digits)
            value = std::min<std::int64_t>(value * 10 + (text[i] - '0'), INT_MAX);
    }
    if (i == text.size() || text[i] != ';') return {0, '\0'};
    return {i + 1, static_cast<char>(static_cast<unsigned char>(value & 0xFF))};
}

// `text` begins behind the "&". Read forwards and never past what belongs to the reference, so that
// a text of many "&" costs no more than its length.
decoded read_reference(string_view text) {
    if (text.starts_with('#')) return read_number(text);
    for (const auto& [name, byte] : named_references) {
        if (text.starts_with(name)) return {name.size(), byte};
    }
    return {0, '\0'};
}

// Writes the reference at `text`[at], an "&", or the "&" itself. Returns the bytes read.
std::size_t write_reference(bounded_writer* to, string_view text, std::size_t at) {
    const decoded found = read_reference(text.substr(at + 1));
    const char byte = found.length > 0 ? found.byte : '&';
    bounded_writer_append(to, {&byte, 1});
    return 1 + found.length;
}

void unescape(bounded_writer* to, string_view text) {
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t next = std::min(text.find('&', at), text.size());
        bounded_writer_append(to, text.substr(at, next - at));
        at = next;
        if (at < text.size()) at += write_reference(to, text, at);
    }
}

// ---- raw attribute values

// The bytes that compact has to look at; all others are copied in runs.
constexpr auto compact_stops = [] {
    std::array<bool, 256> stops{};
    for (const char c : {'&', '\\', '\'', '"'})
        stops[static_cast<unsigned char>(c)] = true;
    return stops;
}();

std::size_t end_of_run(string_view text, std::size_t from) {
    std::size_t at = from;
    while (at < text.size() && !compact_stops[static_cast<unsigned char>(text[at])])
        ++at;
    return at;
}

// Copies the byte behind the backslash at `text`[at], or the reference that begins there. Returns
// the bytes read.
std::size_t write_literal(bounded_writer* to, string_view text, std::size_t at) {
    const std::size_t next = at + 1;
    if (next < text.size() && text[next] == '&') return 1 + write_reference(to, text, next);
    bounded_writer_append(to, text.substr(next, 1));
    return 2;
}

// A quote opens or closes a run and is dropped; within a run of the other kind it is text.
std::size_t write_quote(bounded_writer* to, char quote, char* open) {
    if (*open == '\0') {
        *open = quote;
    } else if (*open == quote) {
        *open = '\0';
    } else {
        bounded_writer_append(to, {&quote, 1});
    }
    return 1;
}

void compact(bounded_writer* to, string_view text) {
    char open = '\0';  // the quote of the run that we are in
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t next = end_of_run(text, at);
        bounded_writer_append(to, text.substr(at, next - at));
        at = next;
        if (at == text.size()) break;
        if (text[at] == '&') {
            at += write_reference(to, text, at);
        } else if (text[at] == '\\') {
            at += write_literal(to, text, at);
        } else {
            at += write_quote(to, text[at], &open);
        }
    }
}

// ---- edges

bool is_usable(const char* text, std::int32_t length) {
    return length == 0 || (length > 0 && text != nullptr);
}

string_view view(const char* text, std::int32_t length) {
    return length > 0 ? string_view{text, static_cast<std::size_t>(length)} : string_view{};
}

constexpr char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

int as_signed(char c) {
    return static_cast<signed char>(c);
}

// The sign of the difference in length, where one text begins with the other.
int compare_lengths(string_view a, string_view b) {
    return static_cast<int>(a.size() > b.size()) - static_cast<int>(a.size() < b.size());
}

void append(wms_strbuf* buf, string_view text) {
    if (text.size() > INT32_MAX) return;
    wms_strbuf_append(buf, text.data(), static_cast<std::int32_t>(text.size()));
}

void append_value(wms_strbuf* buf, string_view value, bool escape) {
    if (escape) {
        escape_to_strbuf(buf, value, kept_lines_no_control);
    } else {
        append(buf, value);
    }
}

}  // namespace

const escape_table& sgml_escape_table(bool newline, bool control) {
    if (newline) return control ? encoded_lines_no_control : encoded_lines;
    return control ? kept_lines_no_control : kept_lines;
}

int st_strcmp(const char* a, std::int32_t a_length, const char* b, std::int32_t b_length) {
    const string_view left = view(a, a_length);
    const string_view right = view(b, b_length);
    const auto [l, r] = std::ranges::mismatch(left, right);
    if (l != left.end() && r != right.end()) return as_signed(*l) - as_signed(*r);
    return compare_lengths(left, right);
}

int st_strcmpi(const char* a, std::int32_t a_length, const char* b, std::int32_t b_length) {
    const string_view left = view(a, a_length);
    const string_view right = view(b, b_length);
    const auto [l, r] = std::ranges::mismatch(left, right, {}, lower, lower);
    if (l != left.end() && r != right.end()) return as_signed(lower(*l)) - as_signed(lower(*r));
    return compare_lengths(left, right);
}

std::int32_t st_strsearch(const char* haystack, std::int32_t haystack_length, const char* needle,
                          std::int32_t needle_length, bool quote_aware) {
    const string_view hay = view(haystack, haystack_length);
    const string_view wanted = view(needle, needle_length);
    if (!quote_aware) {
        const std::size_t at = hay.find(wanted);
        return at == string_view::npos ? -1 : static_cast<std::int32_t>(at);
    }
    quote_scan quotes;
    for (std::size_t at = 0; at + wanted.size() <= hay.size(); ++at) {
        if (quotes.is_plain() && hay.substr(at, wanted.size()) == wanted) {
            return static_cast<std::int32_t>(at);
        }
        quotes.step(hay[at]);
    }
    return -1;
}

int sgml_tokenizer_unescape(char* out, std::int32_t size, const char* text, std::int32_t length) {
    if (!is_usable(text, length)) return -1;
    bounded_writer to = bounded_writer_new(out, size);
    unescape(&to, view(text, length));
    return bounded_writer_result(&to);
}

int sgml_tokenizer_compact(char* out, std::int32_t size, const char* value, std::int32_t length) {
    if (!is_usable(value, length)) return -1;
    bounded_writer to = bounded_writer_new(out, size);
    compact(&to, view(value, length));
    return bounded_writer_result(&to);
}

int sgml_tokenizer_trim(char* out, std::int32_t size, const char* text, std::int32_t length,
                        const char* set) {
    if (!is_usable(text, length)) return -1;
    const string_view dropped = set != nullptr ? set : " \t\r\n";
    const string_view whole = view(text, length);
    bounded_writer to = bounded_writer_new(out, size);
    const std::size_t first = whole.find_first_not_of(dropped);
    if (first == string_view::npos) {
        if (to.size > 0) to.out[0] = '\0';
        return 0;
    }
    const std::size_t last = whole.find_last_not_of(dropped);
    bounded_writer_append(&to, whole.substr(first, last - first + 1));
    return bounded_writer_result(&to);
}

int sgml_tokenizer_escape(char* out, std::int32_t size, const char* text, std::int32_t length,
                          bool newline, bool control) {
    if (!is_usable(text, length)) return -1;
    bounded_writer to = bounded_writer_new(out, size);
    escape_append(&to, view(text, length), sgml_escape_table(newline, control));
    return bounded_writer_result(&to);
}

int st_esc2(wms_strbuf* buf, const char* text, std::int32_t length, bool newline, bool control) {
    if (!is_usable(text, length)) return 0;
    return escape_to_strbuf(buf, view(text, length), sgml_escape_table(newline, control));
}

void st_prnv(wms_strbuf* buf, const char* element, const char* value, bool escape) {
    const string_view name = text_or_null(element);
    append(buf, "<");
    append(buf, name);
    append(buf, ">");
    append_value(buf, value != nullptr ? value : "", escape);
    append(buf, "</");
    append(buf, name);
    append(buf, ">\n");
}

void st_pratt(wms_strbuf* buf, const char* attribute, const char* value) {
    append(buf, " ");
    append(buf, text_or_null(attribute));
    append(buf, "=\"");
    append_value(buf, value != nullptr ? value : "", true);
    append(buf, "\"");
}

// The tokenizer and the text conversions: both ways of reading report what a second, plain reading
// reports, all that they hand out lies in the input, and measuring equals writing.
#include <functional>

#include "runtime/strbuf.h"

#include "backend/sgml_tokenizer.h"

#include "fuzz_input.h"
#include "markup_rules.h"
#include "tokenizer_rules.h"

namespace {

using plain::event;
using plain::rules;
using std::string;
using std::string_view;

// Chooses among variants, by the input itself.
struct drawing {
    std::size_t left;
    std::size_t below(std::size_t count) {
        const std::size_t drawn = left % count;
        left /= count;
        return drawn;
    }
};

// ---- tokens

using reader = int(sgml_tokenizer*);

string report_of(const sgml_tokenizer& t) {
    const int size = -sgml_tokenizer_strerror(nullptr, 0, &t);
    const exact_bytes out(string(std::size_t(size), '#'), 1);
    expect(sgml_tokenizer_strerror(out.data(), size + 1, &t) == size, "a report is as measured");
    return string(out.view());
}

event reported(const sgml_tokenizer& t, int result) {
    return plain::event_of(t, result, result == sgml_error ? report_of(t) : "");
}

bool lies_in(string_view input, const char* text, std::int32_t length) {
    const auto end = static_cast<std::size_t>(text - input.data()) + std::size_t(length);
    return text >= input.data() && length >= 0 && end <= input.size();
}

void check_views(string_view input, const sgml_token& token) {
    expect(lies_in(input, input.data() + token.start, token.size), "tokens lie in the input");
    expect(token.name == nullptr || lies_in(input, token.name, token.name_length), "names too");
    for (int i = 0; i < token.attribute_count; ++i) {
        const sgml_attr& attribute = token.attributes[std::size_t(i)];
        expect(lies_in(input, attribute.name, attribute.name_length), "attributes' names too");
        expect(
            attribute.value == nullptr || lies_in(input, attribute.value, attribute.value_length),
            "and their values");
    }
}

// The first of a name, in any case, is found under it.
void check_attributes(const sgml_tokenizer& t, const event& tag, drawing draw) {
    if (tag.attributes.empty()) return;
    const string name(tag.attributes[draw.below(tag.attributes.size())].first);
    const auto found = std::ranges::find_if(tag.attributes, [&](const auto& known) {
        return plain::same_in_any_case(known.first, name);
    });
    const auto& raw = t.token.attributes[std::size_t(found - tag.attributes.begin())];
    const auto length = std::int32_t(name.size());
    const char* value = nullptr;
    std::int32_t value_length = 0;
    expect(sgml_tokenizer_has_attribute(&t, name.data(), length) &&
               sgml_tokenizer_get_attributes(&t, name.data(), length, &value, &value_length) &&
               value == raw.value && value_length == raw.value_length,
           "an attribute is found by its name");
}

bool is_path(const sgml_tokenizer& t, const std::vector<string>& path, const char* last) {
    const auto at = [&](std::size_t i) { return path[i].c_str(); };
    if (path.size() == 0) return st_is(&t, last, nullptr);
    if (path.size() == 1) return st_is(&t, at(0), last, nullptr);
    return st_is(&t, at(0), at(1), last, nullptr) && !st_is(&t, at(0), at(1), nullptr);
}

// Whether the tokenizer answers for the path that a plain reading has open.
void check_path(const sgml_tokenizer& t, const rules& read, drawing draw) {
    std::vector<string> path;
    for (const event& element : read.open)
        path.emplace_back(element.name);
    for (const string& name : path) {
        if (name.find('\0') != string::npos) return;
    }
    if (!path.empty()) {
        const std::size_t i = draw.below(path.size());
        const bool kept = i < sgml_stack_max;
        const auto inner = std::int32_t(path.size() - 1 - i);
        const auto outer = -std::int32_t(i) - 1;
        expect(sgml_tokenizer_stack_is_tag(&t, path[i].c_str(), inner) == kept &&
                   sgml_tokenizer_stack_is_tag(&t, path[i].c_str(), outer) == kept,
               "an open element is found from both ends");
    }
    const event& last = read.last;
    if (last.result != sgml_tag || last.name.find('\0') != string::npos) return;
    const string name(last.name);
    expect(sgml_tokenizer_is_tag(&t.token, name.c_str(), last.closing), "a tag has its name");
    if (path.size() > 2) return;
    expect(is_path(t, path, name.c_str()) == !last.closing, "a path is that of the tags");
}

void check_reading(const exact_bytes& input, reader* next, bool keeps_cdata, drawing draw) {
    rules second{string(input.view()), keeps_cdata};
    sgml_tokenizer t;
    sgml_tokenizer_init(&t, input.data(), input.length());
    int result = 0;
    do {
        result = next(&t);
        expect(reported(t, result) == second.next(), "both readings report the same");
        check_views(input.view(), t.token);
        check_path(t, second, draw);
        if (result == sgml_tag) check_attributes(t, second.last, draw);
    } while (result > 0);
    for (std::size_t i = 0; i < sgml_stack_max && i < std::size_t(t.depth); ++i)
        check_views(input.view(), t.stack[i]);
    expect(next(&t) == result, "the end stays the end");
}

void check_error_place(const exact_bytes& input, drawing draw) {
    const rules second{string(input.view()), false};
    const std::size_t at = draw.below(input.size + 1);
    sgml_tokenizer t;
    sgml_tokenizer_init(&t, input.data(), input.length());
    sgml_tokenizer_set_error(&t, std::int32_t(at), sgml_semantic_error);
    expect(report_of(t) == second.error(at, "symantic error").report,
           "an error is shown at its place");
}

// ---- conversions

using conversion = std::function<int(char*, std::int32_t, const char*, std::int32_t)>;

string stored(const conversion& convert, const exact_bytes& text, std::size_t size, int result) {
    const exact_bytes out(string(size, '\0'));
    expect(convert(out.data(), out.length(), text.data(), text.length()) == result,
           "writing takes what was measured");
    return string(out.view());
}

// Returns what is stored in a drawn room that is too small.
string check_rooms(const conversion& convert, const exact_bytes& text, const string& expected,
                   drawing* draw) {
    const auto size = static_cast<int>(expected.size());
    expect(convert(nullptr, 0, text.data(), text.length()) == -size, "measuring tells the size");
    const string whole = stored(convert, text, expected.size() + 1 + draw->below(64), size);
    expect(whole.substr(0, expected.size()) == expected, "a conversion is as its definition says");
    expect(whole.find_first_not_of('\0', expected.size()) == string::npos,
           "what stands behind the result stays");
    return stored(convert, text, draw->below(expected.size() + 1), -size);
}

void check_in_place(const conversion& convert, string_view text, const string& expected) {
    const exact_bytes own(text);
    const int length = std::abs(convert(own.data(), own.length(), own.data(), own.length()));
    expect(own.view().substr(0, std::size_t(length)) == expected, "in place it gives the same");
}

void check_shortening(const exact_bytes& text, drawing draw) {
    const string plain_text(text.view());
    const string set(plain_text.substr(0, draw.below(4)).c_str());
    const auto trim = [](const char* dropped) {
        return [=](char* out, std::int32_t size, const char* from, std::int32_t length) {
            return sgml_tokenizer_trim(out, size, from, length, dropped);
        };
    };
    const std::pair<conversion, string> rows[] = {
        {sgml_tokenizer_unescape, plain::unescaped(plain_text)},
        {sgml_tokenizer_compact, plain::compacted(plain_text)},
        {trim(nullptr), plain::trimmed(plain_text)},
        {trim(set.c_str()), plain::trimmed(plain_text, set)}};
    for (const auto& [convert, expected] : rows) {
        const string cut = check_rooms(convert, text, expected, &draw);
        expect(expected.starts_with(cut), "what does not fit is cut");
        check_in_place(convert, text.view(), expected);
    }
}

// The text as the escaped one reads back.
string without_lost_bytes(string text, bool newline, bool control) {
    string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const bool is_control = (byte < 0x20 || byte == 0x7F) && (byte < '\t' || byte > '\r');
        if (newline && byte == '\r' && text[i + 1] == '\n') continue;
        if (newline && byte == '\r') {
            out += '\n';
        } else {
            out += is_control && control ? '?' : text[i];
        }
    }
    return out;
}

// Between tags it is one text, which reads back.
void check_escaped(const string& escaped, const string& meant) {
    for (const char byte : escaped) {
        const bool harmless =
            byte == '\t' || (byte >= '\n' && byte <= '\r') ||
            (byte >= ' ' && byte <= '~' && string_view("<>\"'").find(byte) == string_view::npos);
        expect(harmless, "escaped text holds no markup and plain characters only");
    }
    const exact_bytes document("<e>" + escaped + "</e>");
    sgml_tokenizer t;
    sgml_tokenizer_init(&t, document.data(), document.length());
    scoped_strbuf buf;
    expect(sgml_tokenizer_next(&t) == sgml_tag && st_to_str(&t, buf, true, true, false) == 0 &&
               sgml_tokenizer_next(&t) == sgml_end,
           "escaped text is one text");
    const auto length = static_cast<std::size_t>(buf.buf.length);
    expect(length == meant.size() && meant.compare(0, length, buf.buf.data, length) == 0,
           "and reads back");
}

void check_escaping(const exact_bytes& text, drawing draw) {
    const bool newline = draw.below(2) == 0;
    const bool control = draw.below(2) == 0;
    const auto escape = [=](char* out, std::int32_t size, const char* from, std::int32_t length) {
        return sgml_tokenizer_escape(out, size, from, length, newline, control);
    };
    scoped_strbuf buf;
    const int size = st_esc2(buf, text.data(), text.length(), newline, control);
    const string expected(size > 0 ? buf.buf.data : "", std::size_t(size));
    const string cut = check_rooms(escape, text, expected, &draw);
    const string kept = cut.substr(0, cut.find('\0'));
    expect(expected.starts_with(kept) && cut.find_first_not_of('\0', kept.size()) == string::npos,
           "what does not fit is left out, and zeroed");
    expect(kept.rfind('&') == string::npos || kept.find(';', kept.rfind('&')) != string::npos,
           "no reference is cut");
    check_escaped(expected, without_lost_bytes(string(text.view()), newline, control));
}

// ---- searches

void check_search(const exact_bytes& text, drawing draw) {
    const rules second{string(text.view()), false};
    const std::size_t from = draw.below(text.size + 1);
    const exact_bytes needle(text.view().substr(from, draw.below(4) + 1));
    if (needle.size == 0) return;
    for (const bool aware : {false, true}) {
        const std::size_t at = second.search(string(needle.view()), 0, aware);
        const std::int32_t found =
            st_strsearch(text.data(), text.length(), needle.data(), needle.length(), aware);
        expect(found == (at == string::npos ? -1 : std::int32_t(at)), "a search finds the first");
    }
}

}  // namespace

void fuzz_one(std::string_view data) {
    const exact_bytes text(data);
    const drawing draw{std::hash<string_view>{}(data)};
    check_reading(text, sgml_tokenizer_next, false, draw);
    check_reading(text, sgml_tokenizer_next_cdata, true, draw);
    check_error_place(text, draw);
    check_shortening(text, draw);
    check_escaping(text, draw);
    check_search(text, draw);
}

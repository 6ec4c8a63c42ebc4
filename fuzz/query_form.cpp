// Query strings and URL-encoded bodies, as cgi_parse reads them: the fields are those of a plain
// second reading, in order and inside the body, and what is refused is what the screening's rules
// say.
//
// An input: one byte that tells the way in, then (for a length of its own) a line with it, then the
// text.
#include <cctype>
#include <cstring>
#include <optional>
#include <regex.h>
#include <strings.h>

#include "runtime/cgi.h"
#include "runtime/escape.h"
#include "runtime/strbuf.h"
#include "runtime/url.h"

#include "fuzz_server.h"

namespace {

using std::string_view;

struct plain_field {
    std::string name;
    std::optional<std::string> value;
    auto operator<=>(const plain_field&) const = default;
};

std::vector<plain_field> plain_fields(string_view text) {
    std::vector<plain_field> fields;
    for (const string_view piece : plain_split(text, '&')) {
        const std::size_t equals = piece.find('=');
        plain_field field{.name = until_nul(plain_url_decode(piece.substr(0, equals))),
                          .value = {}};
        if (equals != string_view::npos) field.value = plain_url_decode(piece.substr(equals + 1));
        fields.push_back(field);
    }
    std::ranges::sort(fields);
    return fields;
}

bool plain_begins_with_tag(string_view rest) {
    for (const string_view tag : plain_split(
             "script,style,div,frame,img,a ,a%20,base,bgsound,body,meta,layer,object,link,table,"
             "td,input,br,embed,?import,iframe",
             ',')) {
        const bool same =
            rest.size() > tag.size() && ::strncasecmp(rest.data(), tag.data(), tag.size()) == 0;
        if (same) return true;
    }
    return false;
}

bool plain_finds_tag(string_view query) {
    for (std::size_t at = 0; at < query.size(); ++at) {
        for (const string_view bracket : {"<", "%3C", "%3c", "%3E", "%3e"}) {
            const string_view rest = query.substr(at);
            if (rest.starts_with(bracket) && plain_begins_with_tag(rest.substr(bracket.size())))
                return true;
        }
    }
    return false;
}

// A NUL, which hides nothing, stands for any byte here.
bool plain_finds_event_handler(std::string decoded) {
    static const regex_t* const expression = [] {
        static regex_t compiled;
        const int flags = REG_EXTENDED | REG_NOSUB;
        return regcomp(&compiled, "(.*)[\"'](.*)on(.*)=[(](.*)[)]", flags) == 0 ? &compiled
                                                                                : nullptr;
    }();
    std::ranges::replace(decoded, '\0', '.');
    // Without these there is no match, and the expression takes its time to find out.
    for (const char* piece : {"on", "=(", ")"})
        if (decoded.find(piece) == std::string::npos) return false;
    return regexec(expression, decoded.c_str(), 0, nullptr, 0) == 0;
}

bool plain_is_refused(string_view query) {
    return plain_finds_tag(query) || plain_finds_event_handler(plain_url_decode(query));
}

// What a value becomes in a page or a URL holds nothing of what the value was.
void check_escapes(string_view value) {
    const auto length = static_cast<std::int32_t>(value.size());
    const exact_bytes url("", 3 * value.size());
    const int written = cgi_escape_url(url.data(), 3 * length, value.data(), length, false);
    expect(written >= 0, "three bytes each are enough");
    const string_view escaped{url.data(), static_cast<std::size_t>(written)};
    expect(std::ranges::all_of(escaped, [](char c) { return std::isalnum(c) != 0 || c == '%'; }),
           "an escaped URL holds letters, digits and percent signs");
    expect(plain_url_decode(escaped) == value, "an escaped URL is decoded to what it was");

    scoped_strbuf page;
    if (value.empty()) return;
    const string_view markup = wuic_sgmlesc_ii(page, value.data(), length);
    expect(markup.find_first_of("<>\"'") == string_view::npos, "escaped text holds no markup");
}

// `input` holds exactly these fields, sorted, and each lies in `body`.
void check_fields(const cgi* input, const std::vector<plain_field>& expected, string_view body) {
    const auto inside = [body](const char* text) {
        return text >= body.data() && text <= body.data() + body.size();
    };
    std::vector<plain_field> fields;
    for (int i = 0; i < input->pairs.count; ++i) {
        const cgi_pair& pair = input->pairs.entries[i];
        expect(inside(pair.name) && inside(pair.name + std::strlen(pair.name)),
               "a name lies in the body");
        plain_field field{.name = pair.name, .value = {}};
        if (pair.value != nullptr) {
            expect(pair.value_len >= 0 && inside(pair.value) &&
                       inside(pair.value + pair.value_len) && pair.value[pair.value_len] == '\0',
                   "a value lies in the body and is terminated");
            field.value.emplace(pair.value, static_cast<std::size_t>(pair.value_len));
            check_escapes(*field.value);
        }
        expect(pair.filename == nullptr && pair.content_type == nullptr, "a field is no file");
        expect(fields.empty() || fields.back().name <= field.name, "fields are sorted by name");
        fields.push_back(field);
    }
    std::ranges::sort(fields);
    expect(fields == expected, "both readings find the same fields");
}

// REQUIRES: `expected` is sorted.
void check_lookups(const cgi* input, const std::vector<plain_field>& expected) {
    for (const plain_field& field : expected) {
        const cgi_pair* const pair = cgi_named_pair(input, field.name.c_str());
        expect(pair != nullptr && field.name == pair->name, "a field is found by its name");
        const std::string longer = field.name + "\x7F";
        const bool there = std::ranges::binary_search(expected, longer, {}, &plain_field::name);
        expect((cgi_named_value(input, longer.c_str()) != nullptr) == there,
               "a field that did not come is not found");
    }
}

void check_parsed(const cgi* input, string_view text) {
    const std::vector<plain_field> expected = plain_fields(text);
    check_fields(input, expected, {input->body, text.size()});
    check_lookups(input, expected);
    expect(std::memcmp(cgi_query_string(input), text.data(), text.size()) == 0,
           "the raw text is what came");
}

void check_get(string_view data) {
    const std::string query = until_nul(data);
    const fuzz_environment environment{{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", query}};
    const quiet_request request;
    const int result = cgi_parse(request.input);
    expect(result == (plain_is_refused(query) ? cgi_refused : 0), "markup is refused, and only it");
    if (result == 0 && !query.empty()) {
        check_parsed(request.input, query);
    } else {
        expect(request.input->pairs.count == 0, "a refused query leaves no fields");
    }
}

// What the length that a client claims comes to with so many bytes sent.
int plain_post_result(long long length, std::size_t sent) {
    if (length < 0) return cgi_no_length;
    if (length > cgi_body_max) return cgi_too_long;
    return static_cast<unsigned long long>(length) > sent ? cgi_read_error : 0;
}

void check_post(const std::string& length_text, string_view body) {
    fuzz_stdin(body);
    const fuzz_environment environment{{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", length_text}};
    const quiet_request request;
    const long long length = std::strtoll(length_text.c_str(), nullptr, 10);
    const int result = cgi_parse(request.input);
    expect(result == plain_post_result(length, body.size()), "a claimed length is judged");
    if (result == 0 && length > 0) {
        expect(fuzz_stdin_read() == static_cast<std::size_t>(length),
               "no more is read than was claimed");
        check_parsed(request.input, body.substr(0, static_cast<std::size_t>(length)));
    } else {
        expect(request.input->pairs.count == 0, "no body, no fields");
    }
}

// A caller's buffer is read the same, be it cut up itself or left as it is.
void check_buffer(string_view text) {
    if (text.empty()) return;
    const exact_bytes kept(text);
    const quiet_request copied;
    expect(cgi_parse_ii(copied.input, kept.data(), kept.length(), 0) == 0 && kept.view() == text,
           "a copy is parsed");
    check_parsed(copied.input, text);
    const exact_bytes cut_up(text, 1);
    const quiet_request in_place;
    expect(cgi_parse_iii(in_place.input, cut_up.data(), cut_up.length(), 0) == 0,
           "a buffer is parsed where it stands");
    check_fields(in_place.input, plain_fields(text), {cut_up.data(), text.size()});
}

}  // namespace

void fuzz_one(string_view data) {
    const fuzz_descriptor_check descriptors;
    fuzz_fields fields{data};
    switch (fields.byte() % 4) {
        case 0:
            return check_get(fields.rest);
        case 1:
            return check_post(std::to_string(fields.rest.size()), fields.rest);
        case 2: {
            const std::string length = until_nul(fields.field());
            return check_post(length, fields.rest);
        }
        default:
            return check_buffer(fields.rest);
    }
}

// The search of the database of access points, as its handler runs it: what a caller sends reaches
// the server as the contents of one literal each, as a name or direction of a table, or as a
// number; and what the server holds reaches the browser as text.
#include <array>
#include <cstring>
#include <optional>
#include <vector>

#include "runtime/cgi.h"
#include "runtime/escape.h"

#include "monitor/monitor_handlers.h"

#include "fake_database.h"
#include "fuzz_input.h"
#include "sql_tokens.h"

namespace {

using std::string_view;

constexpr char too_long[] = "Search text is too long";

struct filter {
    const char* name;
    const char* harmless;
    bool of_monitors;
};

constexpr auto filters = std::to_array<filter>({{"name", "v0v", true},
                                                {"role", "v1v", false},
                                                {"apgroup", "v2v", true},
                                                {"ip", "v3v", true},
                                                {"status", "v4v", true}});

// One request and what came of it.
struct search_run {
    std::vector<sent_statement> sent;
    std::string response;
    int result = 0;
};

search_run run_search(fuzz_request* request, fake_database settings) {
    the_fake_database() = std::move(settings);
    wms_strbuf_clear(&request->record.response);
    search_run run;
    run.result = wlmng_search("wlm-search", &request->record.response, &request->record.session,
                              nullptr, request->input);
    const wms_strbuf& response = request->record.response;
    if (response.data != nullptr) run.response.assign(response.data, std::size_t(response.length));
    run.sent = the_fake_database().sent;
    return run;
}

string_view value_of(const cgi* input, const char* name) {
    const cgi_pair* const pair = cgi_named_pair(input, name);
    if (pair == nullptr || pair->value == nullptr) return {};
    return {pair->value, std::size_t(pair->value_len)};
}

void replace_value(cgi* input, const char* name, char* value) {
    auto* const pair = const_cast<cgi_pair*>(cgi_named_pair(input, name));
    if (pair == nullptr || pair->value_len == 0) return;
    pair->value = value;
    pair->value_len = static_cast<std::int32_t>(std::strlen(value));
}

std::size_t escaped_size(string_view value) {
    const auto doubled = std::ranges::count_if(
        value, [](char c) { return string_view{"\"'\\%"}.find(c) != string_view::npos; });
    return value.size() + std::size_t(doubled);
}

// What LIKE takes for itself, a backslash in front of it being read away. None when a wildcard for
// any text stands bare.
std::optional<std::string> without_like_escapes(string_view pattern) {
    std::string text;
    for (std::size_t at = 0; at < pattern.size(); ++at) {
        if (pattern[at] == '%') return {};
        if (pattern[at] == '\\' && ++at == pattern.size()) return {};
        text += pattern[at];
    }
    return text;
}

// The literal is the filter's value between two wildcards. Where backslashes are read away with the
// literal, none is left for LIKE.
bool holds_value(const std::string& literal, string_view value, bool reads_backslashes) {
    if (literal.size() < 2 || literal.front() != '%' || literal.back() != '%') return false;
    const string_view inner = string_view{literal}.substr(1, literal.size() - 2);
    return reads_backslashes ? inner == value : without_like_escapes(inner) == value;
}

const filter* filter_of(const std::string& literal) {
    const auto* const found = std::ranges::find_if(filters, [&](const filter& row) {
        return literal == std::string("%") + row.harmless + "%";
    });
    return found != filters.end() ? found : nullptr;
}

// Behind its conditions a harmless statement has names of columns with directions, and numbers.
void check_tail(string_view text) {
    const std::size_t page = text.find(" OFFSET ");
    expect(page != string_view::npos, "a query is for a page");
    const auto tokens =
        sql_tokens_of(text.substr(std::min(text.rfind(" ORDER BY ", page), page)), true);
    expect(tokens.has_value(), "nothing in an order is open or foreign");
    for (const sql_token& token : *tokens) {
        const bool is_name =
            token.text.find_first_not_of("abcdefghijklmnopqrstuvwxyz_") == std::string::npos;
        const bool is_known = string_view{" ORDER BY ASC DESC OFFSET LIMIT "}.find(
                                  ' ' + token.text + ' ') != string_view::npos;
        expect(token.is == sql_token::number || token.text == "," || token.text == "." ||
                   (token.is == sql_token::word && (is_name || is_known)),
               "an order is of columns, and a page of numbers");
    }
}

void check_statement(const sent_statement& real, const sent_statement& plain, const cgi* input) {
    const auto tokens = sql_tokens_of(real.text, real.reads_backslashes);
    const auto expected = sql_tokens_of(plain.text, plain.reads_backslashes);
    expect(expected.has_value(), "a harmless request makes a readable statement");
    expect(tokens.has_value(), "nothing in a statement is open or foreign");
    expect(same_but_for_literals(*tokens, *expected), "a value stays inside its literal");
    for (std::size_t i = 0; i < tokens->size(); ++i) {
        if ((*tokens)[i].is != sql_token::literal) continue;
        const filter* const from = filter_of((*expected)[i].text);
        const bool as_meant = from == nullptr
                                  ? (*tokens)[i].text == (*expected)[i].text
                                  : holds_value((*tokens)[i].text, value_of(input, from->name),
                                                real.reads_backslashes);
        expect(as_meant, "a literal holds the value, and a fixed one itself");
    }
}

// Texts from the server taken out of their sections and out of the reason.
std::string skeleton_of(string_view response) {
    constexpr std::pair<string_view, string_view> sections[] = {{"<![CDATA[", "]]>"},
                                                                {"<reason>", "</reason>"}};
    std::string rest(response);
    for (const auto& [begin, end] : sections) {
        std::size_t at = 0;
        while ((at = rest.find(begin, at)) != std::string::npos) {
            at += begin.size();
            const std::size_t stop = rest.find(end, at);
            expect(stop != std::string::npos, "a section ends");
            const string_view text = string_view{rest}.substr(at, stop - at);
            expect(text.size() < 1024, "a text is at most 1023 bytes long");
            expect(text.find_first_of("<>") == string_view::npos, "a text is escaped");
            rest.erase(at, text.size());
        }
    }
    return rest;
}

bool is_refusal(const search_run& run) {
    return run.response.find(too_long) != std::string::npos;
}

// With an apostrophe backslashes must be read away; without one they must reach LIKE.
bool needs_backslashes(const cgi* input, bool of_monitors) {
    return std::ranges::any_of(filters, [&](const filter& row) {
        const bool taken = row.of_monitors || !of_monitors;
        return taken && value_of(input, row.name).find('\'') != string_view::npos;
    });
}

void check_runs(const search_run& real, const search_run& plain, const cgi* input,
                bool of_monitors) {
    const bool refused = is_refusal(real);
    expect(real.sent.size() <= plain.sent.size(), "no statement more is sent");
    expect(refused || real.sent.size() == plain.sent.size(), "no statement less is sent");
    const bool backslashes = needs_backslashes(input, of_monitors);
    for (std::size_t i = 0; i < real.sent.size(); ++i) {
        expect(real.sent[i].reads_backslashes == backslashes,
               "literals are read as they are meant");
        check_statement(real.sent[i], plain.sent[i], input);
    }
    if (plain.sent.size() == 2) check_tail(plain.sent[1].text);
    if (refused) {
        expect(real.result == -1, "a refusal is a failure");
        return;
    }
    expect(real.result == plain.result, "the value does not change the outcome");
}

// The escaper alone: whole or nothing, and one literal with just the text.
void check_literal(string_view value, std::size_t room) {
    const exact_bytes in(value);
    const exact_bytes out("", room);
    const int size =
        wuic_escape_sql(out.data(), static_cast<std::int32_t>(room), in.data(), in.length(), false);
    const std::size_t needed = escaped_size(value) - std::size_t(std::ranges::count(value, '%'));
    const bool fits = needed < room && value.find('\0') == string_view::npos;
    expect(fits == (size >= 0), "a literal is whole or there is none");
    if (!fits) {
        expect(std::all_of(out.data(), out.data() + room, [](char c) { return c == '\0'; }),
               "no part of a literal is left");
        return;
    }
    expect(std::size_t(size) == needed && out.data()[size] == '\0', "the length is told");
    const auto tokens = sql_tokens_of("'" + std::string(out.data()) + "'", true);
    expect(tokens && tokens->size() == 1 && (*tokens)[0].text == value, "one literal, the value");
}

// How the server answers, in one character.
fake_database settings_of(std::uint8_t how, string_view cell) {
    fake_database settings;
    settings.rows = how & 3;
    settings.refused = (how >> 2) & 3;
    settings.can_be_settled = settings.refused != 3;
    settings.breaks_off = (how & 16) != 0;
    settings.cell = std::string(cell.substr(0, cell.find('\0')));
    settings.other = settings.cell;
    return settings;
}

}  // namespace

// The first character says how the server answers, the rest of its line is what it holds; then
// comes the form.
void fuzz_one(std::string_view data) {
    fuzz_fields fields{data};
    const std::uint8_t how = fields.byte();
    const fake_database settings = settings_of(how, fields.field());
    check_literal(fields.rest, std::min<std::size_t>(fields.rest.size() + how % 16, 600));

    fuzz_request request;
    const exact_bytes form(fields.rest, 1);
    if (cgi_parse_iii(request.input, form.data(), form.length(), 0) != 0) return;
    const search_run real = run_search(&request, settings);

    // The same once more with values that can do no harm.
    fuzz_request other;
    const exact_bytes copy(fields.rest, 1);
    expect(cgi_parse_iii(other.input, copy.data(), copy.length(), 0) == 0, "parsed again");
    for (const filter& row : filters)
        replace_value(other.input, row.name, const_cast<char*>(row.harmless));
    fake_database harmless = settings;
    if (!harmless.cell.empty()) harmless.cell = harmless.other = "c";
    harmless.can_be_settled = true;
    const search_run plain = run_search(&other, harmless);

    const string_view name = value_of(request.input, "class");
    const bool of_monitors = name.substr(0, name.find('\0')) == "amii";
    const std::string skeleton = skeleton_of(real.response);
    // Only a request whose values need no backslashes asks for the setting.
    if (!settings.can_be_settled && real.sent.empty()) return;
    check_runs(real, plain, request.input, of_monitors);
    if (!is_refusal(real)) expect(skeleton == skeleton_of(plain.response), "rows are text");
}

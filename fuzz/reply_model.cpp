// The model of a reply, and what is pulled out of replies without it: the model is the one that a
// plain reading of the document makes, cell by cell; what is pulled out holds no markup of the
// reply's own.
#include <climits>
#include <functional>
#include <optional>
#include <span>
#include <strings.h>

#include "runtime/sfmt.h"

#include "backend/cli_data.h"
#include "backend/cli_extract.h"
#include "backend/sgml_tokenizer.h"

#include "fuzz_peer.h"
#include "markup_rules.h"
#include "tokenizer_rules.h"

namespace {

using plain::event;
using plain::rules;
using std::string;
using std::string_view;

// ---- the model, read a second time

// A text and where in the reply it is put; none for what has no room of its own there.
struct placed {
    string text;
    std::optional<std::size_t> at;
};

// A value without text is whatever stands behind its tag.
struct value {
    placed where;
    bool is_raw;
};

struct table {
    std::size_t start, end;  // of the part of the reply that it was read from
    std::optional<placed> name;
    int columns = 0;
    int rows = 0;
    std::vector<placed> headings, cells;
};

struct model {
    std::optional<value> error;
    std::vector<std::pair<placed, value>> data;
    std::vector<table> tables;
};

bool is_open_tag(const event& e, string_view name) {
    return e.result == sgml_tag && !e.closing && e.name == name;
}

// Whether the current tag stands right below these elements, which stand below `above` others.
bool is_below(const rules& read, std::size_t above, std::initializer_list<string_view> path) {
    return read.open.size() >= above &&
           std::ranges::equal(std::span(read.open).subspan(above), path, {}, &event::name);
}

// What an attribute means, as a C string; none when it is absent or empty.
std::optional<placed> attribute(const rules& read, string_view name) {
    for (const auto& [known, raw] : read.last.attributes) {
        if (!plain::same_in_any_case(known, name)) continue;
        if (!raw || raw->empty()) return {};
        const auto at = static_cast<std::size_t>(raw->data() - read.text.data());
        return placed{plain::compacted(string(*raw)).c_str(), at};
    }
    return {};
}

// The current element's text; leaves the reading at its close tag.
string element_text(rules* read) {
    string text;
    if (read->last.self_closing) return text;
    read->next();
    const std::size_t depth = read->last.depth;
    for (; read->last.result > 0; read->next()) {
        const event& e = read->last;
        if (e.result == sgml_tag && e.closing && e.depth == depth) break;
        if (e.result == sgml_text) text += plain::unescaped(read->text.substr(e.start, e.size));
    }
    return plain::trimmed(text);
}

placed cell(rules* read) {
    const std::size_t content = read->last.start + read->last.size;
    const bool has_room = !read->last.self_closing;
    const string text = element_text(read);
    return {text.c_str(), has_room ? std::optional(content) : std::nullopt};
}

value element_value(rules* read) {
    const std::size_t content = read->last.start + read->last.size;
    const string text = element_text(read);
    return {{text.c_str(), content}, text.empty()};
}

void read_row(rules* read, std::size_t above, table* into) {
    if (is_open_tag(read->last, "r") && is_below(*read, above, {"t"})) ++into->rows;
    if (is_open_tag(read->last, "h") && is_below(*read, above, {"t", "th"})) {
        into->headings.push_back(cell(read));
    } else if (is_open_tag(read->last, "c") && is_below(*read, above, {"t", "r"})) {
        into->cells.push_back(cell(read));
    }
}

// Reads the table whose opening tag is current; leaves the reading at its close tag.
table read_table(rules* read) {
    const std::size_t above = read->open.size();
    const event opening = read->last;
    table made{.start = opening.start, .end = opening.start + opening.size};
    made.name = attribute(*read, "tn");
    if (const auto columns = attribute(*read, "nc")) {
        const long number = std::strtol(columns->text.c_str(), nullptr, 10);
        made.columns = static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
    }
    if (opening.self_closing) return made;
    while (read->next().result > 0) {
        if (read->last.closing && read->last.depth == above + 1) break;
        read_row(read, above, &made);
    }
    made.end = read->last.result > 0 ? read->last.start : read->text.size();
    return made;
}

model plain_reading(string_view reply) {
    model made;
    rules read{string(reply), false};
    while (read.next().result > 0) {
        if (!is_below(read, 0, {"re"})) continue;
        if (is_open_tag(read.last, "data") || is_open_tag(read.last, "cmd")) {
            const placed name = attribute(read, "name").value_or(placed{});
            made.data.emplace_back(name, element_value(&read));
        } else if (is_open_tag(read.last, "ERROR") || is_open_tag(read.last, "error")) {
            made.error = element_value(&read);
        } else if (is_open_tag(read.last, "t")) {
            made.tables.push_back(read_table(&read));
        }
    }
    return made;
}

// ---- comparing

void check_text(const char* got, const placed& wanted, const char* reply) {
    expect(got != nullptr && got == wanted.text, "a text is that of a plain reading");
    expect(!wanted.at || got == reply + *wanted.at, "and stands in its place");
}

void check_value(const char* got, const value& wanted, const exact_bytes& block) {
    const char* const reply = block.data();
    const std::size_t size = block.size;
    if (wanted.is_raw) {
        expect(got == reply + *wanted.where.at, "an empty value is what stands behind its tag");
        expect(std::strlen(got) <= size - *wanted.where.at, "and ends in the reply");
    } else {
        check_text(got, wanted.where, reply);
    }
}

// One row and column more than there are, on each side.
void check_cells(const wuic_cli_table* got, const table& wanted, const char* reply) {
    const int columns = std::clamp(wanted.columns, 0, 40);
    for (int row = -1; row <= wanted.rows; ++row) {
        for (int column = -1; column <= columns; ++column) {
            const char* const text = wuic_cli_table_get_cell(got, row, column);
            const auto at = std::int64_t{row} * wanted.columns + column;
            const bool exists = row >= 0 && row < wanted.rows && column >= 0 &&
                                column < wanted.columns && at < std::ssize(wanted.cells);
            expect((text != nullptr) == exists, "there is a cell in range, and none out of it");
            if (exists) check_text(text, wanted.cells[std::size_t(at)], reply);
        }
    }
}

void check_headings(const wuic_cli_table* got, const table& wanted, const char* reply) {
    for (int column = -1; column <= int(wanted.headings.size()); ++column) {
        const char* const text = wuic_cli_table_get_header(got, column);
        const bool exists =
            column >= 0 && column < std::min<int>(wanted.columns, int(wanted.headings.size()));
        expect((text != nullptr) == exists, "there is a heading in range, and none out of it");
        if (exists) check_text(text, wanted.headings[std::size_t(column)], reply);
    }
    for (const placed& heading : wanted.headings) {
        const int found = wuic_cli_table_get_header_column(got, heading.text.c_str());
        expect(found >= 0 && found < int(wanted.headings.size()) &&
                   strcasecmp(wanted.headings[std::size_t(found)].text.c_str(),
                              heading.text.c_str()) == 0,
               "a heading is found");
    }
}

void check_table(const wuic_cli_table* got, const table& wanted, const char* reply) {
    expect(
        got->text == reply + wanted.start && got->length == std::int32_t(wanted.end - wanted.start),
        "a table tells its part of the reply");
    expect(got->columns == wanted.columns && got->rows == wanted.rows &&
               wsv_length(&got->cells) == std::ssize(wanted.cells) &&
               wsv_length(&got->headings) == std::ssize(wanted.headings),
           "a table has the shape of a plain reading");
    expect((got->name != nullptr) == wanted.name.has_value(), "a table has a name if it has one");
    if (wanted.name) check_text(got->name, *wanted.name, reply);
    check_cells(got, wanted, reply);
    check_headings(got, wanted, reply);
}

// A part of the reply as a table of its own.
void check_lone_table(string_view part) {
    rules read{string(part), false};
    read.next();
    const table wanted = read_table(&read);
    const exact_bytes own(part, 1);
    wuic_cli_table got;
    wuic_cli_table_init(&got);
    const bool whole = wanted.columns >= 0 &&
                       std::int64_t{wanted.columns} * wanted.rows == std::ssize(wanted.cells);
    expect(wuic_cli_table_parse(&got, own.data(), own.length()) == (whole ? 0 : -1),
           "a table that lacks cells is told");
    check_table(&got, wanted, own.data());
    wuic_cli_table_deinit(&got);
}

void check_data(const wuic_cli_data* got, const model& wanted, const exact_bytes& block) {
    const char* const reply = block.data();
    const auto count = static_cast<int>(wanted.data.size());
    expect(wuic_cli_data_get_num_data(got) == count, "as many values as a plain reading has");
    for (int i = 0; i < count; ++i) {
        const placed& name = wanted.data[std::size_t(i)].first;
        check_text(wuic_cli_data_get_name(got, i), name, reply);
        check_value(wuic_cli_data_get_value(got, i), wanted.data[std::size_t(i)].second, block);
        const char* const found = wuic_cli_data_get_named_value(got, name.text.c_str());
        const bool is_one_of_them = std::ranges::any_of(wanted.data, [&](const auto& pair) {
            return strcasecmp(pair.first.text.c_str(), name.text.c_str()) == 0 &&
                   reply + *pair.second.where.at == found;
        });
        expect(is_one_of_them, "a value is found by its name");
    }
    for (const int outside : {-1, count, INT_MAX, INT_MIN}) {
        expect(wuic_cli_data_get_name(got, outside) == nullptr &&
                   wuic_cli_data_get_value(got, outside) == nullptr,
               "there is nothing out of range");
    }
}

void check_tables(const wuic_cli_data* got, const model& wanted, const exact_bytes& reply,
                  string_view raw) {
    const auto count = static_cast<int>(wanted.tables.size());
    expect(wuic_cli_data_get_num_tables(got) == count, "as many tables as a plain reading has");
    for (int i = 0; i < count; ++i) {
        const table& one = wanted.tables[std::size_t(i)];
        check_table(wuic_cli_data_get_table(got, i), one, reply.data());
        check_lone_table(raw.substr(one.start, one.end - one.start));
        if (!one.name) continue;
        const auto first = std::ranges::find_if(wanted.tables, [&](const table& other) {
            return other.name && strcasecmp(other.name->text.c_str(), one.name->text.c_str()) == 0;
        });
        expect(wuic_cli_data_get_named_table(got, one.name->text.c_str()) ==
                   wuic_cli_data_get_table(got, int(first - wanted.tables.begin())),
               "the first table of a name is found by it");
    }
}

void check_model(string_view raw, const model& wanted) {
    const exact_bytes reply(raw, 1);
    scoped_cli_data got;
    expect(wuic_cli_data_parse(got, reply.data(), reply.length()) == 0, "any reply is read");
    expect((got.data.error != nullptr) == wanted.error.has_value(), "an error is told");
    if (wanted.error) check_value(got.data.error, *wanted.error, reply);
    check_data(got, wanted, reply);
    check_tables(got, wanted, reply, raw);
    wuic_cli_data_clear(got);
    expect(wuic_cli_data_get_num_data(got) == 0 && wuic_cli_data_get_num_tables(got) == 0,
           "a cleared model is empty");
}

// ---- what is pulled out

string_view text_of(const wms_strbuf& buf) {
    return {buf.data, static_cast<std::size_t>(buf.length)};
}

// Takes a piece off the front, if it is there.
bool take(string_view* rest, string_view piece) {
    if (!rest->starts_with(piece)) return false;
    rest->remove_prefix(piece.size());
    return true;
}

// Whether the text is items of such pieces, with texts without markup between them.
bool is_list_of(string_view rest, std::initializer_list<string_view> pieces) {
    while (!rest.empty()) {
        for (const string_view piece : pieces) {
            rest.remove_prefix(std::min(rest.find('<'), rest.size()));
            if (!take(&rest, piece)) return false;
        }
    }
    return true;
}

void check_servers(const exact_bytes& reply) {
    scoped_strbuf out;
    iparse_srvgrp_output(out, reply.data(), reply.length());
    expect(is_list_of(text_of(out.buf),
                      {"<row>", "<sname>", "</sname>", "<stype>", "</stype>", "</row>"}),
           "servers are rows of two texts");
}

bool has_table(string_view reply, string_view name) {
    rules read{string(reply), false};
    while (read.next().result > 0) {
        if (!is_open_tag(read.last, "t")) continue;
        for (const auto& [known, raw] : read.last.attributes) {
            if (!plain::same_in_any_case(known, "tn")) continue;
            if (plain::compacted(string(raw.value_or(""))) == name) return true;
            break;
        }
    }
    return false;
}

void check_columns(const exact_bytes& reply, const model& read) {
    sgml_tokenizer t;
    sgml_tokenizer_init(&t, reply.data(), reply.length());
    if (!read.tables.empty() && read.tables.back().name) {
        const string& name = read.tables.back().name->text;
        expect((get_tableData(&t, name.c_str()) == 1) == has_table(reply.view(), name),
               "a table is found if there is one of the name");
    }
    scoped_strbuf out;
    static_cast<void>(get_columnData(&t, "Server Group", "<v>%s</v>", out));
    expect(is_list_of(text_of(out.buf), {"<v>", "</v>"}), "a column is a list of texts");
}

const session_record session = {};

void check_port_speed() {
    char speed[16];
    char duplex[16];
    const bool known =
        get_portspeed(&session, "1/1", speed, sizeof speed, duplex, sizeof duplex) == 0;
    expect(known || (string_view(speed) == "autoerr" && string_view(duplex) == "autoerr"),
           "a port has both values or neither");
    expect(string_view(speed).find('<') == string_view::npos &&
               string_view(duplex).find('<') == string_view::npos,
           "a port's values hold no markup");
}

void check_aliases() {
    const exact_bytes out("", 120);
    const int result = get_aliases(&session, out.data(), 120);
    string_view table(out.data());
    expect(result == 0 && table.size() < 120, "aliases end within their buffer");
    expect(take(&table, R"(<re><t tn="aliases" nc="2"><th><h>alias</h></th>)") &&
               table.ends_with("</t></re>"),
           "aliases are a table");
    table.remove_suffix(9);
    expect(is_list_of(table, {"<r><c>", "</c></r>"}), "with whole rows");
}

void check_profile() {
    scoped_strbuf out;
    expect(get_profile_parm(out, &session, "show", "Login page", "<v>%s</v>", "p") == 0 &&
               is_list_of(text_of(out.buf), {"<v>", "</v>"}),
           "a setting is a list of texts");
}

void check_portal() {
    scoped_strbuf out;
    expect(get_cpprofile_parms(out, &session, "p") == 0, "a portal's settings are read");
    string_view rest = text_of(out.buf);
    while (!rest.empty()) {
        constexpr string_view known = "<srvgrp><lpage><wpage><ulogin><drole><glogin>";
        const string element(rest.substr(1, rest.find('>')));
        expect(known.find('<' + element) != string_view::npos, "they have known names");
        expect(take(&rest, '<' + element), "and are elements");
        rest.remove_prefix(std::min(rest.find('<'), rest.size()));
        expect(take(&rest, "</" + element), "of a text each");
    }
}

void check_relays() {
    sfmt vars;
    sfmt_init(&vars);
    expect(populate_vlan_iphelper(&vars, &session) == 0, "relays are set");
    scoped_strbuf out;
    sfmt_fmt_iii(&vars, out, "<%vlan_iphelper%>", 17);
    sfmt_deinit(&vars);
    string_view table = text_of(out.buf);
    expect(take(&table, "<re><t tn=\"extdhcp\" nc=\"2\">\n<th><h>vlanId</h><h>dhcp</h></th>\n") &&
               table.ends_with("</t></re>"),
           "relays are a table");
    table.remove_suffix(9);
    expect(is_list_of(table, {"<r><c>", "</c><c>", "</c></r>"}), "of vlans and addresses");
}

// One of those that send a command, with the reply coming from the helper.
void check_command(string_view reply, std::size_t draw) {
    static helper_peer helper;
    void (*const runs[])() = {check_port_speed, check_aliases, check_profile, check_portal,
                              check_relays};
    helper.serve({.bytes = wire_word(0) + wire_field(reply) + wire_word(0)},
                 runs[draw % std::size(runs)]);
}

}  // namespace

void fuzz_one(string_view data) {
    const model read = plain_reading(data);
    check_model(data, read);
    const exact_bytes reply(data);
    check_servers(reply);
    check_columns(reply, read);
    check_command(data, std::hash<string_view>{}(data));
}

// The model of a reply, and what is pulled out of replies without it: all that is handed out lies
// in the reply and ends there, each thing is found by its name and nothing out of range; how cells
// are read makes no difference to them; and what is pulled out holds no markup of the reply's own.
#include <climits>
#include <functional>
#include <strings.h>

#include "runtime/sfmt.h"

#include "backend/cli_data.h"
#include "backend/cli_extract.h"
#include "backend/sgml_tokenizer.h"

#include "fuzz_peer.h"

namespace {

using std::string;
using std::string_view;

// ---- the model

// An empty text may have no room of its own there.
void check_text(const char* text, const exact_bytes& reply) {
    if (*text == '\0') return;
    const char* const end = reply.data() + reply.size;
    expect(text >= reply.data() && text <= end, "a text lies in the reply");
    expect(text + std::strlen(text) <= end, "and ends in it");
}

bool is_same(const char* a, const char* b) {
    return a != nullptr && b != nullptr && ::strcasecmp(a, b) == 0;
}

// One row and column more than there are, on each side.
void check_cells(const wuic_cli_table* table, const exact_bytes& reply) {
    const int columns = std::clamp(table->columns, 0, 40);
    for (int row = -1; row <= table->rows; ++row) {
        for (int column = -1; column <= columns; ++column) {
            const char* const text = wuic_cli_table_get_cell(table, row, column);
            const auto at = std::int64_t{row} * table->columns + column;
            const bool exists = row >= 0 && row < table->rows && column >= 0 &&
                                column < table->columns && at < wsv_length(&table->cells);
            expect((text != nullptr) == exists, "there is a cell in range, and none out of it");
            if (exists) check_text(text, reply);
        }
    }
}

void check_headings(const wuic_cli_table* table, const exact_bytes& reply) {
    for (const int outside : {-1, wsv_length(&table->headings), table->columns, INT_MAX, INT_MIN})
        expect(wuic_cli_table_get_header(table, outside) == nullptr, "no heading is out of range");
    const int count = std::min(wsv_length(&table->headings), table->columns);
    for (int column = 0; column < count; ++column) {
        const char* const text = wuic_cli_table_get_header(table, column);
        check_text(text, reply);
        const int found = wuic_cli_table_get_header_column(table, text);
        expect(found >= 0 && found < wsv_length(&table->headings) &&
                   (found >= count || is_same(wuic_cli_table_get_header(table, found), text)),
               "a heading is found");
    }
}

void check_table(const wuic_cli_table* table, const exact_bytes& reply) {
    const auto start = static_cast<std::size_t>(table->text - reply.data());
    expect(table->length > 0 && start + std::size_t(table->length) <= reply.size &&
               reply.data()[start] == '<',
           "a table tells its part of the reply");
    if (table->name != nullptr) check_text(table->name, reply);
    check_cells(table, reply);
    check_headings(table, reply);
}

void check_data(const wuic_cli_data* model, const exact_bytes& reply) {
    const int count = wuic_cli_data_get_num_data(model);
    if (model->error != nullptr) check_text(model->error, reply);
    for (int i = 0; i < count; ++i) {
        const char* const name = wuic_cli_data_get_name(model, i);
        const char* const value = wuic_cli_data_get_value(model, i);
        check_text(name, reply);
        check_text(value, reply);
        const char* const found = wuic_cli_data_get_named_value(model, name);
        int other = 0;
        while (other < count && (wuic_cli_data_get_value(model, other) != found ||
                                 !is_same(wuic_cli_data_get_name(model, other), name)))
            ++other;
        expect(other < count, "a value is found by its name");
    }
    for (const int outside : {-1, count, INT_MAX, INT_MIN}) {
        expect(wuic_cli_data_get_name(model, outside) == nullptr &&
                   wuic_cli_data_get_value(model, outside) == nullptr,
               "there is nothing out of range");
    }
}

// A part of the reply as a table of its own.
void check_lone_table(const wuic_cli_table* of_reply, string_view part) {
    const exact_bytes own(part, 1);
    wuic_cli_table lone;
    wuic_cli_table_init(&lone);
    const int result = wuic_cli_table_parse(&lone, own.data(), own.length());
    expect(lone.columns == of_reply->columns && lone.rows == of_reply->rows &&
               wsv_length(&lone.cells) == wsv_length(&of_reply->cells),
           "a table alone is as it is in its reply");
    const bool whole =
        lone.columns >= 0 && std::int64_t{lone.columns} * lone.rows == wsv_length(&lone.cells);
    expect(result == (whole ? 0 : -1), "a table that lacks cells is told");
    check_table(&lone, own);
    wuic_cli_table_deinit(&lone);
}

void check_tables(const wuic_cli_data* model, const exact_bytes& reply, string_view raw) {
    const int count = wuic_cli_data_get_num_tables(model);
    for (int i = 0; i < count; ++i) {
        const wuic_cli_table* const table = wuic_cli_data_get_table(model, i);
        check_table(table, reply);
        check_lone_table(
            table, raw.substr(std::size_t(table->text - reply.data()), std::size_t(table->length)));
        if (table->name == nullptr) continue;
        int first = 0;
        while (!is_same(wuic_cli_data_get_table(model, first)->name, table->name))
            ++first;
        expect(wuic_cli_data_get_named_table(model, table->name) ==
                   wuic_cli_data_get_table(model, first),
               "the first table of a name is found by it");
    }
    expect(wuic_cli_data_get_table(model, count) == nullptr, "and none behind the last");
}

string shown_cells(const wuic_cli_data* model) {
    string out;
    for (int i = 0; i < wuic_cli_data_get_num_tables(model); ++i) {
        const wuic_cli_table* const table = wuic_cli_data_get_table(model, i);
        out += "\ntable " + std::to_string(table->rows);
        for (int cell = 0; cell < wsv_length(&table->cells); ++cell)
            out += string("|") + *static_cast<char**>(wsv_nth(&table->cells, cell));
    }
    return out;
}

// Rows of plain cells are read in one go; a comment before each cell prevents it, and changes
// nothing where a "<" can only begin a tag.
void check_without_haste(string_view raw, const string& cells) {
    if (raw.find_first_of("\"'\\!?") != string_view::npos) return;
    bool in_tag = false;
    string slow;
    for (std::size_t at = 0; at < raw.size(); ++at) {
        if (raw[at] == '<' && in_tag) return;
        if (raw[at] == '<' || raw[at] == '>') in_tag = raw[at] == '<';
        if (raw.substr(at).starts_with("<c>")) slow += "<!-- -->";
        slow += raw[at];
    }
    const exact_bytes reply(slow, 1);
    scoped_cli_data model;
    expect(!in_tag ? wuic_cli_data_parse(model, reply.data(), reply.length()) == 0 : true,
           "any reply is read");
    if (!in_tag) expect(shown_cells(&model.data) == cells, "both ways of reading find the same");
}

void check_model(string_view raw) {
    const exact_bytes reply(raw, 1);
    scoped_cli_data model;
    expect(wuic_cli_data_parse(model, reply.data(), reply.length()) == 0, "any reply is read");
    check_data(&model.data, reply);
    check_tables(&model.data, reply, raw);
    check_without_haste(raw, shown_cells(&model.data));
    wuic_cli_data_clear(model);
    expect(wuic_cli_data_get_num_data(model) == 0 && wuic_cli_data_get_num_tables(model) == 0,
           "a cleared model is empty");
}

// ---- what is pulled out

// Whether the text has these tags only, each as often as the first one, and what is between them
// is text.
bool is_made_of(const string& text, std::initializer_list<string_view> pieces) {
    string_view rest = text;
    while (rest.find('<') != string_view::npos) {
        for (const string_view piece : pieces) {
            rest.remove_prefix(std::min(rest.find('<'), rest.size()));
            if (!rest.starts_with(piece)) return false;
            rest.remove_prefix(piece.size());
        }
    }
    return true;
}

string text_of(const wms_strbuf& buf) {
    return {buf.data != nullptr ? buf.data : "", static_cast<std::size_t>(buf.length)};
}

// The rows of a table between its head and its end.
string rows_of(const string& text, string_view head) {
    constexpr string_view end = "</t></re>";
    expect(text.starts_with(head) && text.ends_with(end), "a table is whole");
    return text.substr(head.size(), text.size() - head.size() - end.size());
}

void check_columns(const exact_bytes& reply) {
    scoped_strbuf out;
    iparse_srvgrp_output(out, reply.data(), reply.length());
    expect(is_made_of(text_of(out.buf),
                      {"<row>", "<sname>", "</sname>", "<stype>", "</stype>", "</row>"}),
           "servers are rows of two texts");
    sgml_tokenizer t;
    sgml_tokenizer_init(&t, reply.data(), reply.length());
    static_cast<void>(get_tableData(&t, "t"));
    scoped_strbuf column;
    static_cast<void>(get_columnData(&t, "Server Group", "<v>%s</v>", column));
    expect(is_made_of(text_of(column.buf), {"<v>", "</v>"}), "a column is a list of texts");
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
    expect(get_aliases(&session, out.data(), 120) == 0, "aliases fit their buffer");
    const string rows = rows_of(out.data(), R"(<re><t tn="aliases" nc="2"><th><h>alias</h></th>)");
    expect(is_made_of(rows, {"<r><c>", "</c></r>"}), "aliases are rows of a text");
}

void check_profile() {
    scoped_strbuf out;
    expect(get_profile_parm(out, &session, "show", "Login page", "<v>%s</v>", "p") == 0 &&
               is_made_of(text_of(out.buf), {"<v>", "</v>"}),
           "a setting is a list of texts");
}

void check_portal() {
    scoped_strbuf out;
    expect(get_cpprofile_parms(out, &session, "p") == 0, "a portal's settings are read");
    string text = text_of(out.buf);
    for (const string name : {"srvgrp", "lpage", "wpage", "ulogin", "drole", "glogin"}) {
        for (const string& tag : {"<" + name + ">", "</" + name + ">"})
            for (std::size_t at = 0; (at = text.find(tag)) != string::npos;)
                text.erase(at, tag.size());
    }
    expect(text.find('<') == string::npos, "they are elements of known names");
}

void check_relays() {
    sfmt vars;
    sfmt_init(&vars);
    expect(populate_vlan_iphelper(&vars, &session) == 0, "relays are set");
    scoped_strbuf out;
    sfmt_fmt_iii(&vars, out, "<%vlan_iphelper%>", 17);
    sfmt_deinit(&vars);
    const string rows = rows_of(
        text_of(out.buf), "<re><t tn=\"extdhcp\" nc=\"2\">\n<th><h>vlanId</h><h>dhcp</h></th>\n");
    expect(is_made_of(rows, {"<r><c>", "</c><c>", "</c></r>"}), "relays are rows of two texts");
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
    check_model(data);
    check_columns(exact_bytes(data));
    check_command(data, std::hash<string_view>{}(data));
}

#include "backend/cli_extract.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <string_view>

#include "runtime/error_response.h"
#include "runtime/sfmt.h"
#include "runtime/strbuf.h"
#include "runtime/text.h"

#include "backend/cli_reader.h"

namespace {

using std::string_view;

constexpr char running_config[] = "wuic:get-running-config?appid=8214";

string_view view_of(const wms_strbuf& buf) {
    return {buf.data, static_cast<std::size_t>(buf.length)};
}

void append_by_format(wms_strbuf* out, string_view format, string_view text) {
    constexpr string_view placeholder = "%s";
    const std::size_t at = std::min(format.find(placeholder), format.size());
    const string_view head = format.substr(0, at);
    format.remove_prefix(std::min(at + placeholder.size(), format.size()));
    wms_strbuf_append_all(out, {head, text, format});
}

// An empty cell would match every label.
bool label_matches(string_view label, string_view cell) {
    return !cell.empty() && label.starts_with(cell);
}

// ---- rows

// The first two cells of a row. The views are into the buffers.
struct row_cells {
    scoped_strbuf first_buf;
    scoped_strbuf second_buf;
    string_view first;
    string_view second;  // for markup
    int count = 0;
};

void read_cell(sgml_tokenizer* tokenizer, row_cells* row, text_form first_form) {
    ++row->count;
    if (row->count == 1) row->first = cli_reader_text(tokenizer, row->first_buf, first_form);
    if (row->count == 2)
        row->second = cli_reader_text(tokenizer, row->second_buf, text_form::markup);
}

// Reads up to the end of the next row. Returns false when there is none.
bool next_row(sgml_tokenizer* tokenizer, row_cells* row, text_form first_form) {
    bool inside = false;
    while (sgml_tokenizer_next(tokenizer) > 0) {
        if (cli_reader_is_open(tokenizer, "r")) {
            inside = tokenizer->token.self_closing == 0;
            row->first = row->second = {};
            row->count = 0;
            if (!inside) return true;
        } else if (inside && cli_reader_is_close(tokenizer, "r")) {
            return true;
        } else if (inside && cli_reader_is_open(tokenizer, "c")) {
            read_cell(tokenizer, row, first_form);
        }
    }
    return false;
}

struct setting {
    string_view label;
    string_view element;
};

constexpr auto captive_portal_settings = std::to_array<setting>({
    {.label = "Server Group", .element = "srvgrp"},
    {.label = "Login page", .element = "lpage"},
    {.label = "Welcome page", .element = "wpage"},
    {.label = "User Login", .element = "ulogin"},
    {.label = "Default Role", .element = "drole"},
    {.label = "Guest Login", .element = "glogin"},
});

// ---- values in parentheses

// Cuts the next one off the front of `rest`; empty when there is none.
string_view next_in_parentheses(string_view* rest) {
    const std::size_t open = rest->find('(');
    const std::size_t close = rest->find(')', open);
    if (close == string_view::npos) return {};
    const string_view value = rest->substr(open + 1, close - open - 1);
    rest->remove_prefix(close + 1);
    return value;
}

// Returns what follows the heading of the configured values; empty when there is none.
string_view find_configured(sgml_tokenizer* tokenizer, wms_strbuf* buf) {
    constexpr string_view heading = "Configured: Duplex";
    while (sgml_tokenizer_next(tokenizer) > 0) {
        if (!cli_reader_is_open(tokenizer, "data")) continue;
        const string_view text = cli_reader_text(tokenizer, buf, text_form::markup);
        const std::size_t at = text.find(heading);
        if (at != string_view::npos) return text.substr(at + heading.size());
    }
    return {};
}

bool copy_value(string_view value, char* out, std::int32_t size) {
    if (value.empty() || value.size() >= static_cast<std::size_t>(size)) return false;
    out[value.copy(out, value.size())] = '\0';
    return true;
}

// ---- configuration lines

constexpr string_view alias_line = "netdestination ";
constexpr string_view aliases_head = R"(<re><t tn="aliases" nc="2"><th><h>alias</h></th>)";
constexpr string_view relays_head =
    "<re><t tn=\"extdhcp\" nc=\"2\">\n<th><h>vlanId</h><h>dhcp</h></th>\n";
constexpr string_view table_tail = "</t></re>";
constexpr string_view row_head = "<r><c>";
constexpr string_view row_tail = "</c></r>";

constexpr std::size_t config_line_size = 256;  // what matters of a line, with a NUL
constexpr std::size_t address_size = 32;

// Reads on to the next element of configuration lines. Returns false at the end.
bool next_line(sgml_tokenizer* tokenizer, wms_strbuf* buf, string_view* line, text_form form) {
    while (sgml_tokenizer_next(tokenizer) > 0) {
        if (!cli_reader_is_open(tokenizer, "cmd")) continue;
        *line = cli_reader_text(tokenizer, buf, form);
        return true;
    }
    return false;
}

// The VLAN whose lines are being read.
struct vlan_relays {
    int vlan = -1;
    scoped_strbuf addresses;  // escaped
};

void end_vlan(wms_strbuf* rows, vlan_relays* current) {
    const wms_strbuf& addresses = current->addresses.buf;
    if (addresses.length == 0) return;
    const std::string vlan = std::to_string(current->vlan);
    wms_strbuf_append_all(rows, {row_head, vlan, "</c><c>", view_of(addresses), row_tail});
    wms_strbuf_clear(current->addresses);
}

void take_vlan_line(wms_strbuf* rows, vlan_relays* current, string_view text) {
    char line[config_line_size];
    line[text.copy(line, sizeof line - 1)] = '\0';
    int vlan = 0;
    char address[address_size];
    // Nine digits, so that the number cannot overflow.
    if (std::sscanf(line, "interface vlan %9d", &vlan) == 1) {
        end_vlan(rows, current);
        current->vlan = vlan;
    } else if (current->vlan >= 0 && std::sscanf(line, "ip helper-address %31s", address) == 1) {
        char escaped[address_size * 5];
        const string_view blank = current->addresses.buf.length > 0 ? " " : "";
        error_text_escape(escaped, sizeof escaped, address);
        wms_strbuf_append_all(current->addresses, {blank, escaped});
    }
}

// One element may hold several lines, those of an interface indented.
void take_vlan_lines(wms_strbuf* rows, vlan_relays* current, string_view text) {
    while (!text.empty()) {
        const string_view line = text.substr(0, text.find_first_of("\r\n"));
        take_vlan_line(rows, current, trimmed(line));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
    }
}

}  // namespace

int get_portspeed(const session_record* session, const char* port, char* speed,
                  std::int32_t speed_size, char* duplex, std::int32_t duplex_size) {
    cli_reader reader;
    scoped_strbuf text;
    if (cli_reader_execute(&reader, session, "show port status", port) == 0) {
        string_view rest = find_configured(&reader.tokenizer, text);
        const string_view first = next_in_parentheses(&rest);
        const string_view second = next_in_parentheses(&rest);
        if (copy_value(first, duplex, duplex_size) && copy_value(second, speed, speed_size))
            return 0;
    }
    constexpr string_view unknown = "autoerr";
    copy_value(unknown, speed, speed_size);
    copy_value(unknown, duplex, duplex_size);
    return -1;
}

int get_aliases(const session_record* session, char* out, std::int32_t size) {
    if (size <= 0) return -1;
    out[0] = '\0';
    cli_reader reader;
    const int result = cli_reader_execute(&reader, session, running_config, nullptr);
    scoped_strbuf table;
    wms_strbuf_append_all(table, {aliases_head});
    scoped_strbuf text;
    string_view line;
    while (next_line(&reader.tokenizer, text, &line, text_form::markup)) {
        if (!line.starts_with(alias_line)) continue;
        line.remove_prefix(alias_line.size());
        const std::size_t used = view_of(table.buf).size() + row_head.size() + line.size() +
                                 row_tail.size() + table_tail.size();
        if (used >= static_cast<std::size_t>(size)) break;
        wms_strbuf_append_all(table, {row_head, line, row_tail});
    }
    wms_strbuf_append_all(table, {table_tail});
    if (table.buf.length >= size) return -1;
    out[view_of(table.buf).copy(out, view_of(table.buf).size())] = '\0';
    return result;
}

// NOLINTNEXTLINE(readability-identifier-naming): fixed name
int get_tableData(sgml_tokenizer* tokenizer, const char* name) {
    scoped_strbuf found;
    while (sgml_tokenizer_next(tokenizer) > 0) {
        if (!cli_reader_is_open(tokenizer, "t") ||
            !sgml_tokenizer_has_attribute(tokenizer, "tn", 2))
            continue;
        if (st_get_attr(found, tokenizer, "tn", true, true) != 0) return 0;
        if (view_of(found.buf) == name) return 1;
    }
    return 0;
}

int get_profile_parm(wms_strbuf* out, const session_record* session, const char* command,
                     const char* label, const char* format, const char* profile) {
    cli_reader reader;
    if (cli_reader_execute(&reader, session, command, profile) != 0) return -1;
    row_cells row;
    while (next_row(&reader.tokenizer, &row, text_form::raw)) {
        if (row.count > 1 && label_matches(label, row.first))
            append_by_format(out, format, row.second);
    }
    return 0;
}

int get_cpprofile_parms(wms_strbuf* out, const session_record* session, const char* profile) {
    cli_reader reader;
    constexpr char command[] = "show aaa authentication captive-portal";
    if (cli_reader_execute(&reader, session, command, profile) != 0) return -1;
    row_cells row;
    while (next_row(&reader.tokenizer, &row, text_form::raw)) {
        const auto* const found =
            std::ranges::find(captive_portal_settings, row.first, &setting::label);
        if (row.count < 2 || found == captive_portal_settings.end()) continue;
        wms_strbuf_append_all(out,
                              {"<", found->element, ">", row.second, "</", found->element, ">"});
    }
    return 0;
}

// NOLINTNEXTLINE(readability-identifier-naming): fixed name
int get_columnData(sgml_tokenizer* tokenizer, const char* label, const char* format,
                   wms_strbuf* out) {
    if (cli_reader_is_open(tokenizer, "t") && tokenizer->token.self_closing != 0) return -1;
    scoped_strbuf buf;
    bool had_heading = false;
    bool in_heading = false;
    int column = -1;
    int cell = 0;
    while (sgml_tokenizer_next(tokenizer) > 0 && !cli_reader_is_close(tokenizer, "t")) {
        const bool heading_row = cli_reader_is_open(tokenizer, "th");
        if (heading_row || cli_reader_is_open(tokenizer, "r")) {
            in_heading = heading_row || !had_heading;
            had_heading = true;
            cell = 0;
        }
        if (!cli_reader_is_open(tokenizer, "h") && !cli_reader_is_open(tokenizer, "c")) continue;
        const string_view text =
            cli_reader_text(tokenizer, buf, in_heading ? text_form::raw : text_form::markup);
        if (in_heading && column < 0 && label_matches(label, text)) {
            column = cell;
        } else if (!in_heading && cell == column) {
            append_by_format(out, format, text);
        }
        ++cell;
    }
    return column < 0 ? -1 : 0;
}

void iparse_srvgrp_output(wms_strbuf* out, const char* reply, std::int32_t length) {
    sgml_tokenizer tokenizer;
    sgml_tokenizer_init(&tokenizer, reply, length);
    row_cells row;
    while (next_row(&tokenizer, &row, text_form::markup)) {
        wms_strbuf_append_all(
            out, {"<row><sname>", row.first, "</sname><stype>", row.second, "</stype></row>"});
    }
}

int populate_vlan_iphelper(sfmt* vars, const session_record* session) {
    cli_reader reader;
    static_cast<void>(cli_reader_execute(&reader, session, running_config, nullptr));
    scoped_strbuf text;
    scoped_strbuf rows;
    vlan_relays current;
    string_view lines;
    while (next_line(&reader.tokenizer, text, &lines, text_form::raw))
        take_vlan_lines(rows, &current, lines);
    end_vlan(rows, &current);
    scoped_strbuf table;
    wms_strbuf_append_all(table, {relays_head, view_of(rows.buf), table_tail});
    if (table.buf.length == 0) return -1;
    return sfmt_add(vars, "vlan_iphelper", 0, table.buf.data, table.buf.length);
}

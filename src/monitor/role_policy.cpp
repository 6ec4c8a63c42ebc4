#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "runtime/error_response.h"
#include "runtime/sgml_text.h"
#include "runtime/strbuf.h"
#include "runtime/text.h"

#include "backend/command_run.h"
#include "backend/markup.h"
#include "backend/sgml_tokenizer.h"

#include "monitor/monitor_handlers.h"

namespace {

constexpr std::int32_t name_size = 128;  // of a row's name in a command, with its NUL
constexpr std::size_t names_max = 4096;  // rows of a reply that are looked up
constexpr std::size_t line_size = 192;

struct policy_command {
    const char* command;
    const char* each;  // what looks up a row of the reply, by its name; null for none
};

constexpr auto policy_commands = std::to_array<policy_command>({
    {.command = "show rights", .each = "show rights"},
    {.command = "show ip access-list brief ipv4", .each = "show ip access-list"},
    {.command = "show netservice", .each = nullptr},
    {.command = "show dpi application all", .each = nullptr},
    {.command = "show dpi application category all", .each = nullptr},
    {.command = "show aaa bandwidth-contracts", .each = nullptr},
    {.command = "show ip access-list brief ipv6", .each = nullptr},
});

// Inside the command's single quotes, an apostrophe or the end of the line would end the name.
bool is_quotable(std::string_view name) {
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\'' || byte < 0x20 || byte == 0x7F) return false;
    }
    return true;
}

// The plain text of a name; empty for one that must not be put into a command.
std::string plain_name(std::string_view text, bool is_cdata) {
    char name[name_size];
    const auto length = static_cast<std::int32_t>(text.size());
    int written = -1;
    if (!is_cdata) {
        written = sgml_tokenizer_unescape(name, sizeof name, text.data(), length);
    } else if (length < name_size) {
        written = static_cast<int>(text.copy(name, sizeof name));
    }
    if (written <= 0) return {};
    const std::string_view plain(name, static_cast<std::size_t>(written));
    return std::string(is_quotable(plain) ? plain : "");
}

void append_result(wms_strbuf* out, std::string_view label, const command_outcome& result) {
    wms_strbuf_append_all(out, {"<result cmd=\""});
    markup_append(out, label);
    wms_strbuf_append_all(out, {"\">", command_reply(result), "</result>"});
}

void look_up(wms_strbuf* out, const session_record* session, const char* each,
             const std::string& name) {
    if (name.empty()) return;
    char line[line_size];
    std::snprintf(line, sizeof line, "%s '%s'", each, name.c_str());
    const command_outcome result = command_run(session, line);
    std::snprintf(line, sizeof line, "%s %s", each, name.c_str());
    append_result(out, line, result);
}

// The first text that is more than white space names its row.
struct row_reader {
    bool in_row = false;
    bool named = false;
    std::string name;
};

void read_token(row_reader* row, const sgml_tokenizer& tokenizer) {
    if (sgml_tokenizer_is_tag(&tokenizer.token, "r", false)) {
        *row = {.in_row = true, .named = false, .name = {}};
        return;
    }
    if (!row->in_row || row->named || !sgml_tokenizer_is_text(&tokenizer.token)) return;
    const std::string_view text = trimmed(
        {tokenizer.text + tokenizer.token.start, static_cast<std::size_t>(tokenizer.token.size)});
    if (text.empty()) return;
    row->named = true;
    row->name = plain_name(text, cdata_is_current(&tokenizer));
}

void look_up_rows(wms_strbuf* out, const session_record* session, const char* each,
                  std::string_view reply) {
    sgml_tokenizer tokenizer;
    sgml_tokenizer_init(&tokenizer, reply.data(), static_cast<std::int32_t>(reply.size()));
    row_reader row;
    std::size_t count = 0;
    while (sgml_tokenizer_next(&tokenizer) > 0 && count < names_max) {
        read_token(&row, tokenizer);
        if (!row.in_row || !sgml_tokenizer_is_tag(&tokenizer.token, "r", true)) continue;
        look_up(out, session, each, row.name);
        row = {};
        ++count;
    }
}

}  // namespace

int wuic_get_role_policy_raw(const char* /*key*/, wms_strbuf* response, session_record* session,
                             pg_conn* /*db*/, cgi* /*input*/) {
    wms_strbuf_fmt(response, "%s<rawdata>\n", xml_header);
    for (const policy_command& row : policy_commands) {
        const command_outcome result = command_run(session, row.command);
        append_result(response, row.command, result);
        if (row.each != nullptr) look_up_rows(response, session, row.each, command_reply(result));
    }
    wms_strbuf_fmt(response, "</rawdata>");
    return 0;
}

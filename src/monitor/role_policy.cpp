#include <array>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "runtime/error_response.h"
#include "runtime/log.h"
#include "runtime/sgml_text.h"
#include "runtime/strbuf.h"
#include "runtime/text.h"

#include "backend/command_batch.h"
#include "backend/markup.h"
#include "backend/sgml_tokenizer.h"

#include "monitor/monitor_handlers.h"

namespace {

constexpr std::int32_t name_size = 128;  // of a row's name in a command, with its NUL
constexpr std::size_t names_max = 4096;  // rows of a reply that are looked up

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

// One result of the document. Those of rows have a name, and the command of the row's list.
struct policy_lookup {
    const char* command;
    std::string name;
    const char* each;

    std::string sent() const { return name.empty() ? command : command + (" '" + name + "'"); }
    std::string label() const { return name.empty() ? command : command + (" " + name); }
};

using policy_lookups = std::vector<policy_lookup>;

// What looks up the rows of a reply. Returns whether the reply had more rows than are looked up.
bool find_rows(policy_lookups* out, const char* each, std::string_view reply) {
    sgml_tokenizer tokenizer;
    sgml_tokenizer_init(&tokenizer, reply.data(), static_cast<std::int32_t>(reply.size()));
    row_reader row;
    std::size_t count = 0;
    while (sgml_tokenizer_next(&tokenizer) > 0) {
        read_token(&row, tokenizer);
        if (!row.in_row || !sgml_tokenizer_is_tag(&tokenizer.token, "r", true)) continue;
        if (count++ == names_max) return true;
        if (!row.name.empty()) {
            out->push_back({.command = each, .name = std::move(row.name), .each = nullptr});
        }
        row = {};
    }
    return false;
}

// The document's results in their order, of which the commands go out ahead of what is written.
struct policy_document {
    policy_lookups lookups;
    std::size_t sent = 0;
    std::size_t written = 0;
    command_batch commands;

    explicit policy_document(const session_record* session) : commands(session) {
        for (const policy_command& row : policy_commands)
            lookups.push_back({.command = row.command, .name = {}, .each = row.each});
    }
};

// What stands behind a list whose rows are looked up is not known before its reply.
bool may_send(const policy_document& document) {
    if (document.sent == document.lookups.size()) return false;
    if (!command_batch_has_room(document.commands)) return false;
    const bool is_first = document.sent == document.written;
    return is_first || document.lookups[document.sent - 1].each == nullptr;
}

void add_rows(policy_document* document, const policy_lookup& list, std::string_view reply) {
    policy_lookups rows;
    if (find_rows(&rows, list.each, reply)) {
        wuic_log(log_error, "%s: more than %zu rows, the rest is left out", list.command,
                 names_max);
    }
    const auto behind = document->lookups.begin() + static_cast<std::ptrdiff_t>(document->written);
    document->lookups.insert(behind, std::make_move_iterator(rows.begin()),
                             std::make_move_iterator(rows.end()));
}

void write_next(wms_strbuf* out, policy_document* document) {
    for (; may_send(*document); ++document->sent)
        command_batch_add(&document->commands, document->lookups[document->sent].sent());
    const command_outcome result = command_batch_take(&document->commands);
    const policy_lookup lookup = std::move(document->lookups[document->written++]);
    append_result(out, lookup.label(), result);
    if (lookup.each != nullptr) add_rows(document, lookup, command_reply(result));
}

}  // namespace

int wuic_get_role_policy_raw(const char* /*key*/, wms_strbuf* response, session_record* session,
                             pg_conn* /*db*/, cgi* /*input*/) {
    wms_strbuf_fmt(response, "%s<rawdata>\n", xml_header);
    policy_document document(session);
    while (document.written < document.lookups.size())
        write_next(response, &document);
    wms_strbuf_fmt(response, "</rawdata>");
    return 0;
}

#include "backend/command_endpoints.h"

#include <array>
#include <cstring>
#include <string_view>

#include "runtime/cgi.h"
#include "runtime/error_response.h"
#include "runtime/session_record.h"
#include "runtime/strbuf.h"
#include "runtime/url.h"

#include "backend/cli_helper.h"

namespace {

struct reference {
    std::string_view name;
    std::string_view becomes;
};

constexpr std::string_view ampersand = "&amp;";

// "&pound;" is the number sign on purpose: the keyboard's pound key.
constexpr auto references = std::to_array<reference>({
    {.name = "&plus;", .becomes = "+"},
    {.name = "&quot;", .becomes = "\\\""},
    {.name = "&gt;", .becomes = ">"},
    {.name = "&lt;", .becomes = "<"},
    {.name = ampersand, .becomes = "&"},
    {.name = "&apos;", .becomes = "'"},
    {.name = "&pct;", .becomes = "%"},
    {.name = "&pound;", .becomes = "#"},
});

// The reference that `text` begins with, or null.
const reference* reference_at(std::string_view text) {
    for (const reference& row : references) {
        if (text.starts_with(row.name)) return &row;
    }
    return nullptr;
}

// What a wrapped message may grow to when every byte is escaped.
constexpr std::size_t escaped_message_size = std::size_t{cli_message_size} * 6;

bool is_error_document(const char* msg) {
    return std::strstr(msg, "<ERROR>") != nullptr || std::strstr(msg, "<error>") != nullptr;
}

}  // namespace

// Why one pass is enough. Two references never overlap (each has its only "&" in front and its only
// ";" at its end), so the order in which they are replaced does not change the outcome. What a
// replacement leaves is no letter and no ";", so it cannot complete a reference; only a decoded "&"
// can begin one, and then the rest of it stands untouched to its right. So a decoded "&" is put in
// front of that rest and looked at again; everything else is final.
void command_unencode(char* text, std::int32_t size) {
    if (size <= 0) return;
    const std::size_t length = strnlen(text, static_cast<std::size_t>(size));
    std::size_t in = 0;
    std::size_t out = 0;
    while (in < length) {
        const std::string_view rest(text + in, length - in);
        const reference* const found = rest.front() == '&' ? reference_at(rest) : nullptr;
        if (found == nullptr) {
            text[out++] = text[in++];
        } else if (found->name == ampersand) {
            in += ampersand.size() - 1;
            text[in] = '&';
        } else {
            std::memcpy(text + out, found->becomes.data(), found->becomes.size());
            out += found->becomes.size();
            in += found->name.size();
        }
    }
    if (out < length) text[out] = '\0';
}

char* command_from_query(cgi* input, wms_strbuf* response) {
    char* const query = cgi_query_string(input);
    if (query == nullptr || query[0] == '\0') {
        wuic_generic_error(response, "Invalid arguments");
        return nullptr;
    }
    const auto length = static_cast<std::int32_t>(std::strlen(query));
    const int decoded = cgi_unescape_url(query, length, query, length);
    if (decoded >= 0 && decoded < length) query[decoded] = '\0';
    return query;
}

void command_cut_context(char* command) {
    const std::size_t at = std::string_view(command).rfind("@@");
    if (at != std::string_view::npos) command[at] = '\0';
}

int command_append_reply(wms_strbuf* response, const char* reply, std::int32_t reply_len,
                         const char* msg) {
    if (reply != nullptr && msg[0] == '\0') return wms_strbuf_append(response, reply, reply_len);
    if (is_error_document(msg)) {
        return wms_strbuf_append(response, msg, static_cast<std::int32_t>(std::strlen(msg)));
    }
    char escaped[escaped_message_size];
    return wms_strbuf_fmt(response, "<re><ERROR>%s</ERROR></re>",
                          error_text_escape(escaped, sizeof escaped, msg));
}

int command_execute(wms_strbuf* response, const session_record* session, const char* command) {
    char* output = nullptr;
    std::int32_t length = 0;
    char msg[cli_message_size];
    // A failed exchange says so in the message, so its result adds nothing.
    static_cast<void>(wuic_cli_execute(session->user, session->ip, session->sid, command, &output,
                                       &length, msg, sizeof msg));
    const malloc_text reply(output);
    if (!reply && msg[0] == '\0') return 0;
    return command_append_reply(response, reply.get(), length, msg);
}

// NOLINTNEXTLINE(readability-identifier-naming): fixed name
int execCommandWithContext(const char* /*key*/, wms_strbuf* response, session_record* session,
                           pg_conn* /*db*/, cgi* input) {
    char* const command = command_from_query(input, response);
    if (command == nullptr) return -1;
    command_cut_context(command);
    command_unencode(command, static_cast<std::int32_t>(std::strlen(command)));
    wms_strbuf_append(response, xml_header, sizeof xml_header - 1);
    if (command_execute(response, session, command) == 0) return 0;
    wms_strbuf_clear(response);  // out of memory: half a document helps nobody
    return -1;
}

#include "backend/query_endpoints.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <span>
#include <string>
#include <string_view>

#include "runtime/cgi.h"
#include "runtime/error_response.h"
#include "runtime/log.h"
#include "runtime/redaction.h"
#include "runtime/strbuf.h"
#include "runtime/url.h"

#include "backend/command.h"
#include "backend/command_text.h"

namespace {

using std::string_view;

// Every parameter that an internal request may have, in lower case: the command service reads them
// all alike, whichever request they stand in.
constexpr auto parameter_names = std::to_array<string_view>({
    "addipv6vlan1", "admin",     "appid",       "build_type", "caname",    "cc",
    "cert_buf",     "cmds",      "config_path", "configpath", "covert_op", "data",
    "delipv6vlan1", "dfltvap",   "dgw",         "dgwipv6",    "dstip",     "dstport",
    "enable",       "f",         "file",        "file_name",  "hostname",  "json",
    "mode",         "msg",       "msgtype",     "objname",    "odgw",      "odgwipv6",
    "operation",    "partition", "passwd",      "query",      "rb",        "role",
    "sc",           "serial",    "srcip",       "srcport",    "timezone",  "type",
    "uid",          "user",      "vap",         "wm",
});
static_assert(std::ranges::is_sorted(parameter_names));

constexpr int telm_message_type = 1;
constexpr std::size_t telm_request_size = 128;

void append_header(wms_strbuf* response) {
    wms_strbuf_append(response, xml_header, sizeof xml_header - 1);
}

// The form field's value, writable; null when there is none.
char* field_text(const cgi* input, const char* name) {
    const cgi_pair* const field = cgi_named_pair(input, name);
    return field != nullptr ? field->value : nullptr;
}

// The argument of a request: one line, decoded in place once more than its form field was.
void decode_argument(char* text) {
    command_url_decode(text);
    command_unencode(text);
    command_cut_line(text);
}

// Whether this piece is "name=..." with the name of a parameter, as a reader may see it that
// decodes names, takes both cases and skips what is not printable.
bool is_parameter(string_view piece) {
    const std::size_t end = piece.find('=');
    if (end == string_view::npos) return false;
    std::string name(piece.substr(0, end));
    const auto length = static_cast<std::int32_t>(name.size());
    const int decoded = cgi_unescape_url(name.data(), length, name.data(), length);
    if (decoded >= 0) name.resize(static_cast<std::size_t>(decoded));
    std::erase_if(name, [](char c) { return c <= ' ' || c >= 0x7F; });
    std::ranges::transform(name, name.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return std::ranges::binary_search(parameter_names, string_view{name});
}

// Whether a piece behind an "&" would give the request one more parameter.
bool adds_parameter(string_view argument) {
    for (std::size_t at = argument.find('&'); at != string_view::npos; at = argument.find('&')) {
        argument.remove_prefix(at + 1);
        if (is_parameter(argument.substr(0, argument.find('&')))) return true;
    }
    return false;
}

bool holds_ampersand(string_view argument) {
    return argument.find('&') != string_view::npos;
}

int append_success(wms_strbuf* response, const command_outcome& outcome) {
    if (outcome.failed || !outcome.reply) return 0;
    return command_finish(response,
                          wms_strbuf_append(response, outcome.reply.get(), outcome.reply_len));
}

}  // namespace

// NOLINTBEGIN(readability-identifier-naming): fixed names

int execUiQuery(const char* /*key*/, wms_strbuf* response, session_record* session, pg_conn* /*db*/,
                cgi* input) {
    append_header(response);
    char* const query = field_text(input, "query");
    if (query != nullptr) decode_argument(query);
    if (query == nullptr || query[0] == '\0') {
        return wms_strbuf_fmt(response, "<re><error>[%s:%d] qcontent is NULL</error></re>",
                              __func__, __LINE__);
    }
    if (holds_ampersand(query)) return command_invalid(response);
    scoped_strbuf request;
    wms_strbuf_fmt(request, "wuic:exec-query?query=%s", query);
    if (request.buf.data == nullptr) return command_finish(response, -1);
    const command_outcome outcome = command_run(session, request.buf.data);
    if (outcome.reply && !outcome.failed) {
        wuic_log(log_debug, "<%s:%d>XML from backend: %s <%d>\n", __func__, __LINE__,
                 outcome.reply.get(), outcome.reply_len);
    }
    return append_success(response, outcome);
}

int execDTLSTELMQuery(const char* /*key*/, wms_strbuf* response, session_record* session,
                      pg_conn* /*db*/, cgi* input) {
    for (const cgi_pair& field :
         std::span(input->pairs.entries, static_cast<std::size_t>(input->pairs.count))) {
        wuic_log(log_debug, "<%s:%d> Query: %s \n", __func__, __LINE__,
                 redact_field(field.name, field.value).text);
    }
    char* const source = field_text(input, "srcIP");
    if (cgi_named_pair(input, "msgType") == nullptr) return 0;
    if (source == nullptr || source[0] == '\0') return 0;
    append_header(response);
    decode_argument(source);
    if (holds_ampersand(source)) return command_invalid(response);
    char request[telm_request_size];
    std::snprintf(request, sizeof request, "wuic:telm?msgType=%d&srcIP=%s", telm_message_type,
                  source);
    return append_success(response, command_run(session, request));
}

int getRunningConfigForApplication(const char* /*key*/, wms_strbuf* response,
                                   session_record* session, pg_conn* /*db*/, cgi* input) {
    char* const application = command_from_query(input, response);
    if (application == nullptr || !command_end(response, application)) return -1;
    if (adds_parameter(application)) return command_invalid(response);
    scoped_strbuf request;
    wms_strbuf_fmt(request, "wuic:get-running-config?appid=%s", application);
    if (request.buf.data == nullptr) return -1;
    const command_outcome outcome = command_run(session, request.buf.data);
    if (outcome.failed) {
        char reason[cli_message_size];
        wuic_generic_error(response, "%s", error_text_escape(reason, sizeof reason, outcome.msg));
        return 0;
    }
    wms_strbuf_clear(response);
    append_header(response);
    return append_success(response, outcome);
}

int saveConfiguration(const char* /*key*/, wms_strbuf* response, session_record* session,
                      pg_conn* /*db*/, cgi* /*input*/) {
    const command_outcome outcome = command_run(session, "wuic:write memory");
    wms_strbuf_clear(response);
    return wms_strbuf_fmt(
        response, "%s<re>%s</re>", xml_header,
        outcome.failed ? "<ERROR>Error Saving Configuration</ERROR>" : "<SUCCESS></SUCCESS>");
}

// NOLINTEND(readability-identifier-naming)

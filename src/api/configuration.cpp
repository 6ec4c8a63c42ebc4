#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "platform/ownership.h"

#include "runtime/body_input.h"
#include "runtime/cgi.h"
#include "runtime/log.h"
#include "runtime/redaction.h"
#include "runtime/strbuf.h"
#include "runtime/text.h"

#include "backend/command.h"
#include "backend/command_text.h"
#include "backend/permission.h"
#include "backend/refusals.h"

#include "api/api_handlers.h"
#include "api/request_line.h"

namespace {

constexpr std::string_view json_header = "Content-Type: application/json\r\nExpires: 0\r\n\r\n";
constexpr std::string_view not_supported = R"({"Error": "Method not supported"})";
constexpr std::string_view invalid_url = R"({"Error": "Invalid URL string"})";

constexpr char log_source[] = "exec_configuration";

constexpr char upload_field[] = "covert_op=fileUpload";
constexpr std::uint32_t upload_mask = 0x1;

struct operation_row {
    std::string_view method;
    std::string_view path;
    const char* operation;
    const char* log_line;
};

constexpr auto operations = std::to_array<operation_row>({
    {.method = "GET",
     .path = "/v1/configuration/container",
     .operation = "get_api",
     .log_line = "Invoking GET container"},
    {.method = "GET",
     .path = "/v1/configuration/object",
     .operation = "get_api",
     .log_line = "Invoking GET object"},
    {.method = "GET",
     .path = "/v1/configuration/showcommand",
     .operation = "json",
     .log_line = "Invoking GET show command"},
    {.method = "POST",
     .path = "/v1/configuration/container",
     .operation = "operation=set",
     .log_line = "Invoking POST container"},
    {.method = "POST",
     .path = "/v1/configuration/object",
     .operation = "operation=set",
     .log_line = "Invoking POST object"},
});

struct payload_text {
    const char* text;  // decoded; null when there is none
    bool whole;        // all that the client sent
};

const char* variable_or_empty(const cgi* input, const char* name) {
    const char* const value = cgi_get_var(input, name);
    return value != nullptr ? value : "";
}

// What debug lines show of a request costs something to make, and few ask for it.
bool is_debugged() {
    return wuic_log_get_level() >= log_debug;
}

void log_request(const cgi* input) {
    if (!is_debugged()) return;
    wuic_log(log_debug, " %s %d: Config handler initiated for URI %s http_method %s", log_source,
             __LINE__, redact_uri(cgi_get_var(input, "REQUEST_URI")).text,
             text_or_null(cgi_get_var(input, "REQUEST_METHOD")));
    wuic_log(log_debug, "%s %d: HTTP Content type = %s", log_source, __LINE__,
             text_or_null(cgi_get_var(input, "CONTENT_TYPE")));
}

// Decodes the payload's references where it stands.
void decode_payload(char* payload) {
    if (is_debugged()) {
        wuic_log(log_debug, "%s %d: HTTP XML: Actual HTTP Payload length is = %zu payload is %s\n",
                 log_source, __LINE__, std::strlen(payload), redact_fields(payload).text);
    }
    command_unencode(payload, static_cast<std::int32_t>(std::strlen(payload)));
    if (!is_debugged()) return;
    wuic_log(log_debug, "%s %d: HTTP XML:  after escape length is = %zu payload is %s\n",
             log_source, __LINE__, std::strlen(payload), redact_fields(payload).text);
}

// Whether the payload is all that the client sent: a large one is not kept, and a NUL would cut it.
bool is_whole(const cgi* input, std::string_view method, const char* payload) {
    const std::size_t kept = payload != nullptr ? std::strlen(payload) : 0;
    if (method != "POST") return kept > 0 || *variable_or_empty(input, "QUERY_STRING") == '\0';
    return body_content_length(input).value_or(0) <= static_cast<std::int64_t>(kept);
}

payload_text take_payload(const cgi* input, std::string_view method) {
    char* const text = cgi_query_string(input);
    const bool whole = is_whole(input, method, text);
    if (text != nullptr) decode_payload(text);
    return {.text = text, .whole = whole};
}

// Null, and a log line that says why, for a request that is not served.
const operation_row* choose_operation(const cgi* input, std::string_view method) {
    const std::string_view uri = variable_or_empty(input, "REQUEST_URI");
    const auto* const row = std::ranges::find_if(operations, [=](const operation_row& candidate) {
        return candidate.method == method && uri.find(candidate.path) != std::string_view::npos;
    });
    if (row != operations.end()) {
        wuic_log(log_debug, "%s", row->log_line);
        return row;
    }
    if (method == "GET" || method == "POST") {
        wuic_log(log_debug, "%.*s method not supported", static_cast<int>(method.size()),
                 method.data());
    } else {
        wuic_log(log_debug, "BAD Method in REST API request");
    }
    return nullptr;
}

malloc_text build_line(const cgi* input, const operation_row& row, const payload_text& payload) {
    if (!payload.whole) return nullptr;
    const std::size_t length = payload.text != nullptr ? std::strlen(payload.text) : 0;
    return malloc_text{
        parse_uri(variable_or_empty(input, "REQUEST_URI"), row.operation, payload.text, length)};
}

}  // namespace

int exec_configuration(const char* key, wms_strbuf* response, session_record* session,
                       pg_conn* /*db*/, cgi* input) {
    wms_strbuf_append_all(response, {json_header});
    log_request(input);
    const std::string_view method = variable_or_empty(input, "REQUEST_METHOD");
    const payload_text payload = take_payload(input, method);
    const operation_row* const row = choose_operation(input, method);
    if (row == nullptr) {
        wms_strbuf_append_all(response, {not_supported});
        return 0;
    }
    const malloc_text line = build_line(input, *row, payload);
    if (!line) {
        wms_strbuf_append_all(response, {invalid_url});
        return 0;
    }
    if (row->method == "POST" && ::strcasestr(line.get(), upload_field) != nullptr &&
        !wuic_check_perm(session, upload_mask)) {
        refuse_permission(response, key);
        return 0;
    }
    const command_outcome outcome = command_run(session, line.get());
    if (outcome.complete) wms_strbuf_append_all(response, {command_reply(outcome)});
    return 0;
}

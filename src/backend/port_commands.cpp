#include "backend/port_commands.h"

#include <cstring>
#include <string_view>

#include "runtime/error_response.h"
#include "runtime/log.h"
#include "runtime/redaction.h"
#include "runtime/strbuf.h"

#include "backend/command.h"
#include "backend/command_text.h"

namespace {

constexpr std::size_t executions_max = 4096;
constexpr std::size_t escaped_size = std::size_t{cli_message_size} * 5;  // all of it "&amp;"

struct port_kind {
    const char* in_command;
    const char* in_answer;
};

constexpr port_kind fast_ethernet{.in_command = "fastethernet", .in_answer = "FastEthernet"};
constexpr port_kind gigabit_ethernet{.in_command = "gigabitethernet",
                                     .in_answer = "GigabitEthernet"};

struct port_request {
    command_pieces ports;
    command_pieces commands;
};

// Takes the query apart; what stands between ";" and "?" says nothing that is needed.
bool read_request(char* query, port_request* request) {
    char* const ports_end = std::strchr(query, ';');
    char* const commands = ports_end != nullptr ? std::strchr(ports_end, '?') : nullptr;
    if (commands == nullptr) return false;
    *ports_end = '\0';
    return command_split(query, ",", &request->ports) &&
           command_split(commands + 1, ";", &request->commands) &&
           request->ports.count * request->commands.count <= executions_max;
}

int append_failure(wms_strbuf* response, const port_kind& kind, const char* place,
                   const char* message) {
    char port_text[escaped_size];
    char message_text[escaped_size];
    if (wms_strbuf_reserve(response, 2 * escaped_size + 128) != 0) return -1;
    return wms_strbuf_fmt(response, "<error><command> %s %s</command><message>%s</message></error>",
                          kind.in_answer, error_text_escape(port_text, escaped_size, place),
                          error_text_escape(message_text, escaped_size, message));
}

// Anything else is the client's text, which may hold a secret.
bool is_port(std::string_view place) {
    return place.find_first_not_of("0123456789/") == place.npos;
}

int run_on_port(wms_strbuf* response, const session_record* session, const char* port,
                const char* command) {
    const port_kind& kind = port[0] == 'f' ? fast_ethernet : gigabit_ethernet;
    const char* const place = port + 1;
    scoped_strbuf line;
    wms_strbuf_fmt(line, "interface %s %s %s", kind.in_command, place, command);
    if (line.buf.data == nullptr) return -1;
    command_cut_line(line.buf.data);
    const command_outcome outcome = command_run(session, line.buf.data);
    if (!outcome.failed) return 0;
    wuic_log(log_error, "Error executing interface %s %s %s", kind.in_command,
             is_port(place) ? place : redact_fields(place).text, redact_fields(command).text);
    return append_failure(response, kind, place, outcome.msg);
}

int run_all(wms_strbuf* response, const session_record* session, const port_request& request) {
    for (const char* port : request.ports.view()) {
        if (port[1] == '\0') continue;  // a letter alone is no port
        for (const char* command : request.commands.view()) {
            const int result = run_on_port(response, session, port, command);
            if (result != 0) return result;
        }
    }
    return wms_strbuf_append_all(response, {"</result>"});
}

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming): fixed name
int execMultipleCommandsFromWeb(const char* /*key*/, wms_strbuf* response, session_record* session,
                                pg_conn* /*db*/, cgi* input) {
    char* const query = command_from_query(input, response);
    if (query == nullptr) return -1;
    command_unencode(query);
    port_request request;
    if (!read_request(query, &request)) {
        wms_strbuf_fmt(response, "%s<result><error>Input format wrong</error></result>",
                       xml_header);
        return 0;
    }
    wms_strbuf_fmt(response, "%s<result>", xml_header);
    return command_finish(response, run_all(response, session, request));
}

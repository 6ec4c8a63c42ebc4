// Requests of the configuration API, from URI and body to the line that the controller would get:
// it is one line for the operation that was asked for, no field of it begins where the client wants
// one to, and nobody uploads a file without the role for it.
//
// The exchange with the controller is replaced at link time. An input: a byte for method and role,
// a line with the URI, then the body.
#include <array>
#include <cstring>
#include <strings.h>

#include "runtime/error_response.h"
#include "runtime/strbuf.h"

#include "backend/cli_helper.h"
#include "backend/command_text.h"

#include "api/api_handlers.h"

#include "fuzz_server.h"

namespace {

using std::string_view;

std::vector<std::string>& sent_lines() {
    static std::vector<std::string> lines;
    return lines;
}

}  // namespace

// What the linker puts in the place of wuic_cli_execute (fuzz/CMakeLists.txt).
int recorded_execute(const char* user, const char* ip, const char* sid, const char* command,
                     char** out_text, std::int32_t* out_len, char* msg,
                     std::int32_t msg_size) asm("__wrap__Z16wuic_cli_executePKcS0_S0_S0_PPcPiS1_i");

// NOLINTNEXTLINE(readability-function-size): fixed interface
int recorded_execute(const char* user, const char* ip, const char* sid, const char* command,
                     char** out_text, std::int32_t* out_len, char* msg, std::int32_t msg_size) {
    expect(string_view{user} == "the user" && string_view{ip} == "the address" &&
               string_view{sid} == "the id" && msg_size == cli_message_size,
           "a line is run as the session's user");
    sent_lines().emplace_back(command);
    msg[0] = '\0';
    *out_text = ::strdup("{\"a\":1}");
    *out_len = 7;
    return 0;
}

namespace {

constexpr string_view header = "Content-Type: application/json\r\nExpires: 0\r\n\r\n";
constexpr string_view not_supported = "{\"Error\": \"Method not supported\"}";
constexpr string_view invalid_url = "{\"Error\": \"Invalid URL string\"}";

struct api_request {
    std::string method;
    std::string uri;
    std::string payload;
    const char* role;
};

// The operation that method and path name; empty for none.
std::string plain_operation(const api_request& request) {
    for (const std::string kind : {"container", "object", "showcommand"}) {
        if (request.uri.find("/v1/configuration/" + kind) == std::string::npos) continue;
        if (request.method == "GET") return kind == "showcommand" ? "json" : "get_api";
        if (request.method == "POST" && kind != "showcommand") return "operation=set";
    }
    return {};
}

bool may_upload(const api_request& request, const std::string& line) {
    if (request.method != "POST" || ::strcasestr(line.c_str(), "covert_op=fileUpload") == nullptr)
        return true;
    const string_view role = request.role;
    return role == "root" || role == "standard";
}

void check_line(const api_request& request, const std::string& line) {
    const std::string& payload = request.payload;
    expect(line.size() <= payload.size() + 255, "a line stays within its bounds");
    expect(may_upload(request, line), "a file is uploaded in the role for it only");
    const std::string start = plain_operation(request) + "&";
    expect(line.starts_with(start), "a line is for the operation that was asked for");
    const std::size_t end = payload.empty() ? line.size() : line.rfind(payload);
    if (end == std::string::npos) return;  // cut at its bounds
    const std::string own = line.substr(0, end);
    expect(std::ranges::count(own, '&') <= 4, "a line has no field but its own");
    expect(own.find_first_of("\r\n") == std::string::npos, "a line does not end early");
    const bool is_member = request.method == "POST" && own.ends_with("\" : ");
    expect(!is_member || std::ranges::count(own.substr(own.rfind("&data=")), '"') == 2,
           "a member has one name");
}

void check(const api_request& request, const std::string& response) {
    const std::vector<std::string>& sent = sent_lines();
    expect(sent.size() <= 1, "a request is one line");
    const bool is_plain_refusal = response.starts_with(xml_header);
    expect(is_plain_refusal || response.starts_with(header), "an answer begins with its header");
    const string_view body = string_view{response}.substr(is_plain_refusal ? 0 : header.size());
    if (plain_operation(request).empty()) {
        expect(sent.empty() && body == not_supported, "other methods and paths are refused");
    } else if (sent.empty()) {
        const bool is_forbidden = body.find("no permission to execute") != string_view::npos;
        expect(is_plain_refusal ? is_forbidden : body == invalid_url, "a refusal says why");
    } else {
        check_line(request, sent[0]);
        expect(body == "{\"a\":1}", "the answer is passed on");
    }
}

}  // namespace

void fuzz_one(string_view data) {
    constexpr std::array<const char*, 4> roles{"root", "standard", "network-operations", ""};
    constexpr std::array<const char*, 4> methods{"GET", "POST", "POST", "PUT"};
    const fuzz_descriptor_check descriptors;
    fuzz_fields fields{data};
    const unsigned switches = fields.byte();
    api_request sent{.method = methods[switches % 4],
                     .uri = until_nul(fields.field()),
                     .payload = {},
                     .role = roles[switches / 4 % 4]};
    const std::string_view body = fields.rest;
    fuzz_stdin(body);
    const std::string query =
        sent.uri.substr(std::min(sent.uri.find('?'), sent.uri.size() - 1) + 1);
    const fuzz_environment environment{{"REQUEST_METHOD", sent.method},
                                       {"REQUEST_URI", sent.uri},
                                       {"QUERY_STRING", query},
                                       {"CONTENT_LENGTH", std::to_string(body.size())}};
    quiet_request request;
    if (cgi_is_spooled_upload(request.input) || cgi_parse(request.input) != 0) return;
    if (const char* raw = cgi_query_string(request.input)) {
        const exact_text decoded(raw);
        command_unencode(decoded.data());
        sent.payload = decoded.data();
    }
    session_record& session = request.record.session;
    session.found = true;
    std::snprintf(session.user, sizeof session.user, "the user");
    std::snprintf(session.ip, sizeof session.ip, "the address");
    std::snprintf(session.sid, sizeof session.sid, "the id");
    std::snprintf(session.role, sizeof session.role, "%s", sent.role);

    sent_lines().clear();
    scoped_strbuf response;
    exec_configuration("/v1/configuration", response, &session, nullptr, request.input);
    check(sent, response.buf.data);
}

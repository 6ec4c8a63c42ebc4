// Requests of the configuration API, from URI and body to the line that the controller would get:
// it is the line that a plain second writing makes, no field of it begins where the client wants
// one to, and nobody uploads a file without the role for it.
//
// The exchange with the controller is replaced at link time. An input: a byte for method and role,
// a line with the URI, then the body.
#include <array>
#include <cstring>
#include <optional>
#include <strings.h>

#include "runtime/strbuf.h"

#include "backend/cli_helper.h"
#include "backend/command_endpoints.h"

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

bool begins_as(const std::string& name, const std::string& word) {
    return name.size() >= word.size() &&
           ::strncasecmp(name.c_str(), word.c_str(), word.size()) == 0;
}

// The operation that method and path name; empty for none.
std::string plain_operation(const api_request& request) {
    for (const std::string kind : {"container", "object", "showcommand"}) {
        if (request.uri.find("/v1/configuration/" + kind) == std::string::npos) continue;
        if (request.method == "GET") return kind == "showcommand" ? "json" : "get_api";
        if (request.method == "POST" && kind != "showcommand") return "operation=set";
    }
    return {};
}

// A text that stays within its field of the line.
bool is_one_field(string_view text) {
    return text.find_first_of(string_view{"&\r\n\0", 4}) == string_view::npos;
}

struct uri_parts {
    std::string kind, name = "all", path = "/hq/mynode", file;
};

// A field of the URI's query: none that came is none, and of two anyone may be taken.
std::vector<std::string> values_of(string_view query, string_view name) {
    std::vector<std::string> values;
    for (const string_view piece : plain_split(query, '&')) {
        const std::size_t equals = std::min(piece.find('='), piece.size());
        if (until_nul(plain_url_decode(piece.substr(0, equals))) != name) continue;
        values.push_back(plain_url_decode(piece.substr(std::min(equals + 1, piece.size()))));
    }
    return values;
}

// The path is decoded a second time, and the references in it, too.
std::optional<std::string> plain_path(const std::string& value) {
    std::string text = plain_url_decode(value, false);
    if (text.find('\0') != std::string::npos) return {};
    command_unencode(text.data());
    text = text.c_str();
    return is_one_field(text) ? std::optional{text} : std::nullopt;
}

bool plain_read_elements(uri_parts* parts, string_view path) {
    std::vector<std::string> elements;
    for (const string_view element : plain_split(path, '/'))
        if (!element.empty()) elements.emplace_back(element);
    if (elements.size() > 2) parts->kind = elements[2];
    if (elements.size() > 3) parts->name = elements[3];
    if (parts->kind.starts_with("object")) parts->kind = "objname";
    const std::string both = parts->kind + parts->name;
    return is_one_field(both) && both.find_first_of("\"\\") == std::string::npos;
}

using plain_line = std::optional<std::string>;  // none: the request is refused

plain_line plain_read_line(const uri_parts& parts, const std::string& payload) {
    if (payload.empty()) return {};
    const std::string path = payload.starts_with("config_path") ? "" : "config_path=/hq/mynode&";
    return "get_api&" + parts.kind + "=" + parts.name + "&" + path + payload;
}

plain_line plain_changing_line(const uri_parts& parts, const std::string& operation,
                               const std::string& payload) {
    const std::string& name = parts.name;
    const std::string value = payload.empty() ? "{}" : payload;
    const std::string start = operation + "&config_path=" + parts.path;
    if (name == "all" && payload.empty()) return {};
    if (name == "all") return start + "&data=" + (operation == "json" ? "json=1&" : "") + payload;
    if (begins_as(name, "configReplace")) {
        return start + "&covert_op=" + name + "&data={" + value + "}";
    }
    if (begins_as(name, "fileUpload")) {
        return start + "&covert_op=" + name + "&file_name=" + parts.file + "&data={" + value + "}";
    }
    return start + "&data={ \"" + name + "\" : " + value + " }";
}

// All that the request may mean: where a field came twice, anyone of the two may be taken.
std::vector<plain_line> plain_lines(const api_request& request, const std::string& operation) {
    const std::size_t mark = std::min(request.uri.find('?'), request.uri.size());
    const string_view uri = request.uri;
    uri_parts parts;
    if (!plain_read_elements(&parts, uri.substr(0, mark))) return {plain_line{}};
    if (operation == "get_api") return {plain_read_line(parts, request.payload)};

    const string_view query = uri.substr(std::min(mark + 1, uri.size()));
    std::vector<std::string> paths = values_of(query, "config_path");
    std::vector<std::string> files = values_of(query, "file_name");
    if (paths.empty()) paths.push_back(parts.path);
    if (files.empty()) files.emplace_back();
    std::vector<plain_line> lines;
    for (const std::string& value : paths) {
        const auto path = plain_path(value);
        for (const std::string& file : files) {
            lines.emplace_back();
            if (!path || !is_one_field(file)) continue;
            parts.path = *path;
            parts.file = file;
            lines.back() = plain_changing_line(parts, operation, request.payload);
        }
    }
    return lines;
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
    const std::size_t end = payload.empty() ? line.size() : line.rfind(payload);
    if (end == std::string::npos) return;  // cut at its bounds
    const std::string own = line.substr(0, end);
    expect(std::ranges::count(own, '&') <= 4, "a line has no field but its own");
    expect(own.find_first_of("\r\n") == std::string::npos, "a line does not end early");
}

void check_answer(const api_request& request, const std::string& response,
                  const std::vector<plain_line>& lines) {
    const std::vector<std::string>& sent = sent_lines();
    if (sent.empty() && response.find("no permission to execute") != std::string::npos) {
        expect(
            std::ranges::any_of(
                lines, [&](const plain_line& line) { return line && !may_upload(request, *line); }),
            "only uploads are refused for the role");
    } else if (sent.empty()) {
        expect(response == std::string(header) + std::string(invalid_url), "no line, no valid URL");
        expect(std::ranges::find(lines, plain_line{}) != lines.end(), "both writings refuse");
    } else {
        check_line(request, sent[0]);
        expect(std::ranges::find(lines, plain_line{sent[0]}) != lines.end(),
               "both writings make the same line");
        expect(response == std::string(header) + "{\"a\":1}", "the answer is passed on");
    }
}

void check(const api_request& request, const std::string& response, bool whole) {
    const std::string operation = plain_operation(request);
    expect(sent_lines().size() <= 1, "a request is one line");
    if (operation.empty()) {
        expect(sent_lines().empty() && response == std::string(header) + std::string(not_supported),
               "other methods and paths are refused");
        return;
    }
    std::vector<plain_line> lines{plain_line{}};
    if (whole) lines = plain_lines(request, operation);
    for (plain_line& line : lines)
        if (line) line->resize(std::min(line->size(), request.payload.size() + 255));
    check_answer(request, response, lines);
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
    bool whole = true;
    if (const char* raw = cgi_query_string(request.input)) {
        whole = sent.method != "POST" || std::strlen(raw) == body.size();
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
    check(sent, response.buf.data, whole);
}

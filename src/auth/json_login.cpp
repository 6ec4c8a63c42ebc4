#include "auth/json_login.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>

#include "runtime/cgi.h"
#include "runtime/error_response.h"
#include "runtime/log.h"
#include "runtime/redaction.h"
#include "runtime/request.h"
#include "runtime/strbuf.h"
#include "runtime/text.h"
#include "runtime/wait.h"

#include "backend/cli_helper.h"

#include "auth/login_refusal.h"
#include "auth/login_settings.h"
#include "auth/password_check.h"
#include "auth/session_log.h"
#include "auth/session_store.h"

namespace {

constexpr std::size_t body_size = 1024;
constexpr std::int64_t answer_room = 2048;  // for every answer: the body and its header lines
constexpr std::string_view rac_login_prefix = "/rac/login";
constexpr char session_cookie[] = "SESSION";

struct status_line {
    int code;
    const char* line;
};

constexpr auto status_lines = std::to_array<status_line>({
    {.code = 200, .line = "Status: 200 OK\r\n"},
    {.code = 401, .line = "Status: 401 Unauthorized\r\n"},
    {.code = 403, .line = "Status: 403 Forbidden\r\n"},
    {.code = 408, .line = "Status: 408 Request Timeout\r\n"},
});

const char* status_line_of(int code) {
    const auto* const row = std::ranges::find(status_lines, code, &status_line::code);
    return (row != status_lines.end() ? row : status_lines.begin())->line;
}

// The two ends of the connection, as texts; null where the server does not tell.
struct login_peers {
    const char* client_ip;
    const char* client_port;
    const char* server_ip;
    const char* server_port;
};

struct peer_variable {
    const char* name;
    const char* meaning;
    const char* login_peers::*field;
};

constexpr auto peer_variables = std::to_array<peer_variable>({
    {.name = "REMOTE_ADDR", .meaning = "Client IP address", .field = &login_peers::client_ip},
    {.name = "REMOTE_PORT", .meaning = "Client port", .field = &login_peers::client_port},
    {.name = "SERVER_ADDR", .meaning = "Server IP address", .field = &login_peers::server_ip},
    {.name = "SERVER_PORT", .meaning = "Server port", .field = &login_peers::server_port},
});

login_peers read_peers(const cgi* vars) {
    login_peers peers{};
    for (const peer_variable& row : peer_variables) {
        peers.*row.field = cgi_get_var(vars, row.name);
        if (peers.*row.field != nullptr) continue;
        controller_log(session_log_error, "%s(%d): %s could not be determined ", session_log_source,
                       __LINE__, row.meaning);
    }
    return peers;
}

// Why a login is refused: for the system log, and for the client.
struct refused_login {
    login_refusal why;
    const char* text;
};

using maybe_refused = std::optional<refused_login>;

constexpr refused_login not_authenticated{
    .why = login_refusal::wrong_password,
    .text = "Unauthorized request, authentication failed",
};

refused_login not_authenticated_since(login_refusal why) {
    return {.why = why, .text = not_authenticated.text};
}

// A decoded NUL would cut the text for everybody who reads it.
bool is_whole(const cgi* vars, const char* name, const char* value) {
    const cgi_pair* const pair = cgi_named_pair(vars, name);
    return pair->value == nullptr ||
           std::strlen(value) == static_cast<std::size_t>(pair->value_len);
}

// Refuses before anybody looks at the password.
maybe_refused refusal_beforehand(const cgi* vars, const login_settings& settings, const char* user,
                                 const char* password) {
    if (request_is_factory_default()) {
        return {{.why = login_refusal::factory_default,
                 .text = "Unauthorized request, controller in factory default state"}};
    }
    if (settings.login_cgi != nullptr &&
        std::string_view{settings.login_cgi}.starts_with(rac_login_prefix)) {
        return {{.why = login_refusal::remote_access,
                 .text = "Unauthorized request, rac user not allowed"}};
    }
    if (user == nullptr || password == nullptr) {
        return {{.why = login_refusal::missing_parameters,
                 .text = "Unauthorized request, missing parameters username/password"}};
    }
    const bool whole = is_whole(vars, "username", user) && is_whole(vars, "password", password);
    return whole ? maybe_refused{} : not_authenticated;
}

// Tells that no session could be made; `cause` is what the database said.
refused_login report_no_session(wms_strbuf* out, const char* sid, int result, const char* cause) {
    if (result == -2) {
        controller_log(session_log_error,
                       "%s(%d):WebUI session limit reached: %d. Can't create any more WebUI "
                       "sessions.",
                       session_log_source, __LINE__, session_limit);
        wuic_generic_error(out,
                           "WebUI session limit reached: %d. Can't create any more WebUI sessions.",
                           session_limit);
        return {.why = login_refusal::session_limit,
                .text = "Unauthorized request, session limit reached"};
    }
    char reason[1024];
    error_text_escape(reason, sizeof reason, cause);
    controller_log(session_log_error, "%s(%d):Can't update a new session (main): %s, %s",
                   session_log_source, __LINE__, redact_identifier(sid).text,
                   redact_within(cause, sid).text);
    wuic_generic_error(out, "Can't update a new session (main): %s, %s", sid, reason);
    return {.why = login_refusal::not_stored, .text = "Unauthorized request, can't update session"};
}

// Checks the password and makes the session, whose identifier goes into `sid`.
maybe_refused log_in(wms_strbuf* out, pg_conn* db, const login_peers& peers, const char* user,
                     const char* password, char* sid) {
    char role[64];
    char path[1025];
    char msg[cli_message_size];
    const password_verdict verdict = password_check({.user = user,
                                                     .password = password,
                                                     .src_ip = peers.client_ip,
                                                     .src_port = peers.client_port,
                                                     .dst_ip = peers.server_ip,
                                                     .dst_port = peers.server_port},
                                                    role, path, msg);
    if (verdict == password_verdict::refused) return not_authenticated;
    if (verdict == password_verdict::silent) {
        return not_authenticated_since(login_refusal::service_silent);
    }
    if (verdict == password_verdict::challenged) {
        return not_authenticated_since(login_refusal::challenge);
    }
    scoped_strbuf text;
    const int created =
        wuic_session_create(db, text, sid, peers.client_ip, user, role, false, path);
    if (created == 0) return std::nullopt;
    return report_no_session(out, sid, created, text_or_null(text.buf.data));
}

}  // namespace

void api_write_json_response(wms_strbuf* out, int http_code, int status, const char* text,
                             const char* cookie_name, const char* cookie_value) {
    char body[body_size];
    if (http_code == 200) {
        std::snprintf(body, sizeof body,
                      R"({"_global_result": {"status":"%d", "status_str": "%s", "UIDQORIN":"%s"}})",
                      status, text_or_null(text), text_or_null(cookie_value));
    } else {
        std::snprintf(body, sizeof body,
                      R"({"_global_result": {"status":"%d", "status_str": "%s"}})", status,
                      text_or_null(text));
    }
    wms_strbuf_clear(out);
    wms_strbuf_fmt(out,
                   "%sSet-Cookie: %s=%s; path=%s;secure=;\r\n"
                   "Set-Cookie: CPnextpin=; path=/; expires=Sat, 01-Jan-1970 00:00:00 GMT;\r\n"
                   "Content-Type: application/json\r\n\r\n",
                   status_line_of(http_code), cookie_name != nullptr ? cookie_name : "",
                   text_or_null(cookie_value), "/");
    wms_strbuf_fmt(out, "%s\r\n", body);
}

int api_login_internal(wms_strbuf* out, pg_conn* db, cgi* vars) {
    // A session whose identifier could not be told would be lost.
    if (wms_strbuf_reserve(out, answer_room) != 0) return -1;
    const login_settings settings = login_settings_read(vars);
    const login_peers peers = read_peers(vars);
    const char* const user = cgi_named_value(vars, "username");
    const char* const password = cgi_named_value(vars, "password");

    char sid[session_sid_size] = {};
    maybe_refused refusal = refusal_beforehand(vars, settings, user, password);
    if (!refusal) refusal = log_in(out, db, peers, user, password, sid);
    if (refusal) {
        // Where the database's confirmation was lost, the session may be there all the same.
        if (sid[0] != '\0') static_cast<void>(wuic_session_delete(db, sid));
        // Who has left before anything was decided was not refused: the login was cut short.
        const bool undecided = refusal->why == login_refusal::service_silent ||
                               refusal->why == login_refusal::not_stored;
        if (!undecided || !client_has_left()) login_refusal_log(refusal->why, vars);
        api_write_json_response(out, 401, 1, refusal->text, nullptr, nullptr);
    } else {
        api_write_json_response(out, 200, 0, "You've logged in successfully.", session_cookie, sid);
    }
    return 0;
}

int api_logout_internal(wms_strbuf* out, pg_conn* db, const session_record* session) {
    // What cannot be removed was logged; the client's cookie ends either way.
    if (session != nullptr && session->found) {
        static_cast<void>(wuic_session_delete(db, session->sid));
    }
    api_write_json_response(out, 200, 0, "You've been logged out successfully.", session_cookie,
                            "");
    return 0;
}

void api_login_refuse_path(wms_strbuf* out, const cgi* vars) {
    login_refusal_log(login_refusal::other_path, vars);
    api_write_json_response(out, 401, 1, not_authenticated.text, nullptr, nullptr);
}

void login_page_refuse_path(wms_strbuf* out, const cgi* vars) {
    login_refusal_log(login_refusal::other_path, vars);
    scoped_strbuf document;
    wuic_generic_error(document, "%s", not_authenticated.text);
    wms_strbuf_clear(out);
    wms_strbuf_append_all(
        out,
        {status_line_of(401), {document.buf.data, static_cast<std::size_t>(document.buf.length)}});
}

int api_login(const char* /*key*/, wms_strbuf* response, session_record* /*session*/, pg_conn* db,
              cgi* input) {
    return api_login_internal(response, db, input);
}

int api_logout(const char* /*key*/, wms_strbuf* response, session_record* session, pg_conn* db,
               cgi* /*input*/) {
    return api_logout_internal(response, db, session);
}

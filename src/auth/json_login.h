// Login and logout of the JSON API, and the password check that the browser login shares.
#pragma once

#include "runtime/handler.h"

// Has the CLI helper check a password. Returns 1 when it is accepted, 2 when a challenge must be
// answered as well (it is left in the request record), 0 when it is refused.
//   role_out, path_out  64 and 1025 bytes; empty unless accepted
//   msg                 1024 bytes; the helper's message
//   vap, extra          remote-access login's profile and more parameters, URL-escaped; or null
// What does not fit when escaped, or in the command, is refused before anything is sent; so is a
// reply whose role or path does not fit, or which accepts without a role.
// NOLINTNEXTLINE(readability-function-size): fixed interface
[[nodiscard]] int wuic_auth_user(const char* user, const char* password, const char* src_ip,
                                 const char* src_port, const char* dst_ip, const char* dst_port,
                                 char* role_out, char* path_out, char* msg, bool rac,
                                 const char* vap, const char* extra);

// Replaces the contents of `out` with a complete JSON answer. A null cookie name is empty; a null
// value is written as "(null)".
void api_write_json_response(wms_strbuf* out, int http_code, int status, const char* text,
                             const char* cookie_name, const char* cookie_value);

// Handles one API login. Returns 0 with an answer; -1 without memory for one, and nothing was done.
int api_login_internal(wms_strbuf* out, pg_conn* db, cgi* vars);
// Logs out: removes a found session from the store; always answers. Returns 0.
int api_logout_internal(wms_strbuf* out, pg_conn* db, const session_record* session);

// The rows of the dispatch table.
request_handler api_login;
request_handler api_logout;

// Refuse a login that was sent under another path than its own, where no limit on logins counts it:
// 401, and the command service is not asked. For the JSON API, and as an error document for the
// rows that pages send to.
path_refusal api_login_refuse_path;
path_refusal login_page_refuse_path;

// The table http_session of the database wms, one row a session. Other services of the controller
// read it and remove old rows; here a row ends at logout only.
#pragma once

#include <cstdint>

#include "runtime/session_record.h"

struct cgi;
struct pg_conn;
struct wms_strbuf;

inline constexpr int session_limit = 64;
inline constexpr int session_sid_size = 128;  // bytes that wuic_session_create wants for sid_out

// Looks a session up by `sid`, or by QORIN_AUTH_SESSION_ID when it is null. The record is cleared
// first and keeps the identifier that was asked for, cut to its field; a longer one finds nothing,
// and so does a row whose user or role is longer than its field. Under a factory-default
// configuration every identifier has a session, with the role "root". Returns 0 with a session, -1
// without; a missing or empty identifier is -1 in any case. REQUIRES: a request's record exists.
[[nodiscard]] int wuic_session_retrieve(pg_conn* db, const cgi* vars, session_record* record,
                                        const char* sid);

// Number of sessions, or -1.
[[nodiscard]] int get_session_count(pg_conn* db);

// Makes a session; the new identifier goes into `sid_out` (session_sid_size bytes). All of it is
// one transaction, and while it lasts nobody else makes one, so the limit holds for logins side by
// side; it is over when this returns, and after a failure nothing of it remains. The statements are
// built in the buffer `text`. `rac` makes a remote-access session. Texts may be null, which is
// empty; a path that does not fit becomes empty. Returns 0, -1 on a failure or when a text does not
// fit or the client has left, -2 at the session limit. Unless it returns 0, `text` holds the
// reason, which may be empty; the connection no longer has it. REQUIRES: no transaction is open on
// `db`.
//
// NOLINTNEXTLINE(readability-function-size): fixed interface
[[nodiscard]] int wuic_session_create(pg_conn* db, wms_strbuf* text, char* sid_out, const char* ip,
                                      const char* user, const char* role, bool rac,
                                      const char* path);

// Removes a session's row. Returns 0; -1 when the statement failed, or the request's client has
// left.
[[nodiscard]] int wuic_session_delete(pg_conn* db, const char* sid);

// Asks whether a remote-access client is connected from the request's address, and makes a session
// for it. Returns 1 with the record filled; 0, the record untouched, when there is no such client
// or no session could be made.
[[nodiscard]] int wuic_is_valid_vpn_session(pg_conn* db, const cgi* vars, session_record* record);

#include <libpq-fe.h>

#include "runtime/cgi.h"
#include "runtime/log.h"
#include "runtime/redaction.h"
#include "runtime/strbuf.h"
#include "runtime/text.h"

#include "auth/field.h"
#include "auth/rac_client.h"
#include "auth/session_log.h"
#include "auth/session_store.h"

namespace {

constexpr char rac_path[] = "N/A";

}  // namespace

int wuic_is_valid_vpn_session(pg_conn* db, const cgi* vars, session_record* record) {
    const char* const server_addr = cgi_get_var(vars, "SERVER_ADDR");
    const char* const client_addr = cgi_get_var(vars, "REMOTE_ADDR");
    if (server_addr == nullptr || client_addr == nullptr) return 0;

    rac_client client;
    if (!rac_client_ask(server_addr, client_addr, &client)) return 0;

    scoped_strbuf text;
    char sid[session_sid_size];
    if (wuic_session_create(db, text, sid, client_addr, client.user, client.role, true, rac_path) !=
        0) {
        controller_log(session_log_error, "%s(%d): RAC: Can't update a new session (ret): %s, %s",
                       session_log_source, __LINE__, redact_identifier(sid).text,
                       redact_within(text_or_null(text.buf.data), sid).text);
        return 0;
    }
    *record = {};
    field_copy(record->ip, client_addr);
    field_copy(record->sid, sid);
    field_copy(record->user, client.user);
    field_copy(record->role, client.role);
    field_copy(record->path, rac_path);
    record->found = true;
    return 1;
}

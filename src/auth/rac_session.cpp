#include <cstddef>

#include <libpq-fe.h>

#include "platform/paths.h"

#include "runtime/cgi.h"
#include "runtime/log.h"
#include "runtime/strbuf.h"

#include "backend/message_block.h"

#include "auth/field.h"
#include "auth/session_log.h"
#include "auth/session_store.h"

namespace {

// Blocks of the remote-access service on this host, in host byte order.
struct client_query {
    std::uint32_t kind;
    char server_addr[64];
    char client_addr[64];
};
static_assert(sizeof(client_query) == 132);

struct client_reply {
    std::uint32_t unread;  // its meaning is the service's own
    std::uint32_t connected;
    char user[248];
    char role[64];
};
static_assert(sizeof(client_reply) == 320 && offsetof(client_reply, role) == 256);

constexpr std::uint32_t kind_client_status = 77;
constexpr int reply_with_connected = offsetof(client_reply, user);
constexpr char rac_path[] = "N/A";

bool ask_client_status(const char* server_addr, const char* client_addr, client_reply& reply) {
    client_query query{};
    query.kind = kind_client_status;
    field_copy(query.server_addr, server_addr);
    field_copy(query.client_addr, client_addr);
    reply = {};
    const int received =
        SendMsgBlock(&query, sizeof query, paths::auth_service_port, &reply, sizeof reply);
    reply.user[sizeof reply.user - 1] = '\0';
    reply.role[sizeof reply.role - 1] = '\0';
    return received >= reply_with_connected && reply.connected != 0;
}

}  // namespace

int wuic_is_valid_vpn_session(pg_conn* db, const cgi* vars, session_record* record) {
    const char* const server_addr = cgi_get_var(vars, "SERVER_ADDR");
    const char* const client_addr = cgi_get_var(vars, "REMOTE_ADDR");
    if (server_addr == nullptr || client_addr == nullptr) return 0;

    client_reply reply;
    if (!ask_client_status(server_addr, client_addr, reply)) return 0;

    scoped_strbuf text;
    char sid[session_sid_size];
    if (wuic_session_create(db, text, sid, client_addr, reply.user, reply.role, true, rac_path) !=
        0) {
        controller_log(session_log_error, "%s(%d): RAC: Can't update a new session (ret): %s, %s",
                       session_log_source, __LINE__, sid, PQerrorMessage(db));
        return 0;
    }
    *record = {};
    field_copy(record->ip, client_addr);
    field_copy(record->sid, sid);
    field_copy(record->user, reply.user);
    field_copy(record->role, reply.role);
    field_copy(record->path, rac_path);
    record->found = true;
    return 1;
}

#include "auth/rac_client.h"

#include <cstddef>
#include <cstdint>

#include "platform/paths.h"

#include "backend/message_block.h"

#include "auth/field.h"

namespace {

// Blocks of the service on this host, in host byte order.
struct client_query {
    std::uint32_t kind;
    char server_addr[64];
    char client_addr[64];
};
static_assert(sizeof(client_query) == 132);

struct client_reply {
    std::uint32_t unread;  // its meaning is the service's own
    std::uint32_t connected;
    rac_client client;
};
static_assert(sizeof(client_reply) == 320 && offsetof(rac_client, role) == 248);

constexpr std::uint32_t kind_client_status = 77;
constexpr int reply_with_connected = offsetof(client_reply, client);

}  // namespace

bool rac_client_ask(const char* server_addr, const char* client_addr, rac_client* client) {
    client_query query{};
    query.kind = kind_client_status;
    field_copy(query.server_addr, server_addr);
    field_copy(query.client_addr, client_addr);
    client_reply reply{};
    const int received =
        SendMsgBlock(&query, sizeof query, paths::auth_service_port, &reply, sizeof reply);
    if (received < reply_with_connected || reply.connected == 0) return false;
    *client = reply.client;
    client->user[sizeof client->user - 1] = '\0';
    client->role[sizeof client->role - 1] = '\0';
    return true;
}

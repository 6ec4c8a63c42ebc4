// Message blocks: of the reply, the service's own and no stranger's, as much is stored as there is
// room for, and nothing behind it; and what the block about a client means is what a second reading
// of its layout says.
//
// An input is how the exchange goes, and the reply.
#include "backend/message_block.h"

#include <array>

#include "auth/rac_client.h"

#include "fuzz_peer.h"

namespace {

using std::string;
using std::string_view;

void check_block(service_peer* service, string_view request, std::size_t capacity) {
    const exact_bytes query(request);
    const exact_bytes room(string(capacity, '#'));
    int got = -1;
    const string& asked = service->serve([&] {
        got = SendMsgBlock(query.data(), query.length(), paths::auth_service_port, room.data(),
                           room.length());
    });
    const string_view stored = service->answer.substr(0, capacity);
    expect(asked == request, "the request arrives whole");
    expect(got == static_cast<int>(stored.size()), "the reply's size is told");
    expect(room.view() == string(stored) + string(capacity - stored.size(), '#'),
           "the reply is stored, and nothing behind it");
}

// The text of a field, at most one byte less than its size.
string field_at(string_view block, std::size_t at, std::size_t size) {
    return string(string(block.substr(std::min(at, block.size()), size - 1)).c_str());
}

void check_client(service_peer* service, string_view server_addr, string_view client_addr) {
    const exact_text server(server_addr);
    const exact_text address(client_addr);
    rac_client client = {};
    bool connected = false;
    const string& asked =
        service->serve([&] { connected = rac_client_ask(server.data(), address.data(), &client); });
    const std::uint32_t kind = 77;
    expect(asked == string(reinterpret_cast<const char*>(&kind), 4) +
                        block_field(server.view(), 64) + block_field(address.view(), 64),
           "the question is laid out as it should be");
    const string_view block = service->answer.substr(0, 320);
    const bool states_it =
        block.size() >= 8 && block.substr(4, 4).find_first_not_of('\0') != string_view::npos;
    expect(connected == states_it, "a client is connected when the service says so");
    if (!connected) return;
    expect(client.user == field_at(block, 8, 248), "the user is the one stated");
    expect(client.role == field_at(block, 256, 64), "and the role");
}

}  // namespace

void fuzz_one(string_view data) {
    static service_peer service(paths::auth_service_port);
    static const fuzz_request request;  // for the log

    fuzz_fields fields{data};
    constexpr std::array<std::size_t, 8> rooms = {320, 0, 1, 4, 32, 264, 6795, 48784};
    constexpr std::array<std::size_t, 4> times = {1, 1, 20, 400};
    const std::size_t capacity = rooms[fields.byte() % rooms.size()];
    const std::size_t lies = fields.byte() % 4;
    const std::size_t repetitions = times[fields.byte() % times.size()];
    const string_view server_addr = fields.field();
    const string_view client_addr = fields.field();
    const string reply = repeated(fields.rest, repetitions);
    service.forged.assign(lies, "FORGED BLOCK THAT SAYS YES");
    service.answer = reply;
    check_block(&service, data, capacity);
    check_client(&service, server_addr, client_addr);
}

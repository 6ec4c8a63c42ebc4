// The fast path: the request is laid out as a second reading has it, whatever the texts; of the
// reply, the service's own and no stranger's, as much is handed out as its buffer holds.
//
// An input is how the exchange goes, the user, role and command on lines of their own, and the
// reply.
#include "backend/fast_path.h"

#include <array>

#include "fuzz_peer.h"

namespace {

using std::string;
using std::string_view;

constexpr std::size_t reply_max = 4095;

string failure(std::int32_t msg_size) {
    const string whole = "<re><ERROR>Error: receiving data from CLI, Success</ERROR></re>";
    return msg_size > 0 ? whole.substr(0, std::size_t(msg_size) - 1) + '\0' : "";
}

// `reply` is what the service answers. Runs the command with a message buffer of `msg_size` bytes.
void run(const exact_text (&texts)[3], std::int32_t msg_size, const string& reply) {
    const exact_bytes msg(string(std::size_t(msg_size), '#'));
    char* text = nullptr;
    std::int32_t length = -1;
    const int result = wuic_fpcli_execute(texts[0].data(), texts[1].data(), texts[2].data(), &text,
                                          &length, msg.data(), msg_size);
    const malloc_text owned(text);
    if (reply.empty()) {
        expect(result == -1 && !owned && length == 0, "nothing is no reply");
        expect(msg.view().starts_with(failure(msg_size)), "and the message says so");
        return;
    }
    expect(result == 0 && owned, "a reply arrives");
    expect(string_view(owned.get(), std::size_t(length)) == reply.substr(0, reply_max) &&
               owned.get()[length] == '\0',
           "cut to its buffer, and ends in a NUL");
    expect(msg_size == 0 || msg.view()[0] == '\0', "without a message");
}

}  // namespace

void fuzz_one(string_view data) {
    static service_peer service(paths::fast_path_port);
    static const fuzz_request request;  // for the log

    fuzz_fields fields{data};
    constexpr std::array<std::int32_t, 8> sizes = {1024, 0, 1, 2, 20, 63, 64, 65};
    constexpr std::array<std::size_t, 4> times = {1, 1, 50, 500};
    const std::int32_t msg_size = sizes[fields.byte() % sizes.size()];
    const std::size_t lies = fields.byte() % 4;
    const std::size_t repetitions = times[fields.byte() % times.size()];
    const exact_text texts[] = {exact_text(fields.field()), exact_text(fields.field()),
                                exact_text(fields.field())};
    const string reply = repeated(fields.rest, repetitions);
    service.forged.assign(lies, "<forged/>");
    service.answer = reply;
    const string& asked = service.serve([&] { run(texts, msg_size, reply); });
    expect(asked == block_field(texts[0].view(), 64) + block_field(texts[1].view(), 33) +
                        string(48, '\0') + block_field(texts[2].view(), 1024),
           "the request is laid out as it should be");
}

// The CLI helper's reply: whatever bytes come, in whatever pieces, and wherever they end, the
// outcome is what a plain reading of the length-prefixed format says.
//
// An input is the size of the message buffer, how the helper behaves, and the reply.
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>

#include "backend/cli_helper.h"

#include "fuzz_peer.h"

namespace {

using std::string;
using std::string_view;

// A stated length may be anything. Beyond this no memory is had, as on a small machine.
constexpr std::size_t memory_limit = 1 << 20;

struct outcome {
    int result = -1;
    std::optional<string> text = {};
    std::int32_t length = 0;
    string msg = {};
    bool operator==(const outcome&) const = default;
};

constexpr char command[] = "show clock";

string request() {
    return wire_field("admin") + wire_field("10.0.0.1") + wire_field("") + wire_field(command);
}

// Runs the command with a message buffer of exactly `msg_size` bytes.
outcome run(std::int32_t msg_size) {
    const exact_bytes msg(string(std::size_t(msg_size), '#'));
    char* text = nullptr;
    outcome got;
    got.result = wuic_cli_execute("admin", "10.0.0.1", "", command, &text, &got.length, msg.data(),
                                  msg_size);
    const malloc_text owned(text);
    if (owned) got.text = string(owned.get(), std::size_t(got.length));
    expect(!owned || owned.get()[got.length] == '\0', "the output ends in a NUL");
    const std::size_t end = msg.view().find('\0');
    expect((end != string_view::npos) == (msg_size > 0), "the message ends in a NUL");
    if (msg_size <= 0) return got;
    // A message may hold NULs of its own, and what lies behind it was not written. A failure's text
    // may stand on a longer piece of a message.
    got.msg =
        msg.view().substr(0, got.result == 0 ? msg.view().find_last_not_of('#') + 1 : end + 1);
    return got;
}

// ---- the format, read a second time

std::int32_t word_at(string_view bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i)
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return static_cast<std::int32_t>(value);
}

outcome failed(outcome so_far, const string& why, std::int32_t msg_size) {
    if (msg_size > 0) so_far.msg = why.substr(0, std::size_t(msg_size) - 1) + '\0';
    return so_far;
}

outcome plain_reading(string_view reply, std::int32_t msg_size) {
    const string cut = "Failed to read socket: Success";
    outcome read;
    if (reply.size() < 8) return failed(read, cut, msg_size);
    read.length = word_at(reply, 4);
    reply.remove_prefix(8);
    if (read.length > 0) {
        const auto size = static_cast<std::size_t>(read.length);
        if (size + 1 > memory_limit)
            return failed(read, "Malloc failed: Cannot allocate memory", msg_size);
        if (reply.size() < size) return failed(read, cut, msg_size);
        read.text = reply.substr(0, size);
        reply.remove_prefix(size);
    }
    if (reply.size() < 4) return failed(read, cut, msg_size);
    const std::int32_t size = word_at(reply, 0);
    reply.remove_prefix(4);
    const bool has_message = size > 0;
    if (has_message && (size >= msg_size || reply.size() < std::size_t(size)))
        return failed(read, cut, msg_size);
    read.result = 0;
    if (msg_size > 0)
        read.msg = string(reply.substr(0, has_message ? std::size_t(size) : 0)) + '\0';
    return read;
}

// ---- a helper that does not wait for the whole request

bool is_reset(const outcome& got, std::int32_t msg_size) {
    constexpr string_view texts[] = {"Failed to write socket: Broken pipe",
                                     "Failed to write socket: Connection reset by peer",
                                     "Failed to read socket: Connection reset by peer"};
    return std::ranges::any_of(texts, [&](string_view text) {
        return got.result == -1 && got.msg == failed({}, string(text), msg_size).msg;
    });
}

// As far as the reply was read, it is what it is.
bool is_beginning(const outcome& got, const outcome& whole) {
    return (got.length == 0 && !got.text) ||
           (got.length == whole.length && (!got.text || got.text == whole.text));
}

int next_descriptor() {
    return unique_fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)).get();
}

}  // namespace

extern "C" {
void* __real_malloc(std::size_t size);  // NOLINT(readability-identifier-naming): the linker's

// NOLINTNEXTLINE(readability-identifier-naming): the linker's
void* __wrap_malloc(std::size_t size) {
    if (size <= memory_limit) return __real_malloc(size);
    errno = ENOMEM;
    return nullptr;
}
}

void fuzz_one(string_view data) {
    static helper_peer helper;
    static const string whole_request = request();

    fuzz_fields fields{data};
    constexpr std::array<std::int32_t, 8> sizes = {1024, 0, 1, 2, 24, 31, 32, 64};
    const std::int32_t msg_size = sizes[fields.byte() % sizes.size()];
    constexpr std::array<std::size_t, 8> pieces = {4096, 4096, 4096, 1, 2, 3, 7, 64};
    const std::uint8_t way = fields.byte();
    const bool is_patient = way < 224;
    const string_view reply = fields.rest;

    outcome got;
    const string& asked =
        helper.serve({.bytes = string(reply),
                      .piece = pieces[way % pieces.size()],
                      .request_read = is_patient ? string::npos : std::size_t{way} - 224},
                     [&] { got = run(msg_size); });

    const outcome expected = plain_reading(reply, msg_size);
    if (is_patient) {
        expect(asked == whole_request, "the request goes out as it is");
        expect(got == expected, "the outcome is that of a plain reading");
    } else {
        expect(got == expected || is_reset(got, msg_size), "a reset is told");
        expect(is_beginning(got, expected), "and leaves what was read");
    }
    // Taken behind the first exchange: while its thread begins, the peer has more of them open.
    static const int first_descriptor = next_descriptor();
    expect(next_descriptor() == first_descriptor, "no descriptor stays open");
}

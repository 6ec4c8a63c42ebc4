#include "backend/fast_path.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>

#include "platform/ownership.h"
#include "platform/paths.h"

#include "runtime/log.h"
#include "runtime/socket.h"

#include "backend/cli_pipeline.h"

namespace {

constexpr std::size_t user_offset = 0;
constexpr std::size_t user_size = 64;
constexpr std::size_t role_offset = 64;
constexpr std::size_t role_size = 33;
constexpr std::size_t command_offset = 145;  // 48 bytes before it stay zero
constexpr std::size_t command_size = 1024;
constexpr std::size_t datagram_size = 1169;
constexpr std::size_t reply_size = 4095;
constexpr long reply_seconds = 1200;

static_assert(role_offset == user_offset + user_size);
static_assert(command_offset + command_size == datagram_size);

using datagram = std::array<char, datagram_size>;

// Copies what fits before the field's NUL; the datagram is zeroed.
void put_field(datagram* out, std::size_t offset, std::size_t size, const char* text) {
    if (text == nullptr) return;
    std::memcpy(out->data() + offset, text, strnlen(text, size - 1));
}

const sockaddr* generic(const sockaddr_in* addr) {
    return reinterpret_cast<const sockaddr*>(addr);
}

bool service_address(sockaddr_in* addr) {
    return tp_socket_mkaddr(addr, paths::loopback_address, paths::fast_path_port, -1) == 0;
}

bool bind_loopback(int fd) {
    sockaddr_in addr = {};
    if (!service_address(&addr)) return false;
    addr.sin_port = 0;
    return bind(fd, generic(&addr), sizeof addr) == 0;
}

// A connected socket learns of a closed port at once, and gets no stranger's datagrams.
bool connect_service(int fd) {
    sockaddr_in addr = {};
    if (!service_address(&addr) || connect(fd, generic(&addr), sizeof addr) != 0) return false;
    // What a stranger sent between bind and connect is already queued.
    char scratch = 0;
    while (recv(fd, &scratch, sizeof scratch, MSG_DONTWAIT) >= 0) {
    }
    return true;
}

bool send_request(int fd, const datagram& request) {
    ssize_t sent = -1;
    do {
        sent = send(fd, request.data(), request.size(), MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent == static_cast<ssize_t>(request.size());
}

long long milliseconds_now() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Ends it with the step that failed as the message, and the reason of errno.
void fail(fast_path_exchange* exchange, const cli_outputs& out, const char* what) {
    exchange_fail(exchange);
    if (out.msg != nullptr && out.msg_size > 0) {
        std::snprintf(out.msg, static_cast<std::size_t>(out.msg_size),
                      "<re><ERROR>Error: %s, %s</ERROR></re>", what,
                      std::strerror(exchange->error));
    }
}

// Returns null, or the step that failed, with errno set.
const char* send_off(fast_path_exchange* exchange, const cli_request& request) {
    datagram bytes = {};
    put_field(&bytes, user_offset, user_size, request.user);
    put_field(&bytes, role_offset, role_size, request.sid);
    put_field(&bytes, command_offset, command_size, request.command);

    exchange->fd.reset(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!exchange->fd) return "allocating socket";
    const int fd = exchange->fd.get();
    if (!bind_loopback(fd)) return "socket bind failed";
    if (!connect_service(fd) || !send_request(fd, bytes)) return "sending the packet to CLI";
    return nullptr;
}

// The length of the reply, or 0 with errno set.
std::size_t receive_reply(int fd, char* reply) {
    ssize_t got = -1;
    do {
        errno = 0;
        got = recv(fd, reply, reply_size, MSG_DONTWAIT);
    } while (got < 0 && errno == EINTR);
    return got > 0 ? static_cast<std::size_t>(got) : 0;
}

}  // namespace

int set_socket_timeout(int fd, long seconds, long microseconds) {
    const timeval limit = {.tv_sec = seconds, .tv_usec = microseconds};
    return setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
}

exchange_start fast_path_begin(fast_path_exchange* exchange, const cli_request& request,
                               const cli_outputs& out, bool alone) {
    const char* const failed = send_off(exchange, request);
    if (failed != nullptr && !alone && exchange_is_shortage(errno)) {
        exchange_close(exchange);
        return exchange_start::later;
    }
    if (failed != nullptr) {
        fail(exchange, out, failed);
        return exchange_start::begun;
    }
    if (set_socket_timeout(exchange->fd.get(), reply_seconds, 0) != 0) {
        wuic_log(log_error, "%s set_socket_timeout failed", "wuic_fpcli_execute");
    }
    // The kernel's limit is on a receive that waits; ours waits in poll(2), with the same limit.
    exchange->deadline = milliseconds_now() + reply_seconds * 1000;
    return exchange_start::begun;
}

void fast_path_step(fast_path_exchange* exchange, const cli_outputs& out) {
    char reply[reply_size];
    const std::size_t got = receive_reply(exchange->fd.get(), reply);
    if (got == 0) {
        const bool waits_on = errno == EAGAIN && milliseconds_now() < exchange->deadline;
        if (!waits_on) fail(exchange, out, "receiving data from CLI");
        return;
    }
    malloc_text text(static_cast<char*>(std::malloc(got + 1)));
    if (!text) return fail(exchange, out, "can't allocate memory");
    std::memcpy(text.get(), reply, got);
    text.get()[got] = '\0';
    *out.length = static_cast<std::int32_t>(got);
    *out.text = text.release();
    exchange_end(exchange, 0);
}

int fast_path_shorten(const fast_path_exchange& exchange, int milliseconds) {
    const long long left = std::max(exchange.deadline - milliseconds_now(), 0LL);
    return milliseconds < 0 || left < milliseconds ? static_cast<int>(left) : milliseconds;
}

// NOLINTNEXTLINE(readability-function-size): fixed interface
int wuic_fpcli_execute(const char* user, const char* role, const char* command, char** out_text,
                       std::int32_t* out_len, char* msg, std::int32_t msg_size) {
    *out_text = nullptr;
    *out_len = 0;
    if (msg != nullptr && msg_size > 0) msg[0] = '\0';
    cli_pipeline pipeline;
    cli_pipeline_add(
        &pipeline,
        {.is_fast = true,
         .request = {.user = user, .ip = nullptr, .sid = role, .command = command},
         .out = {.text = out_text, .length = out_len, .msg = msg, .msg_size = msg_size}});
    return cli_pipeline_take(&pipeline);
}

#include "backend/fast_path.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/time.h>

#include "platform/ownership.h"
#include "platform/paths.h"

#include "runtime/log.h"
#include "runtime/socket.h"
#include "runtime/wait.h"

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

// Whatever step fails, sending is shut down first and the descriptor closed after it.
struct fast_path_socket {
    unique_fd fd{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    fast_path_socket() = default;
    ~fast_path_socket() {
        const int saved = errno;  // the failure is reported after the clean-up
        if (fd) shutdown(fd.get(), SHUT_WR);
        errno = saved;
    }
    fast_path_socket(const fast_path_socket&) = delete;
    fast_path_socket& operator=(const fast_path_socket&) = delete;
};

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

// Where the request's connection is watched, the reply is waited for before it is received, and not
// longer. Returns false, with errno as a receive would set it, when none came.
bool await_reply(int fd) {
    if (!wait_is_watched()) return true;
    constexpr int limit = reply_seconds * 1000;
    pollfd entry = {.fd = fd, .events = POLLIN, .revents = 0};
    int ready = -1;
    do {
        ready = wait_for({&entry, 1}, limit);
    } while (ready < 0 && errno == EINTR);
    if (ready == 0) errno = EAGAIN;
    return ready > 0;
}

// The length of the reply, or 0 with errno set.
std::size_t receive_reply(int fd, char* reply) {
    if (!await_reply(fd)) return 0;
    ssize_t got = -1;
    do {
        errno = 0;
        got = recv(fd, reply, reply_size, 0);
    } while (got < 0 && errno == EINTR);
    return got > 0 ? static_cast<std::size_t>(got) : 0;
}

// Performs the exchange. Returns the reply and its length, or null with the step that failed.
malloc_text exchange(const datagram& request, std::int32_t* length, const char** failed) {
    *failed = "allocating socket";
    const fast_path_socket service;
    if (!service.fd) return nullptr;
    const int fd = service.fd.get();

    *failed = "socket bind failed";
    if (!bind_loopback(fd)) return nullptr;
    *failed = "sending the packet to CLI";
    if (!connect_service(fd) || !send_request(fd, request)) return nullptr;
    if (set_socket_timeout(fd, reply_seconds, 0) != 0) {
        wuic_log(log_error, "%s set_socket_timeout failed", "wuic_fpcli_execute");
    }

    *failed = "receiving data from CLI";
    char reply[reply_size];
    const std::size_t got = receive_reply(fd, reply);
    if (got == 0) return nullptr;

    *failed = "can't allocate memory";
    malloc_text text(static_cast<char*>(std::malloc(got + 1)));
    if (!text) return nullptr;
    std::memcpy(text.get(), reply, got);
    text.get()[got] = '\0';
    *length = static_cast<std::int32_t>(got);
    return text;
}

}  // namespace

int set_socket_timeout(int fd, long seconds, long microseconds) {
    const timeval limit = {.tv_sec = seconds, .tv_usec = microseconds};
    return setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
}

// NOLINTNEXTLINE(readability-function-size): fixed interface
int wuic_fpcli_execute(const char* user, const char* role, const char* command, char** out_text,
                       std::int32_t* out_len, char* msg, std::int32_t msg_size) {
    *out_text = nullptr;
    *out_len = 0;
    const bool has_message = msg != nullptr && msg_size > 0;
    if (has_message) msg[0] = '\0';

    datagram request = {};
    put_field(&request, user_offset, user_size, user);
    put_field(&request, role_offset, role_size, role);
    put_field(&request, command_offset, command_size, command);

    const char* failed = "";
    malloc_text reply = exchange(request, out_len, &failed);
    if (!reply) {
        const char* const reason = std::strerror(errno);
        if (has_message) {
            std::snprintf(msg, static_cast<std::size_t>(msg_size),
                          "<re><ERROR>Error: %s, %s</ERROR></re>", failed, reason);
        }
        return -1;
    }
    *out_text = reply.release();
    return 0;
}

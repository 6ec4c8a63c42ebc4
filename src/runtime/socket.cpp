#include "runtime/socket.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <netdb.h>
#include <sys/random.h>
#include <sys/socket.h>

#include "platform/ownership.h"

#include "runtime/wait.h"

namespace {

constexpr int port_max = 65535;
constexpr int default_backlog = 5;

using address_list = std::unique_ptr<addrinfo, releaser<freeaddrinfo>>;

sockaddr* generic(sockaddr_in* addr) {
    // The sockets interface takes every address by its common head.
    return reinterpret_cast<sockaddr*>(addr);
}

const sockaddr* generic(const sockaddr_in* addr) {
    return reinterpret_cast<const sockaddr*>(addr);
}

sockaddr_in any_address(int port) {
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<std::uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_ANY);
    return addr;
}

// True for a dotted quad. The all-ones address is left to name resolution: its value is what the
// classic conversion returns for an error.
bool parse_quad(const char* host, in_addr* out) {
    return inet_pton(AF_INET, host, out) == 1 && out->s_addr != htonl(INADDR_BROADCAST);
}

// Index of the chosen one among `count` addresses, count at least 1.
int choose(int count, int which) {
    if (which >= 0) return std::min(which, count - 1);
    if (which == -3) return count - 1;
    if (which != -2) return 0;
    std::uint32_t number = 0;
    if (getrandom(&number, sizeof number, 0) != sizeof number) return 0;
    return static_cast<int>(number % static_cast<std::uint32_t>(count));
}

bool resolve(const char* host, int which, in_addr* out) {
    addrinfo hints = {};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;  // one entry an address, not one a socket type
    addrinfo* found = nullptr;
    if (getaddrinfo(host, nullptr, &hints, &found) != 0) return false;
    const address_list list(found);

    int count = 0;
    for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next)
        ++count;
    if (count == 0) return false;
    const addrinfo* entry = found;
    for (int i = choose(count, which); i > 0; --i)
        entry = entry->ai_next;
    *out = reinterpret_cast<const sockaddr_in*>(entry->ai_addr)->sin_addr;
    return true;
}

// Waits until a transient failure may be over; the call that is repeated finds out what became of
// it. A spinning loop would take the processor from the very service that is waited for. Returns
// false when there is nothing more to wait for, since the request's client has left.
bool wait_until_ready(int fd, short events) {
    const int saved = errno;
    if (saved != EINTR) {
        pollfd entry = {.fd = fd, .events = events, .revents = 0};
        if (wait_for({&entry, 1}) < 0 && errno == ECANCELED) return false;
    }
    errno = saved;
    return true;
}

// Where the request's connection is watched, the waiting is done by wait_for and not in the call.
int waiting_flags(bool retry) {
    return retry && wait_is_watched() ? MSG_DONTWAIT : 0;
}

// An interrupted connect(2) goes on by itself; its result is read from the socket.
int finish_connect(int fd) {
    pollfd entry = {.fd = fd, .events = POLLOUT, .revents = 0};
    while (wait_for({&entry, 1}) < 0) {
        if (errno != EINTR) return -1;
    }
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) != 0) return -1;
    errno = error;
    return error == 0 ? 0 : -1;
}

int connect_to(int fd, const sockaddr_in& addr) {
    if (client_has_left()) return -1;
    if (connect(fd, generic(&addr), sizeof addr) == 0) return 0;
    return errno == EINTR ? finish_connect(fd) : -1;
}

unique_fd bound_socket(int type, int port) {
    if (port < 0 || port > port_max) return {};
    unique_fd fd(socket(AF_INET, type | SOCK_CLOEXEC, 0));
    if (!fd) return {};
    const int on = 1;
    // A listener that is started again must not wait for the last one's connections to expire.
    const bool stream = type == SOCK_STREAM;
    if (stream && setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) return {};
    const sockaddr_in addr = any_address(port);
    if (bind(fd.get(), generic(&addr), sizeof addr) != 0) return {};
    return fd;
}

}  // namespace

bool tp_socket_no_error(int err) {
    return err == EAGAIN || err == ETIMEDOUT || err == EINTR;
}

int tp_socket_mkaddr(sockaddr_in* addr, const char* host, int port, int which) {
    if (host == nullptr || host[0] == '\0' || port < 1 || port > port_max) return -1;
    *addr = any_address(port);
    if (parse_quad(host, &addr->sin_addr)) return 0;
    return resolve(host, which, &addr->sin_addr) ? 0 : -1;
}

int tp_tcp_connect(const char* host, int port) {
    sockaddr_in addr = {};
    if (tp_socket_mkaddr(&addr, host, port, -1) != 0) return -1;
    unique_fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd) return -1;
    if (connect_to(fd.get(), addr) == 0) return fd.release();
    const int saved = errno;
    shutdown(fd.get(), SHUT_RDWR);
    errno = saved;
    return -1;
}

int tp_tcp_listen(int port, int backlog) {
    unique_fd fd = bound_socket(SOCK_STREAM, port);
    if (!fd || listen(fd.get(), backlog < 1 ? default_backlog : backlog) != 0) return -1;
    return fd.release();
}

int tp_tcp_accept(int fd, sockaddr_in* peer) {
    for (;;) {
        sockaddr_in scratch = {};
        socklen_t size = sizeof scratch;
        const int accepted = accept4(fd, generic(&scratch), &size, SOCK_CLOEXEC);
        if (accepted >= 0 && peer != nullptr) *peer = scratch;
        if (accepted >= 0) return accepted;
        if (!tp_socket_no_error(errno)) return -1;
        if (!wait_until_ready(fd, POLLIN)) return -1;
    }
}

int tp_udp_connect(const char* host, int port, bool unconnected) {
    sockaddr_in addr = {};
    if (!unconnected && tp_socket_mkaddr(&addr, host, port, -1) != 0) return -1;
    unique_fd fd = bound_socket(SOCK_DGRAM, 0);
    if (!fd) return -1;
    if (!unconnected && connect_to(fd.get(), addr) != 0) return -1;
    return fd.release();
}

int tp_udp_listen(int port) {
    return bound_socket(SOCK_DGRAM, port).release();
}

long tp_socket_read(int fd, void* buf, std::size_t len, sockaddr_in* from, bool retry) {
    const int flags = waiting_flags(retry);
    for (;;) {
        socklen_t size = sizeof(sockaddr_in);
        const ssize_t got = recvfrom(fd, buf, len, flags, from != nullptr ? generic(from) : nullptr,
                                     from != nullptr ? &size : nullptr);
        if (got >= 0) return got;
        if (!tp_socket_no_error(errno)) return -1;
        if (!retry) return -2;
        if (!wait_until_ready(fd, POLLIN)) return -1;
    }
}

long tp_socket_write(int fd, const void* buf, std::size_t len, const sockaddr_in* to, bool retry) {
    const int flags = MSG_NOSIGNAL | waiting_flags(retry);
    if (client_has_left()) return -1;
    for (;;) {
        const ssize_t put = sendto(fd, buf, len, flags, to != nullptr ? generic(to) : nullptr,
                                   to != nullptr ? sizeof *to : 0);
        if (put >= 0) return put;
        if (!tp_socket_no_error(errno)) return -1;
        if (!retry) return -2;
        if (!wait_until_ready(fd, POLLOUT)) return -1;
    }
}

long tp_socket_nread(int fd, void* buf, long len, sockaddr_in* from) {
    errno = 0;
    long total = 0;
    while (total < len) {
        const long got = tp_socket_read(fd, static_cast<char*>(buf) + total,
                                        static_cast<std::size_t>(len - total), from, true);
        if (got < 0) return total > 0 ? total : -1;
        if (got == 0) {
            errno = 0;  // an interruption that was overcome is not why it ended
            break;
        }
        total += got;
    }
    return total;
}

long tp_socket_nwrite(int fd, const void* buf, long len, const sockaddr_in* to) {
    long total = 0;
    while (total < len) {
        const long put = tp_socket_write(fd, static_cast<const char*>(buf) + total,
                                         static_cast<std::size_t>(len - total), to, true);
        if (put < 0) return total > 0 ? total : -1;
        if (put == 0) break;
        total += put;
    }
    return total;
}

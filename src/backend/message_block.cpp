#include "backend/message_block.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <netinet/in.h>
#include <sys/socket.h>

#include "platform/ownership.h"
#include "platform/paths.h"

#include "runtime/log.h"
#include "runtime/socket.h"
#include "runtime/wait.h"

namespace {

constexpr std::int64_t reply_milliseconds = 5000;

std::int64_t now_milliseconds() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

void log_failure(int line) {
    const int error = errno;
    controller_log(log_error, "%s(%d): Error(%d):%s", "captive-portal-config", line, error,
                   std::strerror(error));
}

bool wait_until(int fd, std::int64_t deadline) {
    for (;;) {
        const std::int64_t left = deadline - now_milliseconds();
        if (left <= 0) return false;
        pollfd entry = {.fd = fd, .events = POLLIN, .revents = 0};
        const int ready = wait_for({&entry, 1}, static_cast<int>(left));
        if (ready > 0) return true;
        if (ready == 0 || errno != EINTR) return false;
    }
}

bool same_address(const sockaddr_in& a, const sockaddr_in& b) {
    return a.sin_family == b.sin_family && a.sin_port == b.sin_port &&
           a.sin_addr.s_addr == b.sin_addr.s_addr;
}

// Who sent the next datagram, which stays in the queue. Looked at first, since a stranger's bytes
// must not reach the reply buffer, not even behind a shorter reply.
bool peek_sender(int fd, sockaddr_in* sender) {
    socklen_t size = sizeof *sender;
    return recvfrom(fd, nullptr, 0, MSG_PEEK | MSG_DONTWAIT, reinterpret_cast<sockaddr*>(sender),
                    &size) >= 0;
}

// The first datagram that comes from `service`; what others send is dropped.
int receive_from(int fd, const sockaddr_in& service, void* reply, std::size_t capacity) {
    const std::int64_t deadline = now_milliseconds() + reply_milliseconds;
    while (wait_until(fd, deadline)) {
        sockaddr_in sender = {};
        const bool peeked = peek_sender(fd, &sender);
        const bool wanted = peeked && same_address(sender, service);
        const ssize_t got = peeked ? recv(fd, reply, wanted ? capacity : 0, MSG_DONTWAIT) : -1;
        if (got >= 0 && wanted) return static_cast<int>(got);
        // A datagram with a bad checksum wakes the poll and is gone: go on waiting.
        if (got >= 0 || errno == EAGAIN || errno == EINTR) continue;
        log_failure(__LINE__);
        return -1;
    }
    return -1;
}

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming): fixed name
int SendMsgBlock(const void* request, std::int32_t request_len, int port, void* reply,
                 std::int32_t reply_capacity) {
    sockaddr_in service = {};
    if (request_len < 0 || reply_capacity < 0 || client_has_left()) return -1;
    if (tp_socket_mkaddr(&service, paths::loopback_address, port, -1) != 0) return -1;
    const unique_fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd) return -1;
    if (sendto(fd.get(), request, static_cast<std::size_t>(request_len), MSG_NOSIGNAL,
               reinterpret_cast<const sockaddr*>(&service), sizeof service) < 0) {
        log_failure(__LINE__);
        return -1;
    }
    return receive_from(fd.get(), service, reply, static_cast<std::size_t>(reply_capacity));
}

// Peers that answer from within a target's own process: a thread takes one exchange after the other
// and answers each with what the target has prepared. They stand at the program's fixed places, so
// such a target needs the sandbox.
#pragma once

#include <arpa/inet.h>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "platform/ownership.h"
#include "platform/paths.h"

#include "runtime/socket.h"

#include "fuzz_input.h"

// Hands an exchange from the target to the peer's thread and back.
struct handover {
    std::mutex mutex;
    std::condition_variable changed;
    bool answered = false;

    void begin() {
        const std::lock_guard lock(mutex);
        answered = false;
    }
    // In the thread: from here on it sees what the target prepared.
    void enter() { const std::lock_guard lock(mutex); }
    void finish() {
        const std::lock_guard lock(mutex);
        answered = true;
        changed.notify_one();
    }
    void wait() {
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return answered; });
    }
};

// ---- the CLI helper

// What the helper does with one request.
struct helper_answer {
    std::string bytes;
    std::size_t piece = std::string::npos;         // most bytes sent at a time; above 0
    std::size_t request_read = std::string::npos;  // most bytes of the request that are read
};

inline std::string wire_word(std::size_t value) {
    const std::uint32_t word = htonl(static_cast<std::uint32_t>(value));
    return {reinterpret_cast<const char*>(&word), sizeof word};
}

inline std::string wire_field(std::string_view text) {
    return wire_word(text.size()).append(text);
}

struct helper_peer {
    unique_fd listener{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    helper_answer answer;
    std::string asked;  // the request, as far as it was read
    handover turn;
    std::jthread worker;

    helper_peer() {
        fuzz_require_sandbox();
        sockaddr_un addr = {};
        addr.sun_family = AF_UNIX;
        std::string_view(paths::cli_helper_socket).copy(addr.sun_path, sizeof addr.sun_path - 1);
        const auto* const generic = reinterpret_cast<const sockaddr*>(&addr);
        expect(bind(listener.get(), generic, sizeof addr) == 0 && listen(listener.get(), 8) == 0,
               "the helper's place is free");
        worker = std::jthread([this] { work(); });
    }
    ~helper_peer() { shutdown(listener.get(), SHUT_RDWR); }
    helper_peer(const helper_peer&) = delete;
    helper_peer& operator=(const helper_peer&) = delete;

    // Answers the one exchange that `run` makes. Returns the request, as far as it was read.
    template <class Exchange>
    const std::string& serve(helper_answer next, Exchange run) {
        answer = std::move(next);
        turn.begin();
        run();
        turn.wait();
        return asked;
    }

  private:
    void work() {
        for (;;) {
            // Waiting in accept(2) would hold a descriptor's number, which looks like a leak.
            pollfd entry = {.fd = listener.get(), .events = POLLIN, .revents = 0};
            if (poll(&entry, 1, -1) < 0) continue;
            unique_fd peer(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
            if (!peer) return;
            turn.enter();
            read_request(peer.get());
            send_answer(peer.get());
            peer.reset();
            turn.finish();
        }
    }
    // Reads on for `size` bytes, as far as the answer allows. Returns whether all are there.
    bool read_on(int fd, std::size_t size) {
        const std::size_t before = asked.size();
        const std::size_t wanted = std::min(size, answer.request_read - before);
        asked.resize(before + wanted);
        const ssize_t got = recv(fd, asked.data() + before, wanted, MSG_WAITALL);
        asked.resize(before + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        return asked.size() == before + size;
    }
    // Four fields, each of which tells its length.
    void read_request(int fd) {
        asked.clear();
        for (int field = 0; field < 4; ++field) {
            std::uint32_t length = 0;
            if (!read_on(fd, sizeof length)) return;
            std::memcpy(&length, asked.data() + asked.size() - sizeof length, sizeof length);
            if (length != 0 && !read_on(fd, ntohl(length))) return;
        }
    }
    void send_answer(int fd) const {
        for (std::string_view rest = answer.bytes; !rest.empty();) {
            const auto piece = rest.substr(0, answer.piece);
            if (send(fd, piece.data(), piece.size(), MSG_NOSIGNAL) < 0) return;
            rest.remove_prefix(piece.size());
        }
    }
};

// ---- a service on a UDP port of the loopback interface

// A text in a field of a block: cut to leave a NUL, and NULs behind it.
inline std::string block_field(std::string_view text, std::size_t size) {
    std::string field(text.substr(0, size - 1));
    field.resize(size);
    return field;
}

// A long reply that takes no long input: its beginning, many times over.
inline std::string repeated(std::string_view text, std::size_t times) {
    std::string out;
    for (; times > 0; --times)
        out += text;
    return out.substr(0, 60000);
}

struct service_peer {
    unique_fd fd;
    unique_fd stranger{tp_udp_connect(nullptr, 0, true)};
    std::vector<std::string_view> forged;  // sent by the stranger, before the service's answer
    std::string_view answer;
    std::string asked;
    handover turn;
    std::atomic<bool> ending = false;
    std::jthread worker;

    explicit service_peer(int port) {
        fuzz_require_sandbox();
        fd.reset(tp_udp_listen(port));
        expect(static_cast<bool>(fd), "the service's port is free");
        worker = std::jthread([this] { work(); });
    }
    // Shutting down wakes the thread, although the socket has no peer.
    ~service_peer() {
        ending = true;
        shutdown(fd.get(), SHUT_RDWR);
    }
    service_peer(const service_peer&) = delete;
    service_peer& operator=(const service_peer&) = delete;

    // Answers the one exchange that `run` makes. Returns the request.
    template <class Exchange>
    const std::string& serve(Exchange run) {
        turn.begin();
        run();
        turn.wait();
        return asked;
    }

  private:
    void work() {
        std::string query(65536, '\0');
        for (;;) {
            sockaddr_in from = {};
            const long got = tp_socket_read(fd.get(), query.data(), query.size(), &from, true);
            if (got < 0 || ending) return;
            turn.enter();
            asked = query.substr(0, static_cast<std::size_t>(got));
            const auto* const to = reinterpret_cast<const sockaddr*>(&from);
            for (const std::string_view lie : forged)
                sendto(stranger.get(), lie.data(), lie.size(), 0, to, sizeof from);
            sendto(fd.get(), answer.data(), answer.size(), 0, to, sizeof from);
            turn.finish();
        }
    }
};

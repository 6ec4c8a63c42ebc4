// A CLI helper for tests: listens where the program looks for it, takes one request and answers
// with the bytes that it was given, one at a time, complete or cut.
#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/paths.h"

#include "local_socket.h"

inline std::string wire_word(std::uint32_t value) {
    const std::uint32_t word = htonl(value);
    return {reinterpret_cast<const char*>(&word), sizeof word};
}

inline std::string wire_field(std::string_view text) {
    return wire_word(static_cast<std::uint32_t>(text.size())).append(text);
}

inline std::string wire_reply(std::string_view output, std::string_view message) {
    return wire_word(7) + wire_field(output) + wire_field(message);
}

struct fake_helper {
    unique_fd listener = bind_local(paths::cli_helper_socket, SOCK_STREAM);
    std::vector<std::string> fields;  // the request's, once finish() has returned
    std::thread worker;

    fake_helper() { EXPECT_EQ(listen(listener.get(), 5), 0); }
    fake_helper(const fake_helper&) = delete;
    fake_helper& operator=(const fake_helper&) = delete;
    ~fake_helper() {
        finish();
        unlink(paths::cli_helper_socket);
    }
    void answer(const std::string& reply) {
        worker = std::thread([this, reply] {
            const unique_fd peer(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
            std::uint32_t length = 0;
            while (fields.size() < 4 && recv(peer.get(), &length, 4, MSG_WAITALL) == 4) {
                std::string& field = fields.emplace_back(ntohl(length), '\0');
                static_cast<void>(recv(peer.get(), field.data(), field.size(), MSG_WAITALL));
            }
            for (const char byte : reply) {
                static_cast<void>(send(peer.get(), &byte, 1, MSG_NOSIGNAL));
            }
        });
    }
    void finish() {
        if (worker.joinable()) worker.join();
    }
    // True when somebody has connected who was not accepted yet.
    bool was_called() const {
        pollfd entry = {.fd = listener.get(), .events = POLLIN, .revents = 0};
        return poll(&entry, 1, 0) > 0;
    }
};

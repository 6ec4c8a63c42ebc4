// A controller on which every command takes so many milliseconds: the CLI helper, side by side or
// one command after the other, and the fast path. Prints "ready" when it serves, and runs until it
// is killed.
//
//   slow_helper side|serial MILLISECONDS
#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

#include "platform/ownership.h"
#include "platform/paths.h"

#include "runtime/socket.h"

namespace {

constexpr int rows = 16;  // of every reply

struct controller {
    bool side_by_side;
    std::chrono::milliseconds time;
    std::string output = "<re><t>";
    std::atomic<int> commands = 0;  // since it was asked last
};

std::string word(std::size_t value) {
    const std::uint32_t bytes = htonl(static_cast<std::uint32_t>(value));
    return {reinterpret_cast<const char*>(&bytes), sizeof bytes};
}

// The request's last field.
std::string read_command(int fd) {
    std::string field;
    for (int i = 0; i < 4; ++i) {
        std::uint32_t length = 0;
        static_cast<void>(recv(fd, &length, sizeof length, MSG_WAITALL));
        field.resize(ntohl(length));
        static_cast<void>(recv(fd, field.data(), field.size(), MSG_WAITALL));
    }
    return field;
}

void serve(controller* self, const unique_fd& peer) {
    std::string output = self->output;
    if (read_command(peer.get()) == "count") {
        output = std::to_string(self->commands.exchange(0));
    } else {
        ++self->commands;
        std::this_thread::sleep_for(self->time);
    }
    const std::string reply = word(0) + word(output.size()) + output + word(0);
    send(peer.get(), reply.data(), reply.size(), MSG_NOSIGNAL);
}

void serve_fast_path(controller* self) {
    const unique_fd fd(tp_udp_listen(paths::fast_path_port));
    char request[2048];
    for (;;) {
        sockaddr_in from = {};
        if (tp_socket_read(fd.get(), request, sizeof request, &from, true) < 0) std::exit(1);
        ++self->commands;
        std::this_thread::sleep_for(self->time);
        const auto* const to = reinterpret_cast<const sockaddr*>(&from);
        sendto(fd.get(), self->output.data(), self->output.size(), 0, to, sizeof from);
    }
}

unique_fd listen_for_commands() {
    unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", paths::cli_helper_socket);
    unlink(addr.sun_path);
    if (bind(fd.get(), reinterpret_cast<const sockaddr*>(&addr), sizeof addr) != 0) return {};
    if (listen(fd.get(), 64) != 0) return {};
    return fd;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    static controller self{.side_by_side = std::strcmp(argv[1], "side") == 0,
                           .time = std::chrono::milliseconds(std::atoi(argv[2]))};
    for (int i = 0; i < rows; ++i)
        self.output += "<r><c>row " + std::to_string(i) + "</c><c>of a reply</c></r>";
    self.output += "</t></re>";
    const unique_fd listener = listen_for_commands();
    if (!listener) return 1;
    std::thread(serve_fast_path, &self).detach();
    std::puts("ready");
    std::fflush(stdout);
    for (;;) {
        unique_fd peer(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!self.side_by_side) {
            serve(&self, peer);
            continue;
        }
        std::thread([](const unique_fd& taken) { serve(&self, taken); }, std::move(peer)).detach();
    }
}

// A controller on which every command takes so many milliseconds: the CLI helper, side by side or
// one command after the other, and the fast path. The command "commands" is answered at once, with
// those that came since it was asked last. Prints "ready" when it serves, and runs until it is
// killed.
//
//   slow_helper side|serial MILLISECONDS
#include <arpa/inet.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <utility>

#include "platform/ownership.h"
#include "platform/paths.h"

#include "runtime/socket.h"

namespace {

constexpr int rows = 16;  // of every reply

struct controller {
    bool side_by_side = false;
    std::chrono::milliseconds time{};
    std::string output = "<re><t>";
    std::mutex lock;       // of what is below
    std::string commands;  // since they were asked for, a line each
};

void note(controller* self, std::string_view command) {
    const std::scoped_lock held(self->lock);
    self->commands.append(command).append("\n");
}

std::string take_commands(controller* self) {
    const std::scoped_lock held(self->lock);
    return std::exchange(self->commands, {});
}

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
    const std::string command = read_command(peer.get());
    if (command == "commands") {
        output = take_commands(self);
    } else {
        note(self, command);
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
        note(self, "through the fast path");
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
    static controller self;
    self.side_by_side = std::strcmp(argv[1], "side") == 0;
    self.time = std::chrono::milliseconds(std::atoi(argv[2]));
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

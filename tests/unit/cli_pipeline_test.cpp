// Commands in flight together: helpers of every kind see them in their order, and each result comes
// back in its place.
#include <filesystem>
#include <poll.h>

#include "backend/command_batch.h"

#include "input_support.h"
#include "service_support.h"

namespace {

constexpr std::size_t command_count = 20;
constexpr std::size_t large_index = 2;  // a command that no socket takes at once
constexpr std::size_t never = command_count;
constexpr std::size_t most = 8;  // may be in flight

struct manners {
    const char* name;
    int queue;                   // of connections that were not taken yet
    std::size_t together = 1;    // so many are taken before any of them is answered
    std::size_t closes = never;  // this one is not answered
    bool has_stranger = false;   // the queue is full before the first command
};

std::string command(std::size_t index) {
    return "show " + std::to_string(index) + std::string(index == large_index ? 1 << 20 : 0, 'x');
}

// One thread: it answers a group last first, and no other is taken meanwhile.
struct queue_helper {
    manners way;
    unique_fd listener = bind_local(paths::cli_helper_socket, SOCK_STREAM);
    unique_fd stranger{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    pid_t client = gettid();
    std::vector<std::string> seen;
    std::jthread worker;

    explicit queue_helper(const manners& kind) : way(kind) {
        EXPECT_EQ(listen(listener.get(), way.queue), 0);
        if (way.has_stranger) {
            sockaddr_un addr = {};
            socklen_t size = sizeof addr;
            auto* const generic = reinterpret_cast<sockaddr*>(&addr);
            EXPECT_EQ(getsockname(listener.get(), generic, &size), 0);
            EXPECT_EQ(connect(stranger.get(), generic, size), 0);
        }
        worker = std::jthread([this] {
            if (way.has_stranger) await_call(client, SYS_connect);
            if (way.has_stranger) take();
            while (seen.size() < command_count)
                serve_group();
        });
    }
    unique_fd take() const {
        return unique_fd(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    }
    // The client waits, and has not sent another command.
    void expect_no_other() const {
        await_call(client, SYS_poll);
        pollfd queue = {.fd = listener.get(), .events = POLLIN, .revents = 0};
        EXPECT_EQ(poll(&queue, 1, 0), 0);
    }
    void serve_group() {
        std::vector<std::pair<unique_fd, std::string>> group;
        while (group.size() < way.together && seen.size() < command_count) {
            unique_fd peer = take();
            if (seen.size() == large_index) expect_no_other();  // before this one has been sent
            const std::vector<std::string> fields = read_request(peer.get());
            seen.push_back(fields.empty() ? "none" : fields.back());
            group.emplace_back(std::move(peer), seen.size() - 1 == way.closes
                                                    ? ""
                                                    : wire_reply("of " + seen.back(), "note"));
        }
        for (; !group.empty(); group.pop_back()) {
            // Until the oldest is answered, which comes last, its place is not free.
            if (way.together == most) expect_no_other();
            const auto& [peer, reply] = group.back();
            send(peer.get(), reply.data(), reply.size(), MSG_NOSIGNAL);
        }
    }
};

TEST(CliPipeline, HelpersOfEveryKindSeeTheOrderAndResultsComeBackInIt) {
    const manners kinds[] = {
        {.name = "one after the other", .queue = 8},
        {.name = "the first four together", .queue = 8, .together = 4},
        {.name = "all that may be in flight together", .queue = 8, .together = most},
        {.name = "a short queue", .queue = 1},
        {.name = "one that closes the third", .queue = 8, .together = 4, .closes = 2},
        {.name = "a queue that is full at first", .queue = 0, .has_stranger = true}};
    std::vector<std::string> sent;
    for (std::size_t i = 0; i < command_count; ++i)
        sent.push_back(command(i));
    session_record session = {};
    for (const manners& kind : kinds) {
        SCOPED_TRACE(kind.name);
        queue_helper helper(kind);
        command_batch batch(&session);
        std::size_t added = 0;
        for (std::size_t taken = 0; taken < command_count; ++taken) {
            for (; added < command_count && command_batch_has_room(batch); ++added)
                command_batch_add(&batch, sent[added]);
            const command_outcome outcome = command_batch_take(&batch);
            const bool is_closed = taken == kind.closes;
            EXPECT_EQ(outcome.complete, !is_closed);
            EXPECT_EQ(command_reply(outcome), is_closed ? "" : "of " + sent[taken]);
            EXPECT_STREQ(outcome.msg, is_closed ? "Failed to read socket: Success" : "note");
        }
        helper.worker.join();
        EXPECT_TRUE(helper.seen == sent);
    }
}

std::ptrdiff_t open_descriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

TEST(CliPipeline, WhatIsInFlightIsClosedWithTheBatch) {
    const unique_fd listener = bind_local(paths::cli_helper_socket, SOCK_STREAM);
    ASSERT_EQ(listen(listener.get(), 8), 0);
    const std::ptrdiff_t before = open_descriptors();
    session_record session = {};
    {
        command_batch batch(&session);
        while (command_batch_has_room(batch))
            command_batch_add(&batch, "show");
        EXPECT_EQ(open_descriptors(), before + std::ptrdiff_t{cli_in_flight_max});
    }
    EXPECT_EQ(open_descriptors(), before);
}

}  // namespace

// The two datagram services: what goes out, and whose answers are taken.
#include <functional>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "platform/paths.h"

#include "runtime/request.h"
#include "runtime/socket.h"

#include "backend/fast_path.h"
#include "backend/message_block.h"

#include "private_world.h"

namespace {

void send_to(int fd, const sockaddr_in& client, const std::string& text) {
    EXPECT_GE(tp_socket_write(fd, text.data(), text.size(), &client, true), 0);
}

// A service that takes one datagram and answers it when a stranger has done so first; or only the
// stranger answers.
struct datagram_service {
    unique_fd fd;
    std::string received;
    std::thread worker;

    datagram_service(int port, const char* forged, const std::string& reply, bool silent = false)
        : fd(tp_udp_listen(port)) {
        worker = std::thread([this, forged, reply, silent] {
            std::string datagram(65536, '\0');
            sockaddr_in client = {};
            const long got =
                tp_socket_read(fd.get(), datagram.data(), datagram.size(), &client, true);
            received = datagram.substr(0, static_cast<std::size_t>(got));
            const unique_fd stranger(tp_udp_connect(nullptr, 0, true));
            send_to(stranger.get(), client, forged);
            if (!silent) send_to(fd.get(), client, reply);
        });
    }
    datagram_service(const datagram_service&) = delete;
    datagram_service& operator=(const datagram_service&) = delete;
    ~datagram_service() { finish(); }
    // After it `received` may be read.
    void finish() {
        if (worker.joinable()) worker.join();
    }
};

// The output, or the message of a failure.
std::string run_fast_path(const std::string& user, const std::string& command) {
    char* text = nullptr;
    char msg[1024];
    std::int32_t length = 0;
    const int result = wuic_fpcli_execute(user.c_str(), std::string(40, 'r').c_str(),
                                          command.c_str(), &text, &length, msg, sizeof msg);
    const malloc_text owned(text);
    EXPECT_EQ(result, owned ? 0 : -1);
    return owned ? std::string(text, static_cast<std::size_t>(length)) : msg;
}

std::string padded(std::string text, std::size_t size) {
    text.resize(size);
    return text;
}

TEST(FastPath, OneDatagramOfFixedFieldsAndTheServicesReply) {
    const request_record request;
    datagram_service service(paths::fast_path_port, "<forged/>", std::string(5000, 'a'));
    EXPECT_EQ(run_fast_path(std::string(100, 'u'), std::string(2000, 'c')), std::string(4095, 'a'));
    service.finish();
    EXPECT_EQ(service.received, padded(std::string(63, 'u'), 64) +
                                    padded(std::string(32, 'r'), 33) + std::string(48, '\0') +
                                    padded(std::string(1023, 'c'), 1024));
}

TEST(FastPath, EmptyReplyAndMissingService) {
    const request_record request;
    const std::string head = "<re><ERROR>Error: receiving data from CLI, ";
    {
        const datagram_service service(paths::fast_path_port, "", "");
        EXPECT_EQ(run_fast_path("admin", "x"), head + "Success</ERROR></re>");
    }
    EXPECT_EQ(run_fast_path("admin", "x"), head + "Connection refused</ERROR></re>");
}

constexpr int port = paths::auth_service_port;
const std::string block("\0\1block\0", 8);

TEST(MessageBlock, OnlyTheServicesReplyReachesTheBuffer) {
    const request_record request;
    const std::string rows[][2] = {
        {"yes", "yes....."}, {"", "........"}, {"longer one", "longer o"}};
    for (const auto& [reply, expected] : rows) {
        std::string buffer(8, '.');
        datagram_service service(port, "FORGED BLOCK", reply);
        EXPECT_EQ(SendMsgBlock(block.data(), 8, port, buffer.data(), 8),
                  std::min(static_cast<int>(reply.size()), 8));
        EXPECT_EQ(buffer, expected);
        service.finish();
        EXPECT_EQ(service.received, block);
    }
}

TEST(MessageBlock, SilentServiceAndImpossibleSizes) {
    const request_record request;
    std::string buffer(8, '.');
    const datagram_service silent(port, "FORGED", "", true);
    EXPECT_EQ(SendMsgBlock(block.data(), 8, port, buffer.data(), 8), -1);
    EXPECT_EQ(SendMsgBlock(block.data(), -1, port, buffer.data(), 8), -1);
    EXPECT_EQ(SendMsgBlock(block.data(), 8, port, buffer.data(), -1), -1);
    EXPECT_EQ(SendMsgBlock(block.data(), 8, 65536 + port, buffer.data(), 8), -1);
    EXPECT_EQ(buffer, "........");
}

}  // namespace

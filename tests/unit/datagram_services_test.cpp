// The two datagram services: what goes out, and whose answers are taken.
#include "backend/fast_path.h"
#include "backend/message_block.h"

#include "service_support.h"

namespace {

TEST(FastPath, AClosedPortIsToldAtOnce) {
    const request_record request;
    char* text = nullptr;
    char msg[1024];
    std::int32_t length = 0;
    EXPECT_EQ(wuic_fpcli_execute("u", "r", "c", &text, &length, msg, sizeof msg), -1);
    EXPECT_STREQ(msg, "<re><ERROR>Error: receiving data from CLI, Connection refused</ERROR></re>");
}

TEST(MessageBlock, OnlyTheServicesReplyReachesTheBuffer) {
    constexpr int port = paths::auth_service_port;
    const request_record request;
    const std::string block("\0\1block\0", 8);
    struct {
        std::string reply;
        bool silent;
        int result;
        std::string buffer;
    } const rows[] = {{"yes", false, 3, "yes....."},
                      {"", false, 0, "........"},
                      {"longer one", false, 8, "longer o"},
                      {"", true, -1, "........"}};
    std::string buffer;
    for (const auto& row : rows) {
        buffer.assign(8, '.');
        fake_service service(port, "FORGED BLOCK", row.reply, row.silent);
        EXPECT_EQ(SendMsgBlock(block.data(), 8, port, buffer.data(), 8), row.result);
        EXPECT_EQ(buffer, row.buffer);
        EXPECT_EQ(service.asked(), block);
    }
    EXPECT_EQ(SendMsgBlock(block.data(), -1, port, buffer.data(), 8), -1);
    EXPECT_EQ(SendMsgBlock(block.data(), 8, port, buffer.data(), -1), -1);
}

}  // namespace

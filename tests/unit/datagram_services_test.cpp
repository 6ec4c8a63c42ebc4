// The two datagram services: what goes out, and whose answers are taken.
#include "backend/fast_path.h"
#include "backend/message_block.h"

#include "service_support.h"

namespace {

// The output, or the message of a failure.
std::string run_fast_path() {
    const request_record request;
    char* text = nullptr;
    char msg[1024];
    std::int32_t length = 0;
    const int result =
        wuic_fpcli_execute(std::string(100, 'u').c_str(), std::string(40, 'r').c_str(),
                           std::string(2000, 'c').c_str(), &text, &length, msg, sizeof msg);
    const malloc_text owned(text);
    EXPECT_EQ(result, owned ? 0 : -1);
    return owned ? std::string(text, static_cast<std::size_t>(length)) : msg;
}

TEST(FastPath, OneDatagramOfFixedFieldsAndTheServicesReply) {
    const std::string head = "<re><ERROR>Error: receiving data from CLI, ";
    const std::string request = padded(std::string(63, 'u'), 64) +
                                padded(std::string(32, 'r'), 81) +
                                padded(std::string(1023, 'c'), 1024);
    const std::pair<std::string, std::string> rows[] = {
        {std::string(5000, 'a'), std::string(4095, 'a')}, {"", head + "Success</ERROR></re>"}};
    for (const auto& [reply, outcome] : rows) {
        fake_service service(paths::fast_path_port, "<forged/>", reply);
        EXPECT_EQ(run_fast_path(), outcome);
        EXPECT_EQ(service.asked(), request);
    }
    EXPECT_EQ(run_fast_path(), head + "Connection refused</ERROR></re>");
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

// One exchange with the CLI helper: what is sent, and what every kind of reply becomes.
#include "backend/cli_helper.h"

#include "service_support.h"

namespace {

// "result|output|its length|message"
std::string run(const char* command) {
    char* text = nullptr;
    std::int32_t length = 0;
    char msg[64];
    const int result =
        wuic_cli_execute("admin", "10.0.0.1", "", command, &text, &length, msg, sizeof msg);
    const malloc_text owned(text);
    return std::to_string(result) + '|' + (owned ? text : "none") + '|' + std::to_string(length) +
           '|' + msg;
}

TEST(CliExchange, ManagementPasswordsNeverLeaveInClear) {
    const malloc_text hex(str_encrypt("s3cret"));
    const std::string head = "branch-config-group \"g\" $ mgmt-user bob root ";
    const std::string rows[][2] = {
        // an empty second text: refused
        {head + " s3cret and more", head + hex.get()},
        {"branch-config-group g mgmt-user bob root s3cret", ""},
        // The sixth space does not stand before the password: part of it would be sent.
        {"branch-config-group g $xmgmt-user bob root s3cret tail", ""},
        {" " + head + "s3cret", ""}};
    for (const auto& [command, sent] : rows) {
        fake_helper helper(wire_reply("", ""));
        const std::string outcome = run(command.c_str());
        EXPECT_EQ(outcome, sent.empty() ? "-1|none|0|Failed to configure mgmt-user." : "0|none|0|");
        EXPECT_EQ(helper.asked().empty() ? "" : helper.asked().back(), sent);
    }
}

TEST(CliExchange, AHelperThatWasRenamedOntoItsPlaceIsAsked) {
    fake_helper helper(wire_reply("here", ""), "/tmp/new.sock");
    ASSERT_EQ(rename("/tmp/new.sock", paths::cli_helper_socket), 0);
    EXPECT_EQ(run("show"), "0|here|4|");
}

TEST(CliExchange, AuditRecordsAreCutToTheirBuffer) {
    session_record session = {};
    std::strcpy(session.user, "bob");
    const std::string text = "wuic:audit?type=3&msg=" + std::string(2000, 'a');
    fake_helper helper(wire_reply("ignored", "ignored"));
    EXPECT_EQ(wuic_audit_trail(&session, 3, "%s", text.c_str() + 22), 0);
    EXPECT_EQ(helper.asked(), (std::vector<std::string>{"bob", "", "", text.substr(0, 1023)}));
}

}  // namespace

// One exchange with the CLI helper: what is sent, what every kind of reply becomes, and who is
// never talked to.
#include <climits>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "runtime/session_record.h"

#include "backend/cli_helper.h"

#include "fake_helper.h"
#include "private_world.h"

namespace {

constexpr char cut[] = "Failed to read socket: Success";
constexpr char nothing[] = "(none)";

struct outcome {
    int result;
    std::string text;  // `nothing` for a null output
    std::int32_t length;
    std::string msg;
    bool operator==(const outcome&) const = default;
};

std::ostream& operator<<(std::ostream& out, const outcome& seen) {
    return out << seen.result << " '" << seen.text << "' " << seen.length << " '" << seen.msg
               << "'";
}

outcome run(const char* command) {
    outcome seen = {};
    char* text = nullptr;
    char msg[64];
    seen.result = wuic_cli_execute("admin", "10.0.0.1", "", command, &text, &seen.length, msg, 64);
    const malloc_text owned(text);
    seen.text = owned ? text : nothing;
    seen.msg = msg;
    return seen;
}

TEST(CliExchange, RepliesOfEveryKind) {
    const std::string word = wire_word(0);
    const std::string largest(63, 'm');
    std::vector<std::pair<std::string, outcome>> rows = {
        {wire_reply("out", "note"), {0, "out", 3, "note"}},
        {wire_reply("", "note"), {0, nothing, 0, "note"}},
        {word + wire_word(0xFFFFFFFF) + wire_field("note"), {0, nothing, -1, "note"}},
        {word + wire_word(0x7FFFFFFF) + "abc", {-1, nothing, INT_MAX, cut}},
        {word + wire_field("out") + wire_word(0xFFFFFFFF), {0, "out", 3, ""}},
        {word + wire_field("out") + wire_word(0x7FFFFFFF), {-1, "out", 3, cut}},
        {wire_reply("out", largest), {0, "out", 3, largest}},
        {wire_reply("out", largest + "m"), {-1, "out", 3, cut}},
    };
    for (std::size_t sent = 0; sent < rows[0].first.size(); ++sent) {
        const char* const text = sent < 11 ? nothing : "out";  // a complete output stays
        rows.push_back({rows[0].first.substr(0, sent), {-1, text, sent < 8 ? 0 : 3, cut}});
    }
    for (const auto& [reply, expected] : rows) {
        fake_helper helper;
        helper.answer(reply);
        EXPECT_EQ(run("show clock"), expected) << "reply of " << reply.size() << " bytes";
        helper.finish();
        EXPECT_EQ(helper.fields, (std::vector<std::string>{"admin", "10.0.0.1", "", "show clock"}));
    }
    EXPECT_EQ(run("x").msg, "Failed to connect socket: No such file or directory");
}

// Exit status of a child that listens as an ordinary user: 0 when its caller left without a byte.
int stranger_listens(int ready) {
    if (setgid(65534) != 0 || setuid(65534) != 0) return 2;
    const fake_helper helper;
    if (write(ready, "r", 1) != 1) return 3;
    const unique_fd peer(accept(helper.listener.get(), nullptr, nullptr));
    char got = 0;
    return recv(peer.get(), &got, 1, 0) == 0 ? 0 : 4;
}

TEST(CliExchange, StrangersSocketGetsNothing) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) _exit(stranger_listens(ends[1]));
    char ready = 0;
    ASSERT_EQ(read(ends[0], &ready, 1), 1);
    EXPECT_EQ(run("show clock").msg, "Failed to connect socket: Permission denied");
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "the stranger was sent something";
}

TEST(CliExchange, ManagementPasswordsNeverLeaveInClear) {
    const malloc_text hex(str_encrypt("s3cret"));
    const std::string head = "branch-config-group \"g\" $ mgmt-user bob root ";
    const std::string rows[][2] = {
        // An empty second text: refused.
        {head + "s3cret", head + hex.get()},
        {head + " s3cret and more", head + hex.get()},
        {"branch-config-group g $ no mgmt-user bob", "branch-config-group g $ no mgmt-user bob"},
        {"mgmt-user bob root s3cret", "mgmt-user bob root s3cret"},
        {head, ""},
        {"branch-config-group g mgmt-user bob root s3cret", ""},
        {"branch-config-group g mgmt-user bob root s3cret $", ""},
        // The sixth space does not stand before the password: part of it would be sent.
        {"branch-config-group g $xmgmt-user bob root s3cret tail", ""},
        {" " + head + "s3cret", ""},
    };
    for (const auto& [command, sent] : rows) {
        fake_helper helper;
        if (!sent.empty()) helper.answer(wire_reply("", ""));
        const outcome seen = run(command.c_str());
        EXPECT_EQ(seen.msg, sent.empty() ? "Failed to configure mgmt-user." : "") << command;
        EXPECT_FALSE(helper.was_called());
        helper.finish();
        EXPECT_EQ(helper.fields.empty() ? "" : helper.fields.back(), sent);
    }
}

TEST(CliExchange, AuditRecordsAreCutToTheirBuffer) {
    session_record session = {};
    std::strcpy(session.user, "bob");
    const std::string text = "wuic:audit?type=3&msg=" + std::string(2000, 'a');
    fake_helper helper;
    helper.answer(wire_reply("ignored", "ignored"));
    EXPECT_EQ(wuic_audit_trail(&session, 3, "%s", text.c_str() + 22), 0);
    helper.finish();
    EXPECT_EQ(helper.fields, (std::vector<std::string>{"bob", "", "", text.substr(0, 1023)}));
}

}  // namespace

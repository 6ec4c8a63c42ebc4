// A browser's command before it is sent: what it says, who may send it; and what becomes of the
// reply.

#include "runtime/error_response.h"

#include "backend/command_policy.h"
#include "backend/query_endpoints.h"

#include "service_support.h"

namespace {

session_record of_role(std::string_view role) {
    session_record session{};
    session.found = true;
    role.copy(session.role, sizeof session.role - 1);
    return session;
}

// The first letters of the roles that may send it, a capital one for root.
std::string allowed_for(bool (*judge)(const session_record*, std::string_view),
                        std::string_view command) {
    std::string letters;
    for (const std::string_view role : {"root", "standard", "network-operations", "read-only",
                                        "ap-provisioning", "guest-provisioning"}) {
        const session_record session = of_role(role);
        const std::vector<char> exact(command.begin(), command.end());
        if (judge(&session, {exact.data(), exact.size()}))
            letters += role == "root" ? 'R' : role.front();
    }
    return letters;
}

using commands_by_roles = std::vector<std::pair<std::string, std::vector<std::string_view>>>;

TEST(CommandPolicy, InternalRequestsAreOpenByRole) {
    for (const auto& [roles, commands] : commands_by_roles{
             {"Rsnrag",
              {"", " \t", "show wuic:audit", "show \xC3\xA9", "wuic", "wuic:basic-info",
               "wuic:syscontact", "wuic:syslocation", "wuic:cache show roleinfo"}},
             {"Rsnra", {"wuic:exec-query?query=x"}},
             {"Rsnr", {"wuic:get-user-record?u", "wuic:get-all-user-records?"}},
             {"Rsn", {"wuic:write memory"}},
             {"Rsr", {"wuic:get-running-config?appid=8214", "wuic:telm?msgType=1", " WUIC:telm?x"}},
             {"R",
              {"wuic:", "wuic:basic-info?x=1", "wuic:BASIC-INFO", "wuic:cache showroleinfo",
               "wuic:get-running-config-clrtxt?appid=1", " \t wUiC:adduser?uid=x"}}}) {
        for (const std::string_view command : commands)
            EXPECT_EQ(allowed_for(command_is_permitted, command), roles) << command;
    }
}

// Whatever a command service counts as white space.
TEST(CommandPolicy, AFirstWordThatIsNotPrintableIsForNobody) {
    for (const std::string_view blank :
         {"\xC2\xA0", "\xC2\x85", "\xE3\x80\x80", "\xEF\xBB\xBF", "\x0B", "\x0C", "\x7F", "\x01"}) {
        for (const std::string front : {"", " \t", "x"}) {
            const std::string text = front + std::string(blank) + "wuic:get-running-config-clrtxt";
            EXPECT_EQ(allowed_for(command_is_permitted, text), "") << text;
            EXPECT_EQ(allowed_for(fast_path_is_permitted, text), "") << text;
        }
    }
}

TEST(CommandPolicy, TheFastPathTakesThreeWordsFromEverybody) {
    for (const auto& [roles, commands] :
         commands_by_roles{{"Rsnrag", {"show clock", " \tshow\tclock", "ping", "traceroute x"}},
                           {"Rs", {"", "showx", "Show clock", "reload show", " WUIC:telm?x"}},
                           {"R", {"wuic:audit"}}}) {
        for (const std::string_view command : commands)
            EXPECT_EQ(allowed_for(fast_path_is_permitted, command), roles) << command;
    }
}

// A record that some cookie left behind has no role, whatever stands in it.
TEST(CommandPolicy, WithoutASessionThereIsNoRole) {
    session_record stale = of_role("root");
    stale.found = false;
    EXPECT_FALSE(command_is_permitted(&stale, "wuic:basic-info"));
    EXPECT_FALSE(fast_path_is_permitted(&stale, "reload"));
}

TEST(SaveConfiguration, ReplacesTheResponseByItsOutcome) {
    const std::string rows[][3] = {
        {"<re/>", "", "<re><SUCCESS></SUCCESS></re>"},
        {"", "", "<re><SUCCESS></SUCCESS></re>"},
        {"<re/>", "disk <full>", "<re><ERROR>Error Saving Configuration</ERROR></re>"}};
    for (const auto& [output, message, body] : rows) {
        scoped_strbuf response;
        wms_strbuf_append(response, "old", 3);
        session_record session = of_role("root");
        fake_helper helper(wire_reply(output, message));
        EXPECT_EQ(saveConfiguration("", response, &session, nullptr, nullptr), 0);
        EXPECT_EQ(helper.asked().at(3), "wuic:write memory");
        EXPECT_EQ(text_of(response.buf), xml_header + body);
    }
}

}  // namespace

// Logging in over the JSON API, from what the helper is asked to the session.
#include <filesystem>
#include <fstream>

#include "auth/connection_info.h"
#include "auth/json_login.h"

#include "service_support.h"

namespace {

struct login : sessions {
    char role[64] = "root";
    char path[1025] = "old";
    char msg[1024] = "old";

    int check(const std::string& user, const std::string& password, const char* vap = nullptr,
              const char* extra = nullptr) {
        return wuic_auth_user(user.c_str(), password.c_str(), "1.2.3.4", "4711", nullptr, "443",
                              role, path, msg, vap != nullptr, vap, extra);
    }
};

TEST_F(login, the_reply_of_the_helper_decides) {
    const std::string r63(63, 'r');
    const std::string p1024(1024, 'p');
    struct {
        std::string output;
        int result;
        std::string granted;  // role and path
    } const table[] = {{"path=%2Fscreens&x=1&role=root", 1, "root/screens"},
                       {"role=" + r63 + "&path=" + p1024, 1, r63 + p1024},
                       {"role=r&path=p" + p1024, 0, ""},
                       {"role=&path=/", 0, ""},
                       {"role=root%2500x", 0, ""},
                       {"role=r&statelen=3&state=" + p1024.substr(0, 256), 0, ""},
                       {"statelen=3&state=a%2Bb&reply_message=PIN+please", 2, ""}};
    for (const auto& row : table) {
        const fake_helper helper(wire_reply(row.output, ""));
        EXPECT_EQ(check("admin", "secret"), row.result) << row.output;
        EXPECT_EQ(std::string(role) + path, row.granted) << row.output;
    }
    EXPECT_EQ(request.challenge.statelen, 3);
    EXPECT_STREQ(request.challenge.state, "a b");  // decoded as a form and once more
    EXPECT_STREQ(request.challenge.reply_message, "PIN please");
}

TEST_F(login, the_command_carries_what_was_typed_or_is_not_sent) {
    const std::string ends = "&srcip=1%2E2%2E3%2E4&srcport=4711&dstip=&dstport=443";
    const std::string u255(255, 'u');
    struct {
        std::string user, password;
        const char *vap, *extra;
        std::string command;  // empty: not sent
    } const table[] = {
        {"\xC3\xA9", "a\r\n&", nullptr, "e", "uid=%C3%A9&passwd=a%0D%0A%26" + ends},
        {u255, u255, "v", "x=1", "uid=" + u255 + "&passwd=" + u255 + ends + "&vap=v&mode=rac&x=1"},
        {u255 + "u", "b", nullptr, nullptr, ""},
        {u255, u255, u255.c_str(), u255.c_str(), ""}};
    for (const auto& row : table) {
        fake_helper helper(wire_reply("role=root", ""));
        const bool sent = !row.command.empty();
        EXPECT_EQ(check(row.user, row.password, row.vap, row.extra), sent ? 1 : 0) << row.user;
        const std::string asked = helper.asked().empty() ? "" : helper.asked().back();
        EXPECT_EQ(asked, sent ? "wuic:auth?" + row.command : "");
    }
}

TEST_F(login, only_a_whole_and_accepted_login_makes_a_session) {
    const char* const form = "username=O%27Brien&password=p%26w";
    const char* const failed = "authentication failed";
    struct {
        const char *form, *login, *output, *status_text;
    } const table[] = {{form, nullptr, "role=r", "logged in successfully"},
                       {form, "/rac/login/x", "role=r", "rac user not allowed"},
                       {"username=root%00x&password=p", "/login", "role=r", failed},
                       {"username=root&password=p%00", "/login", "role=r", failed},
                       {form, "/login", "role=root&statelen=1", failed}};
    for (const auto& row : table) {
        request_record own;
        std::string body = row.form;
        set_variables(&own, {{"QORIN_AUTH_LOGIN_CGI", row.login}});
        ASSERT_EQ(cgi_parse_ii(&own.input, body.data(), static_cast<int>(body.size()), 0), 0);
        sql("DELETE FROM http_session");
        const fake_helper helper(wire_reply(row.output, ""));
        EXPECT_EQ(api_login_internal(&own.response, db.get(), &own.input), 0);
        EXPECT_NE(text_of(own.response).find(row.status_text), std::string::npos) << row.form;
        EXPECT_EQ(sql("SELECT string_agg(_user || role || admin, '') FROM http_session"),
                  std::strstr(row.status_text, "success") != nullptr ? "O'Brienr1" : "");
    }
}

TEST_F(login, a_controller_that_is_not_set_up_refuses_and_says_so) {
    const log_recorder recorder;
    request_record own;
    ASSERT_TRUE(std::ofstream(paths::factory_default_marker));
    set_variables(&own, {{"REMOTE_ADDR", "192.0.2.300"}});
    EXPECT_EQ(api_login_internal(&own.response, db.get(), &own.input), 0);
    std::filesystem::remove(paths::factory_default_marker);
    EXPECT_NE(text_of(own.response).find("factory default state"), std::string::npos);
    std::string last;
    for (std::string line = recorder.next(); !line.empty(); line = recorder.next())
        last = line;
    EXPECT_EQ(last, "<85>login refused: address=- reason=factory-default user=\"\"");
}

TEST(connection_info, is_bounded_and_https_means_anything_but_on) {
    request_record request;
    connection_info got;
    for (const auto& [https, flag] : {std::pair{"on", "0"}, {"", "1"}}) {
        set_variables(&request, {{"HTTPS", https}, {"REMOTE_ADDR", std::string(40, '1').c_str()}});
        wuic_get_connection_info(&request.input, &got);
        EXPECT_EQ(got.remote_addr + std::to_string(got.https_flag), std::string(31, '1') + flag);
    }
}

}  // namespace

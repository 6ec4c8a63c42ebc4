// Logging in over the JSON API: the password check against a helper on the real socket, the
// answers, and the session that is left in the database.
#include <cstring>
#include <future>
#include <sys/socket.h>
#include <sys/un.h>

#include "auth/field.h"
#include "auth/json_login.h"

#include "auth_support.h"

namespace {

std::string field(const std::string& text) {
    const std::size_t n = text.size();
    return std::string{0, 0, static_cast<char>(n >> 8U), static_cast<char>(n)} + text;
}

std::string read_field(int fd) {
    unsigned char n[4] = {};
    ::recv(fd, n, sizeof n, MSG_WAITALL);
    std::string text((std::size_t{n[2]} << 8U) + n[3], '\0');
    ::recv(fd, text.data(), text.size(), MSG_WAITALL);
    return text;
}

// The CLI helper for one exchange.
struct helper {
    unique_fd listener{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    std::future<std::string> request;

    helper(const std::string& output, const std::string& message) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        field_copy(address.sun_path, paths::cli_helper_socket);
        ::unlink(address.sun_path);
        EXPECT_EQ(::bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(listener.get(), 1), 0);
        request = std::async(std::launch::async, [this, reply = field(output) + field(message)] {
            const unique_fd peer{::accept(listener.get(), nullptr, nullptr)};
            if (!peer) return std::string();
            std::string asked;  // user, address and identifier, which are empty, and the command
            for (int i = 0; i < 4; ++i)
                asked += read_field(peer.get());
            ::send(peer.get(), ("word" + reply).data(), 4 + reply.size(), MSG_NOSIGNAL);
            return asked;
        });
    }
    // What was asked; empty when nobody came.
    std::string asked() {
        ::shutdown(listener.get(), SHUT_RDWR);
        return request.get();
    }
};

struct login : sessions {
    char role[64] = "root";
    char path[1025] = "old";
    char msg[1024] = "old";
    std::string asked;

    int check(const std::string& user, const std::string& password, const std::string& output,
              const std::string& message, const char* vap = nullptr, const char* extra = nullptr) {
        helper peer(output, message);
        const int result =
            wuic_auth_user(user.c_str(), password.c_str(), "1.2.3.4", "4711", nullptr, "443", role,
                           path, msg, vap != nullptr, vap, extra);
        asked = peer.asked();
        return result;
    }
};

TEST_F(login, the_reply_of_the_helper_decides) {
    const std::string r63(63, 'r');
    const std::string p1024(1024, 'p');
    struct {
        std::string output, message;
        int result;
        std::string granted;  // role and path
    } const table[] = {
        {"path=%2Fscreens&x=1&role=root", "", 1, "root/screens"},
        {"", "", 0, ""},
        {"role=root&path=/", "locked", 0, ""},
        {"role=&path=/", "", 0, ""},
        {"role=" + r63 + "&path=" + p1024, "", 1, r63 + p1024},
        {"role=r" + r63, "", 0, ""},
        {"role=r&path=p" + p1024, "", 0, ""},
        {"role=root%2500x", "", 0, ""},
        {"role=r&statelen=3&state=" + p1024.substr(0, 256), "", 0, ""},
        {"statelen=3&state=a%2Bb&reply_message=PIN+please", "", 2, ""},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.output);
        EXPECT_EQ(check("admin", "secret", row.output, row.message), row.result);
        EXPECT_EQ(std::string(role) + path, row.granted);
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
        std::string command;
    } const table[] = {
        {"\xC3\xA9", "a\r\n&", nullptr, "e", "uid=%C3%A9&passwd=a%0D%0A%26" + ends},
        {"a", "b", "", nullptr, "uid=a&passwd=b" + ends + "&vap=&mode=rac"},
        {u255, u255, "v", "x=1", "uid=" + u255 + "&passwd=" + u255 + ends + "&vap=v&mode=rac&x=1"},
        {u255 + "u", "b", nullptr, nullptr, ""},
        {"a", std::string(86, '\''), nullptr, nullptr, ""},
        {u255, u255, u255.c_str(), u255.c_str(), ""},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.user + " " + row.password);
        const bool sent = !row.command.empty();
        EXPECT_EQ(check(row.user, row.password, "role=root", "", row.vap, row.extra), sent ? 1 : 0);
        EXPECT_EQ(asked, sent ? "wuic:auth?" + row.command : "");
        EXPECT_STREQ(role, sent ? "root" : "");
    }
}

std::string text_of(const wms_strbuf& buffer) {
    return {buffer.data, static_cast<std::size_t>(buffer.length)};
}

TEST_F(login, the_writer_falls_back_to_200_and_cuts_the_document) {
    api_write_json_response(&request.response, 500, 1, std::string(5000, 't').c_str(), nullptr,
                            nullptr);
    const std::string text = text_of(request.response);
    EXPECT_EQ(text.substr(0, text.find(';')), "Status: 200 OK\r\nSet-Cookie: =(null)");
    EXPECT_EQ(text.size() - text.find("\r\n\r\n") - 4, 1023U + 2);
}

TEST_F(login, only_a_whole_and_accepted_login_makes_a_session) {
    const char* const form = "username=O%27Brien&password=p%26w";
    const char* const failed = "authentication failed";
    struct {
        const char *form, *redirect_cookie, *redirect_login, *login, *output, *status_text;
    } const table[] = {
        {form, "S", "/login", "/rac/login", "role=r", "logged in successfully"},
        {form, nullptr, "/rac/login", "/login", "role=r", "logged in successfully"},
        {form, nullptr, nullptr, nullptr, "role=r", "logged in successfully"},
        {form, "S", "/rac/login/x", "/login", "role=r", "rac user not allowed"},
        {"username=root%00x&password=p", nullptr, nullptr, "/login", "role=r", failed},
        {"username=root&password=p%00", nullptr, nullptr, "/login", "role=r", failed},
        {form, nullptr, nullptr, "/login", "role=root&statelen=1", failed},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(testing::Message() << "login " << &row - table);
        request_record own;
        const std::pair<const char*, const char*> variables[] = {
            {"REDIRECT_QORIN_AUTH_COOKIE_NAME", row.redirect_cookie},
            {"REDIRECT_QORIN_AUTH_LOGIN_CGI", row.redirect_login},
            {"REDIRECT_QORIN_AUTH_LOGOUT_CGI", "/logout"},
            {"QORIN_AUTH_LOGIN_CGI", row.login}};
        for (const auto& [name, value] : variables) {
            ASSERT_EQ(cgi_set_var(&own.input, name, value), 0);
        }
        std::string body = row.form;
        ASSERT_EQ(cgi_parse_ii(&own.input, body.data(), static_cast<int>(body.size()), 0), 0);
        sql("DELETE FROM http_session");
        helper peer(row.output, "");
        EXPECT_EQ(api_login("/v1/api/login", &own.response, &own.session, db.get(), &own.input), 0);
        static_cast<void>(peer.asked());
        EXPECT_NE(text_of(own.response).find(row.status_text), std::string::npos);
        EXPECT_EQ(sql("SELECT string_agg(_user || role || admin, '') FROM http_session"),
                  std::strstr(row.status_text, "success") != nullptr ? "O'Brienr1" : "");
    }
}

// The dispatcher answers these before they come here.
TEST_F(login, the_factory_default_state_and_a_missing_session_change_nothing) {
    factory_default(true);
    EXPECT_EQ(api_login_internal(&request.response, db.get(), &request.input), 0);
    factory_default(false);
    EXPECT_NE(text_of(request.response).find("controller in factory default state"),
              std::string::npos);
    ASSERT_EQ(create("10.0.0.1", "admin", "root"), 0);
    sid.copy(request.session.sid, sizeof request.session.sid - 1);
    EXPECT_EQ(api_logout_internal(&request.response, db.get(), &request.session), 0);
    EXPECT_EQ(get_session_count(db.get()), 1);
}

}  // namespace

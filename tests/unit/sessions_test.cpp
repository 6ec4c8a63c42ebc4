// Sessions in a real database: what is stored comes back, and nothing that a client sends gets
// beyond its literal.
#include <arpa/inet.h>
#include <ctime>
#include <future>
#include <sys/socket.h>

#include "auth/cert_path.h"

#include "auth_support.h"

namespace {

TEST_F(sessions, hostile_identifiers_find_and_remove_nothing) {
    const std::string longest(63, 'a');
    ASSERT_EQ(create("10.0.0.1", "admin", "root"), 0);
    sql("UPDATE http_session SET sid = '" + longest + "'");
    session_record record;
    for (const std::string& id :
         {std::string("x' OR '1'='1"), std::string(R"(\' OR 1=1 --)"), std::string(R"(\)"),
          std::string(R"(\\' OR '1'='1)"), std::string("\xC0' OR '1'='1"), std::string("%"),
          longest + "b", longest + "' OR '1'='1", std::string(70, '\'')}) {
        SCOPED_TRACE(id);
        EXPECT_EQ(retrieve(record, id), -1);
        EXPECT_FALSE(record.found);
        EXPECT_STREQ(record.role, "");
        EXPECT_EQ(record.sid, id.substr(0, 63));
        static_cast<void>(wuic_session_delete(db.get(), id.c_str()));
        EXPECT_EQ(get_session_count(db.get()), 1);
    }
}

TEST_F(sessions, texts_come_back_as_they_were_stored) {
    for (const std::string text : {"O'Brien", R"(back\slash)", R"(\'); DROP TABLE http_session --)",
                                   R"("quoted" 100% %s)", "J\u00FCrgen \u540D", R"(end\)"}) {
        SCOPED_TRACE(text);
        ASSERT_EQ(create("10.1.2.3", text, text, false, text), 0);
        ASSERT_EQ(cgi_set_var(&request.input, "QORIN_AUTH_SESSION_ID", sid.c_str()), 0);
        session_record record;
        ASSERT_EQ(wuic_session_retrieve(db.get(), &request.input, &record, nullptr), 0);
        EXPECT_TRUE(record.found);
        EXPECT_EQ(record.sid, sid);
        EXPECT_STREQ(record.ip, "10.1.2.3");
        for (const char* got : {record.user, record.role, record.path})
            EXPECT_EQ(got, text);
        EXPECT_EQ(record.admin, 1);
        EXPECT_EQ(record.created_time, record.modified_time);
        EXPECT_LT(std::time(nullptr) - static_cast<std::time_t>(record.created_time), 86400);
    }
}

TEST_F(sessions, a_user_or_role_is_never_cut) {
    const std::string longest(127, 'n');
    session_record record;
    EXPECT_EQ(create("10.0.0.1", longest + "n", "root"), -1);
    EXPECT_EQ(create("10.0.0.1", "admin", longest + "n"), -1);
    EXPECT_EQ(create(std::string(64, '\''), "admin", "root"), -1);
    ASSERT_EQ(create(std::string(60, '1'), longest, longest, false, std::string(256, 'p')), 0);
    ASSERT_EQ(retrieve(record, sid), 0);
    EXPECT_EQ(std::string(record.ip) + record.user + record.path, std::string(31, '1') + longest);
    sql("UPDATE http_session SET role = repeat('r', 128)");  // as another service might
    EXPECT_EQ(retrieve(record, sid), -1);
    EXPECT_EQ(get_session_count(db.get()), 1);
}

TEST_F(sessions, the_factory_default_state_gives_root_but_wants_an_identifier) {
    ASSERT_EQ(create("10.0.0.1", "guest", "read-only"), 0);
    for (const bool on : {true, false}) {
        SCOPED_TRACE(on);
        factory_default(on);
        session_record record;
        EXPECT_EQ(wuic_session_retrieve(db.get(), &request.input, &record, nullptr), -1);
        EXPECT_EQ(retrieve(record, ""), -1);
        EXPECT_FALSE(record.found);
        EXPECT_EQ(retrieve(record, "unknown"), on ? 0 : -1);
        EXPECT_EQ(record.found, on);
        EXPECT_EQ(std::string(record.role) + record.user, on ? "root" : "");
        EXPECT_EQ(retrieve(record, sid), 0);
        EXPECT_STREQ(record.role, on ? "root" : "read-only");
    }
}

TEST_F(sessions, the_limit_holds_and_a_failing_database_makes_no_session) {
    sql("INSERT INTO http_session SELECT n, '', '', '', '', now(), now(), 1, '' "
        "FROM generate_series(1, 63) n");
    EXPECT_EQ(create("10.0.0.1", "admin", "root"), 0);
    EXPECT_EQ(create("10.0.0.1", "admin", "root"), -2);
    EXPECT_EQ(create("10.0.0.1", "admin", "root", true), -2);
    EXPECT_EQ(get_session_count(db.get()), 64);

    sql("DELETE FROM http_session WHERE sid <> '5'; BEGIN");
    sql("SELECT 1/0");  // from here on every statement fails
    session_record record;
    EXPECT_EQ(retrieve(record, "5"), -1);
    EXPECT_EQ(get_session_count(db.get()), -1);
    EXPECT_EQ(create("10.0.0.1", "admin", "root"), -1);
    EXPECT_EQ(wuic_session_delete(db.get(), "5"), -1);
}

// The remote-access service: answers one query with `reply`; the query as it came.
std::string answer_once(int fd, const std::string& reply) {
    std::string query(512, '\0');
    sockaddr_in from{};
    socklen_t from_len = sizeof from;
    auto* const peer = reinterpret_cast<sockaddr*>(&from);
    const ssize_t n = ::recvfrom(fd, query.data(), query.size(), 0, peer, &from_len);
    ::sendto(fd, reply.data(), reply.size(), 0, peer, from_len);
    return query.substr(0, n > 0 ? static_cast<std::size_t>(n) : 0);
}

std::string field(std::string text, std::size_t size) {
    text.resize(size);
    return text;
}

TEST_F(sessions, a_remote_access_client_gets_a_session_when_the_service_says_connected) {
    const unique_fd service{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    sockaddr_in address{AF_INET, htons(8227), {htonl(INADDR_LOOPBACK)}, {}};
    ASSERT_EQ(::bind(service.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    session_record record;
    ASSERT_EQ(cgi_set_var(&request.input, "SERVER_ADDR", "192.0.2.1"), 0);
    EXPECT_EQ(wuic_is_valid_vpn_session(db.get(), &request.input, &record), 0);  // asks nobody
    ASSERT_EQ(cgi_set_var(&request.input, "REMOTE_ADDR", "198.51.100.7"), 0);

    const std::string yes("####\1\0\0\0", 8);
    struct {
        std::string reply;
        int result;
        std::string names;  // user and role
    } const table[] = {
        {yes + field("eve'\\", 248) + field("vpn", 64), 1, "eve'\\vpn"},
        {yes + field("eve", 248) + std::string(64, 'r'), 1, "eve" + std::string(63, 'r')},
        {yes + std::string(248, 'u') + field("vpn", 64), 0, ""},  // no record holds that user
        {yes, 1, ""},
        {yes.substr(0, 7), 0, ""},
        {std::string("####\0\0\0\0", 8) + field("eve", 248) + field("root", 64), 0, ""},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(testing::Message() << "reply " << &row - table);
        sql("DELETE FROM http_session");
        record = {};
        auto query = std::async(std::launch::async, answer_once, service.get(), row.reply);
        EXPECT_EQ(wuic_is_valid_vpn_session(db.get(), &request.input, &record), row.result);
        EXPECT_EQ(query.get(),
                  std::string("M\0\0\0", 4) + field("192.0.2.1", 64) + field("198.51.100.7", 64));
        EXPECT_EQ(record.found, row.result == 1);
        EXPECT_EQ(std::string(record.user) + record.role, row.names);
        EXPECT_EQ(sql("SELECT string_agg(sid || ip || _user || role || admin || path, '') "
                      "FROM http_session"),
                  row.result == 1 ? record.sid + ("198.51.100.7" + row.names) + "0N/A" : "");
    }
}

TEST_F(sessions, certificate_paths_are_walked_by_id) {
    db = database_connect(paths::db_user);
    sql("DELETE FROM cert_path; INSERT INTO cert_path VALUES (7, 'b', repeat('p', 600)), "
        "(3, 'a', '/c/a')");
    cert_path_record record{};
    EXPECT_EQ(retrive_ca_cert_name(-1, &record), -1);
    ASSERT_EQ(retrive_ca_cert_name(0, &record), 0);
    EXPECT_EQ(record.id, 3);
    EXPECT_STREQ(record.path, "/c/a");
    ASSERT_EQ(retrive_ca_cert_name(record.id, &record), 0);
    EXPECT_STREQ(record.name, "b");
    EXPECT_EQ(record.path, std::string(511, 'p'));
    EXPECT_EQ(retrive_ca_cert_name(record.id, &record), -1);
    sql("DELETE FROM cert_path");
}

}  // namespace

// Sessions in a real database: what is stored comes back, and nothing that a client sends gets
// beyond its literal.
#include "auth/cert_path.h"

#include "service_support.h"

namespace {

TEST_F(sessions, texts_come_back_as_they_were_stored_and_names_are_never_cut) {
    const std::string longest(127, 'n');
    for (const std::string& text :
         {std::string("O'Brien"), std::string(R"(\'); DROP TABLE http_session --)"),
          std::string(R"("quoted" 100% %s)"), std::string(R"(end\)"), longest}) {
        ASSERT_EQ(create(std::string(60, '1'), text, text, text), 0);
        set_variables(&request, {{"QORIN_AUTH_SESSION_ID", sid.c_str()}});
        session_record record;
        ASSERT_EQ(wuic_session_retrieve(db.get(), &request.input, &record, nullptr), 0);
        EXPECT_TRUE(record.found && record.admin == 1);
        EXPECT_EQ(std::string(record.ip) + record.sid, std::string(31, '1') + sid);
        for (const char* got : {record.user, record.role, record.path})
            EXPECT_EQ(got, text);
        EXPECT_EQ(record.created_time, record.modified_time);
        EXPECT_LT(std::time(nullptr) - static_cast<std::time_t>(record.created_time), 86400);
    }
    EXPECT_EQ(create("10.0.0.1", longest + "n", "root"), -1);
    EXPECT_EQ(create("10.0.0.1", "admin", longest + "n"), -1);
    EXPECT_EQ(create(std::string(64, '\''), "admin", "root"), -1);
    EXPECT_EQ(get_session_count(db.get()), 5);
    sql("UPDATE http_session SET role = repeat('r', 128)");  // as another service might
    session_record record;
    EXPECT_EQ(wuic_session_retrieve(db.get(), &request.input, &record, sid.c_str()), -1);
}

TEST_F(sessions, the_limit_holds_and_a_failing_database_makes_no_session) {
    sql("INSERT INTO http_session SELECT n, '', '', '', '', now(), now(), 1, '' "
        "FROM generate_series(1, 63) n");
    EXPECT_EQ(create("10.0.0.1", "admin", "root"), 0);
    EXPECT_EQ(create("10.0.0.1", "admin", "root"), -2);
    EXPECT_EQ(get_session_count(db.get()), 64);

    sql("DELETE FROM http_session WHERE sid <> '5'; BEGIN");
    sql("SELECT 1/0");  // from here on every statement fails
    session_record record;
    EXPECT_EQ(wuic_session_retrieve(db.get(), &request.input, &record, "5"), -1);
    EXPECT_EQ(get_session_count(db.get()), -1);
    EXPECT_EQ(wuic_session_delete(db.get(), "5"), -1);
}

// The database fails at one statement after the other; none of them leaves a trace.
TEST_F(sessions, a_creation_that_fails_is_undone_and_ends_its_transaction) {
    const std::string refuse =
        "CREATE FUNCTION refuse() RETURNS trigger LANGUAGE plpgsql AS "
        "'BEGIN RAISE EXCEPTION ''% fails'', TG_OP; END'; CREATE ";
    struct {
        std::string before, after, reason;
    } const table[] = {
        {"BEGIN; SELECT 1/0", "", "current transaction is aborted"},
        {"ALTER TABLE http_session RENAME TO aside", "ALTER TABLE aside RENAME TO http_session",
         "relation \"http_session\" does not exist"},
        {refuse + "TRIGGER t BEFORE DELETE ON http_session EXECUTE FUNCTION refuse()",
         "DROP FUNCTION refuse CASCADE", "DELETE fails"},
        {"ALTER TABLE http_session ADD CONSTRAINT nobody CHECK (_user = '') NOT VALID",
         "ALTER TABLE http_session DROP CONSTRAINT nobody", "violates check constraint"},
        {refuse + "CONSTRAINT TRIGGER t AFTER INSERT ON http_session DEFERRABLE INITIALLY DEFERRED "
                  "FOR EACH ROW EXECUTE FUNCTION refuse()",
         "DROP FUNCTION refuse CASCADE", "INSERT fails"}};
    ASSERT_EQ(create("10.0.0.1", "admin", "root"), 0);
    for (const auto& row : table) {
        for (const bool rac : {false, true}) {
            sql(row.before);
            EXPECT_EQ(create("10.0.0.1", "admin", "root", "/", rac), -1) << row.reason;
            EXPECT_NE(reason.find(row.reason), std::string::npos) << reason << rac;
            EXPECT_EQ(PQtransactionStatus(db.get()), PQTRANS_IDLE) << row.reason;
            sql(row.after);
            EXPECT_EQ(get_session_count(db.get()), 1) << row.reason;
        }
    }
}

TEST_F(sessions, a_remote_access_client_gets_a_session_when_the_service_says_connected) {
    set_variables(&request, {{"SERVER_ADDR", "192.0.2.1"}, {"REMOTE_ADDR", "198.51.100.7"}});
    const std::string yes("####\1\0\0\0", 8);
    struct {
        std::string reply, names;  // user and role; none: no session
    } const table[] = {
        {yes + padded("eve'\\", 248) + padded("vpn", 64), "eve'\\vpn"},
        {yes + padded("eve", 248) + std::string(64, 'r'), "eve" + std::string(63, 'r')},
        {yes + std::string(248, 'u') + padded("vpn", 64), ""},  // no record holds that user
        {yes.substr(0, 7), ""},
        {std::string("####\0\0\0\0", 8) + padded("eve", 248) + padded("root", 64), ""}};
    for (const auto& row : table) {
        sql("DELETE FROM http_session");
        session_record record = {};
        fake_service service(paths::auth_service_port, "####\1\1\1\1forged", row.reply);
        const bool valid = !row.names.empty();
        EXPECT_EQ(wuic_is_valid_vpn_session(db.get(), &request.input, &record), valid ? 1 : 0)
            << row.names;
        EXPECT_EQ(service.asked(),
                  padded("M", 4) + padded("192.0.2.1", 64) + padded("198.51.100.7", 64));
        EXPECT_EQ(record.found, valid);
        EXPECT_EQ(std::string(record.user) + record.role, row.names);
        EXPECT_EQ(sql("SELECT sid || ip || _user || role || admin || path FROM http_session"),
                  valid ? record.sid + ("198.51.100.7" + row.names) + "0N/A" : "");
    }
}

TEST_F(sessions, certificate_paths_are_walked_by_id) {
    db = database_connect(paths::db_user);
    sql("DELETE FROM cert_path; INSERT INTO cert_path VALUES (7, 'b', repeat('p', 600)), "
        "(3, 'a', '/c/a')");
    cert_path_record record{};
    EXPECT_EQ(retrive_ca_cert_name(-1, &record), -1);
    ASSERT_EQ(retrive_ca_cert_name(0, &record), 0);
    ASSERT_EQ(retrive_ca_cert_name(record.id, &record), 0);
    EXPECT_EQ(record.name + std::string(record.path), "b" + std::string(511, 'p'));
    EXPECT_EQ(retrive_ca_cert_name(record.id, &record), -1);
    sql("DELETE FROM cert_path");
}

}  // namespace

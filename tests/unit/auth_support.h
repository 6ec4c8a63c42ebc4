// What the tests of sessions and logins share: the real database and the factory-default marker.
// REQUIRES: no other test runs at the same time.
#pragma once

#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/ownership.h"
#include "platform/paths.h"

#include "runtime/database.h"
#include "runtime/request.h"

#include "auth/session_store.h"

struct sessions : testing::Test {
    request_record request;
    scoped_strbuf scratch;
    db_conn db;
    std::string sid;  // of the session that was created last

    void SetUp() override {
        database_init();
        db = database_connect(paths::db_wms);
        ASSERT_TRUE(database_is_open(db)) << database_error(db.get());
        sql("DELETE FROM http_session");
        factory_default(false);
    }
    // Runs statements of the test's own; the first value of the last result.
    std::string sql(const std::string& statements) const {
        const db_result result{PQexec(db.get(), statements.c_str())};
        return PQntuples(result.get()) > 0 ? PQgetvalue(result.get(), 0, 0) : "";
    }
    static void factory_default(bool on) {
        ::mkdir("/flash/config", 0755);
        ::unlink(paths::factory_default_marker);
        if (on) unique_fd(::creat(paths::factory_default_marker, 0644));
    }
    int create(const std::string& ip, const std::string& user, const std::string& role,
               bool rac = false, const std::string& path = "/") {
        sid.assign(session_sid_size, '\0');
        const int result = wuic_session_create(db.get(), scratch, sid.data(), ip.c_str(),
                                               user.c_str(), role.c_str(), rac, path.c_str());
        sid.resize(sid.find('\0'));
        return result;
    }
    int retrieve(session_record& record, const std::string& id) const {
        return wuic_session_retrieve(db.get(), &request.input, &record, id.c_str());
    }
};

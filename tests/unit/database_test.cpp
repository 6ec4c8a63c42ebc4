// The controller's databases: opened side by side and reported in order.
#include "service_support.h"

namespace {

using namespace std::string_literals;

// A message of the PostgreSQL protocol, version 3: type, length, body.
std::string message(char type, const std::string& body) {
    return type + wire_word(body.size() + 4) + body;
}

std::string welcome(const char* setting) {
    return message('R', "\0\0\0\0"s) +
           message('S', "standard_conforming_strings\0"s + setting + "\0"s) + message('Z', "I");
}

const std::string refusal = message('E', "SFATAL\0C28000\0Mno <entry>\0\0"s);

// Greets nobody before all have come, so whoever opens one after the other waits for ever; the
// first one is greeted last. A query is answered as if it had been obeyed.
void serve(int listener, const std::vector<std::string>& greetings) {
    std::vector<unique_fd> clients;
    for (std::size_t i = 0; i < greetings.size(); ++i) {
        clients.emplace_back(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
    }
    for (std::size_t i = greetings.size(); i-- > 0;) {
        send(clients[i].get(), greetings[i].data(), greetings[i].size(), MSG_NOSIGNAL);
    }
    for (const unique_fd& client : clients) {  // until it hangs up
        char bytes[4096];
        while (recv(client.get(), bytes, sizeof bytes, 0) > 0) {
            const std::string done = message('C', "SET\0"s) + message('Z', "I");
            if (bytes[0] == 'Q') send(client.get(), done.data(), done.size(), MSG_NOSIGNAL);
        }
    }
}

TEST(Databases, FirstFailureInOrderIsReported) {
    struct {
        std::vector<std::string> greetings;
        std::vector<const char*> parts;  // of the response and the log
    } const rows[] = {
        // The third one never answers, which is not waited for.
        {{welcome("off"), refusal, "", refusal},
         {"<reason>can't connect to db: ", "no &lt;entry&gt;", "<379>can't connect to GAP db: ",
          "<383>main(): PQconnectdb() for GAP database RETURNED:1\n"}},
        {{welcome("on"), welcome("off"), refusal, welcome("off")},
         {"the server does not let standard_conforming_strings be turned off",
          "<379>can't connect to WMS db: "}}};
    setenv("PGHOST", "/tmp", 1);
    for (const auto& row : rows) {
        const unique_fd listener = bind_local("/tmp/.s.PGSQL.5432", SOCK_STREAM);
        EXPECT_EQ(listen(listener.get(), 5), 0);
        std::thread server(serve, listener.get(), row.greetings);
        const log_recorder recorder;
        request_record request;
        request.levels.web = 7;
        controller_databases databases;
        EXPECT_EQ(databases_open(&databases, &request.response), -1);
        EXPECT_FALSE(databases.wms || databases.gapdb || databases.cfgmdb || databases.userdb);
        server.join();  // it ends when all connections are closed
        std::string seen = text_of(request.response);
        for (std::string line = recorder.next(); !line.empty(); line = recorder.next())
            seen += line;
        for (const char* part : row.parts)
            EXPECT_NE(seen.find(part), std::string::npos) << part << seen;
    }
    unsetenv("PGHOST");
}

TEST(Databases, WhatARequestLeftOtherwiseIsOpenedAnew) {
    ASSERT_TRUE(database_init());
    request_record request;
    controller_databases databases;
    ASSERT_EQ(databases_open(&databases, &request.response), 0);
    const PGconn* const untouched = databases.cfgmdb.get();
    for (auto [conn, statement] : {std::pair{&databases.wms, "BEGIN"},
                                   {&databases.gapdb, "SET standard_conforming_strings TO on"}}) {
        const db_result ignored(PQexec(conn->get(), statement));
    }
    databases_settle(&databases);
    EXPECT_FALSE(databases.wms || databases.gapdb);
    EXPECT_EQ(databases.cfgmdb.get(), untouched);
    EXPECT_EQ(databases_renew(&databases, &request.response), 0);
    EXPECT_TRUE(database_is_open(databases.wms) && database_is_open(databases.gapdb));
}

}  // namespace

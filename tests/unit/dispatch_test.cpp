// From a request's name and fields to the row that serves it, and the refusals on the way.
#include <cstring>
#include <sys/sem.h>

#include "dispatch/dispatch_table.h"
#include "dispatch/dispatcher.h"
#include "dispatch/generic_wrapper.h"
#include "dispatch/program_name.h"
#include "dispatch/setup_page.h"
#include "dispatch/slow_request_log.h"

#include "service_support.h"

namespace {

// The end-to-end tests hold each row of that file against the program; here, that it has them all.
TEST(Dispatch, HasTheRowsOfTheAccessTableAndNoOthers) {
    std::ifstream table("/checkout/tests/e2e/access.tsv");
    std::string line;
    std::getline(table, line);  // the headings
    for (const dispatch_row& row : dispatch_rows()) {
        ASSERT_TRUE(std::getline(table, line)) << row.name;
        EXPECT_EQ(line.substr(0, line.find('\t')), row.name);
    }
    EXPECT_FALSE(std::getline(table, line)) << line;
}

TEST(Dispatch, KnowsTheSetupPagesByTheirLastElement) {
    EXPECT_TRUE(is_setup_key("/x/pingUser.xml?a=/b"));
    EXPECT_FALSE(is_setup_key("/x/pingUser.xml/.."));
    EXPECT_FALSE(is_setup_key("/v1/api/login?/ztp.log"));
}

char* echo_query(session_record*, char* query) {
    return *query == '\0' ? nullptr : ::strdup(query);
}

TEST(GenericWrapper, AnswersWithWhatTheTargetMakesOfTheDecodedQuery) {
    struct {
        wrapper_target* target;
        bool found;
        const char *query, *expected;
    } constexpr cases[] = {{echo_query, true, "a=%3C1+2", "a=<1 2"},
                           {echo_query, true, "", "<re><ERROR>generic error</ERROR></re>"},
                           {nullptr, true, "a=1", "<re><ERROR>not implemented</ERROR></re>"},
                           {echo_query, false, "a=1", "no permission to execute opcode/program."}};
    for (const auto& row : cases) {
        request_record request;
        request.session.found = row.found;
        std::string raw = row.query;
        request.input.raw = raw.data();
        const dispatch_row wrapped{.name = "x", .mask = 0, .wrapped = true, .target = row.target};
        generic_wrapper(wrapped, "x", &request.response, &request.session, &request.input);
        request.input.raw = nullptr;
        EXPECT_NE(std::string_view{request.response.data}.find(row.expected), std::string::npos)
            << row.expected << request.response.data;
    }
}

TEST(SlowRequestLog, WritesFromSixSecondsOnAndOnlyOutsideTheCgiProgram) {
    std::ofstream(paths::httpd_timing) << "\n";
    request_record cgi_program;
    cgi_program.wuic_is_cgi_exec = true;
    EXPECT_FALSE(slow_request_log_is_on());
    for (int round = 0; round < 2; ++round) {  // makes the semaphore, then opens it
        const request_record request;
        ASSERT_TRUE(slow_request_log_is_on());
        slow_request_log_add("/x/ping", "/x/ping", 5);
        slow_request_log_add("/x/ping", "/x/ping", 6);
        slow_request_log_add("/x/ping", "telm", 7);
        EXPECT_EQ(semctl(request.timing_semaphore, 0, GETVAL), 1);
    }
    const std::string text = contents(paths::httpd_timing);
    EXPECT_EQ(text.find(" 5\n"), std::string::npos);
    EXPECT_NE(text.find("  /x/ping  6\n"), std::string::npos);  // hh:mm:ss before it
    EXPECT_NE(text.find("  /x/ping telm 7\n"), std::string::npos);
    semctl(semget(666667, 1, 0600), 0, IPC_RMID);
}

}  // namespace

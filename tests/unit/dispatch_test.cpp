// From a request's name and fields to the row that serves it, and the refusals on the way.
#include <sys/sem.h>

#include "dispatch/dispatch_table.h"
#include "dispatch/dispatcher.h"
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

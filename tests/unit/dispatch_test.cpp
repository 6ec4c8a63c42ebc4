// From a request's name and fields to the row that serves it, and the refusals on the way.
#include <sys/sem.h>

#include "dispatch/dispatch_table.h"
#include "dispatch/dispatcher.h"
#include "dispatch/program_name.h"
#include "dispatch/setup_page.h"
#include "dispatch/slow_request_log.h"

#include "service_support.h"

namespace {

TEST(Dispatch, FindsARowByWholeKeyThenByLastElement) {
    constexpr std::pair<const char*, std::string_view> cases[] = {
        {"/v1/api/login", "/v1/api/login"},
        {"/else/login", "login"},
        {"/deep/v1/configuration/login", "/v1/configuration"},
        {"/screens/cmnutil/", ""}};
    for (const auto& [key, name] : cases) {
        const dispatch_row* const row = dispatch_find(key);
        EXPECT_EQ(row != nullptr ? row->name : "", name) << key;
    }
    EXPECT_TRUE(wuic_cgi_is_registered("/x/heart-beat"));
    EXPECT_FALSE(wuic_cgi_is_registered("crash.tar"));  // flag 1
}

TEST(Dispatch, PrefersAWholePathOfTheTableToALastElement) {
    request_record request;
    set_variables(&request, {{"SCRIPT_NAME", "/wlan"}, {"PATH_INFO", "/v1/api/login"}});
    EXPECT_EQ(settle_program_name("/proc/self/exe", &request.input), "/v1/api/login");
    set_variables(&request, {{"PATH_INFO", "/some/login"}});
    EXPECT_EQ(settle_program_name("/proc/self/exe", &request.input), "/wlan/some/login");
    EXPECT_EQ(settle_program_name(nullptr, &request.input), "");
}

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

TEST(Dispatch, LetsOnlyTheRolesOfAllNamedPagesSpoolAnUpload) {
    static constexpr char both[] = "/captiveportal_import.html?wms-os-upload.html";
    struct {
        const char *uri, *role;
        bool found, allowed;
    } constexpr cases[] = {{"/wms-os-upload.html", "snmpv3-user", true, true},
                           {"/wms-os-upload.html", "root", false, false},
                           {both, "snmpv3-user", true, false},
                           {both, "standard", true, true}};
    for (const auto& row : cases) {
        request_record request;
        set_variables(&request, {{"REQUEST_URI", row.uri}});
        request.session.found = row.found;
        std::snprintf(request.session.role, sizeof request.session.role, "%s", row.role);
        const bool allowed = may_spool_upload(&request.response, &request.session, &request.input);
        EXPECT_EQ(allowed, row.allowed) << row.uri << row.role;
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
    const std::string text = content(paths::httpd_timing);
    EXPECT_EQ(text.find(" 5\n"), std::string::npos);
    EXPECT_NE(text.find("  /x/ping  6\n"), std::string::npos);  // hh:mm:ss before it
    EXPECT_NE(text.find("  /x/ping telm 7\n"), std::string::npos);
    semctl(semget(666667, 1, 0600), 0, IPC_RMID);
}

}  // namespace

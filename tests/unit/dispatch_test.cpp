// From a request's name and fields to the row that serves it, and the refusals on the way.
#include <cstring>
#include <fstream>
#include <string>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "runtime/request.h"

#include "dispatch/dispatch_table.h"
#include "dispatch/dispatcher.h"
#include "dispatch/helper_mode.h"
#include "dispatch/program_name.h"
#include "dispatch/setup_page.h"
#include "dispatch/slow_request_log.h"

namespace {

std::string name_of(const dispatch_row* row) {
    return row ? std::string(row->name) : "-";
}

TEST(Dispatch, FindsARowByWholeKeyThenByLastElement) {
    struct lookup_case {
        const char* key;
        const char* row;
    };
    constexpr lookup_case cases[] = {
        {"/v1/api/login", "/v1/api/login"},
        {"/anything/else/login", "login"},
        {"login", "login"},
        {"/v1/configuration/container/x", "/v1/configuration"},
        {"/deep/v1/configuration", "/v1/configuration"},
        {"/v1/configuration/login", "/v1/configuration"},
        {"/screens/cmnutil/telm", "/screens/cmnutil/telm"},
        {"telm", "-"},
        {"/screens/cmnutil/execSimple.xml?show clock", "-"},
        {"/screens/cmnutil/", "-"},
        {"LOGIN", "-"},
        {"", "-"},
    };
    for (const lookup_case& row : cases) {
        SCOPED_TRACE(row.key);
        EXPECT_EQ(name_of(dispatch_find(row.key)), row.row);
    }
    for (const dispatch_row& row : dispatch_rows()) {
        EXPECT_EQ(dispatch_find(row.name), &row) << row.name;
    }
    EXPECT_TRUE(wuic_cgi_is_registered("/x/heart-beat"));
    EXPECT_FALSE(wuic_cgi_is_registered("crash.tar"));  // flag 1
    EXPECT_FALSE(wuic_cgi_is_registered("unknown"));
    EXPECT_FALSE(wuic_cgi_is_registered(nullptr));
}

TEST(Dispatch, TakesTheNameFromEntry0OrElseFromTheServersVariables) {
    struct name_case {
        const char* argument0;
        const char* script;
        const char* info;
        const char* name;
    };
    static constexpr char self[] = "/proc/self/exe";
    constexpr name_case cases[] = {
        {"/v1/api/login", "/x", "/logout", "/v1/api/login"},
        {"/not/known", "/x", "/logout", "/not/known"},
        {self, "", "/v1/api/login", "/v1/api/login"},
        {self, "/v1/api/login", "", "/v1/api/login"},
        {self, "/screens/cmnutil", "/telm", "/screens/cmnutil/telm"},
        {self, "/wlan", "/v1/api/login", "/v1/api/login"},
        {self, "/wlan", "/some/login", "/wlan/some/login"},
        {self, "/cgi-bin/wms.cgi", "/nobody/knows", "/nobody/knows"},
        {self, "/cgi-bin/wms.cgi", "", "/cgi-bin/wms.cgi"},
        {self, "", "", self},
        {"dispatch_test", "", "/v1/api/login", "/v1/api/login"},
        {"", "", "/v1/api/login", ""},
        {nullptr, "", "/v1/api/login", ""},
    };
    for (const name_case& row : cases) {
        SCOPED_TRACE(std::string(row.argument0 ? row.argument0 : "none") + " " + row.script + " " +
                     row.info);
        request_record request;
        ASSERT_EQ(cgi_set_var(&request.input, "SCRIPT_NAME", row.script), 0);
        ASSERT_EQ(cgi_set_var(&request.input, "PATH_INFO", row.info), 0);
        EXPECT_EQ(settle_program_name(row.argument0, &request.input), row.name);
    }
}

// Runs one request without a database; returns the response.
std::string dispatch(const char* name, const char* form, const char* role) {
    request_record request;
    std::string fields = form;
    EXPECT_EQ(cgi_set_var(&request.input, "REQUEST_METHOD", "GET"), 0);
    EXPECT_EQ(cgi_parse_ii(&request.input, fields.data(), static_cast<int>(fields.size()), 0), 0);
    if (role != nullptr) {
        request.session.found = true;
        std::snprintf(request.session.role, sizeof request.session.role, "%s", role);
    }
    wuic_cgi(name, &request.response, &request.session, nullptr, &request.input);
    return request.response.data != nullptr ? request.response.data : "";
}

TEST(Dispatch, AnswersOrRefusesClearly) {
    struct answer_case {
        const char* name;
        const char* form;
        const char* role;  // null: no session
        const char* expected;
    };
    static constexpr char forbidden[] = "no permission to execute opcode/program.";
    constexpr answer_case cases[] = {
        {"/x/<b>", "", "root", "unknown opcode: /x/&lt;b&gt;"},
        {"/x/login", "opcode=<i>", "root", "unknown opcode: &lt;i&gt;"},
        {"/x/nothing", "opcode=heart-beat", nullptr, "<reason>not implemented</reason>"},
        {"heart-beat", "opcode=cr-load", nullptr, forbidden},
        {"cr-load", "", "read-only", "<reason>not implemented</reason>"},
        {"cr-load", "", "guest-provisioning", forbidden},
        {"cr-load", "", nullptr, forbidden},
        {"master_key.xml", "", "guest-provisioning", "<reason>not implemented</reason>"},
        {"master_key.xml", "", nullptr, forbidden},  // every role is not everybody
        {"/rac/config", "", nullptr, "<reason>not implemented</reason>"},
        {"/rac/login", "", nullptr, "<reason>not implemented</reason>"},
        {"/dap/register", "", nullptr, "<reason>not implemented</reason>"},
        {"/screens/cmnutil/showArp.xml", "", "root",
         "\r\n\r\n<re><ERROR>not implemented</ERROR></re>"},
        {"/screens/cmnutil/showArp.xml", "", "read-only", forbidden},
    };
    for (const answer_case& row : cases) {
        SCOPED_TRACE(std::string(row.name) + " " + row.form);
        EXPECT_NE(dispatch(row.name, row.form, row.role).find(row.expected), std::string::npos);
    }
}

TEST(Dispatch, ServesTheSetupPageInTheFactoryDefaultState) {
    ::mkdir("/flash/config", 0755);
    std::ofstream("/flash/config/factory-default").put('1');
    const std::string page = dispatch("/v1/api/login", "", nullptr);
    const std::string served = dispatch("/x/pingUser.xml?a=1", "opcode=ztp.log", "root");
    const std::string hidden = dispatch("/x/pingUser.xml/..", "", "root");
    ::unlink("/flash/config/factory-default");

    const std::size_t cookie = page.find("Set-Cookie: SESSION=");
    ASSERT_NE(cookie, std::string::npos);
    const std::string identifier = page.substr(cookie + std::strlen("Set-Cookie: SESSION="), 36);
    EXPECT_NE(page.find("UIDQORIN=" + identifier + "<"), std::string::npos);
    EXPECT_NE(page.find("wizard-cp.html"), std::string::npos);
    EXPECT_NE(served.find("not implemented"), std::string::npos);
    EXPECT_NE(hidden.find("<h1>Initial setup</h1>"), std::string::npos);
}

TEST(Dispatch, LetsOnlyTheRolesOfTheNamedPagesSpoolAnUpload) {
    struct spool_case {
        const char* uri;
        const char* role;
        bool allowed;
    };
    constexpr spool_case cases[] = {
        {"/wms-os-upload.html", "root", true},
        {"/wms-os-upload.html", "snmpv3-user", true},
        {"/wms-os-upload.html", "read-only", false},
        {"/wms-os-upload.html", nullptr, false},
        {"/captiveportal_import.html?wms-os-upload.html", "snmpv3-user", false},
        {"/captiveportal_import.html?wms-os-upload.html", "standard", true},
    };
    for (const spool_case& row : cases) {
        SCOPED_TRACE(row.uri);
        request_record request;
        ASSERT_EQ(cgi_set_var(&request.input, "REQUEST_URI", row.uri), 0);
        request.session.found = row.role != nullptr;
        std::snprintf(request.session.role, sizeof request.session.role, "%s",
                      row.role != nullptr ? row.role : "root");
        EXPECT_EQ(may_spool_upload(&request.response, &request.session, &request.input),
                  row.allowed);
        EXPECT_EQ(request.response.length == 0, row.allowed);
    }
}

TEST(Dispatch, NeverTakesAWebRequestForAHelperCall) {
    const char* const arguments[] = {"wms.cgi", "wuic", "copy", "/etc/shadow", "/x", nullptr};
    EXPECT_TRUE(helper_mode_requested(5, arguments));
    EXPECT_FALSE(helper_mode_requested(1, arguments));
    ::setenv("GATEWAY_INTERFACE", "CGI/1.1", 1);
    EXPECT_FALSE(helper_mode_requested(5, arguments));
    ::unsetenv("GATEWAY_INTERFACE");
}

std::string read_all(const char* path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(SlowRequestLog, WritesFromSixSecondsOnAndOnlyOutsideTheCgiProgram) {
    constexpr char path[] = "/tmp/httpd_timing";
    ::unlink(path);
    {
        request_record request;
        EXPECT_FALSE(slow_request_log_is_on());  // no file
    }
    std::ofstream(path).put('\n');
    {
        request_record request;
        request.wuic_is_cgi_exec = true;
        EXPECT_FALSE(slow_request_log_is_on());
    }
    for (int round = 0; round < 2; ++round) {  // makes the semaphore, then opens it
        request_record request;
        ASSERT_TRUE(slow_request_log_is_on());
        slow_request_log_add("/x/ping", "/x/ping", 5);
        slow_request_log_add("/x/ping", "/x/ping", 6);
        slow_request_log_add("/x/ping", "telm", 7);
        EXPECT_EQ(::semctl(request.timing_semaphore, 0, GETVAL), 1);
    }
    const std::string text = read_all(path);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1 + 4);
    EXPECT_NE(text.find("  /x/ping  6\n"), std::string::npos);
    EXPECT_NE(text.find("  /x/ping telm 7\n"), std::string::npos);
    ::semctl(::semget(666667, 1, 0600), 0, IPC_RMID);
    ::unlink(path);
}

}  // namespace

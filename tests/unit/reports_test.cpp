// The browser's reports: saved definitions, tables as downloads, who is asking, how often is
// polled.
#include <algorithm>
#include <filesystem>

#include "runtime/error_response.h"

#include "monitor/custom_reports.h"
#include "monitor/monitor_handlers.h"
#include "monitor/permissions_page.h"
#include "monitor/poll_interval.h"

#include "service_support.h"

namespace {

using std::string;
using namespace std::string_literals;

// The response to a posted form.
string serve(request_handler* handler, string form) {
    request_record request;
    EXPECT_EQ(cgi_parse_ii(&request.input, form.data(), int(form.size()), 0), 0);
    EXPECT_EQ(handler("", &request.response, &request.session, nullptr, &request.input), 0);
    return text_of(request.response);
}

string saved(const char* status, const string& reason) {
    return xml_header + "<qorin>\n<status>"s + status + "</status>\n<reason>" + reason +
           "</reason>\n</qorin>\n";
}

string warning(int free) {
    return "There is only " + std::to_string(free) +
           " MB left on the flash. At least 2000 MB of free flash space is recommended to keep the "
           "system stable. Please clean-up your flash file system.";
}

const string nothing_saved = xml_header + "<qorin><status>ok</status></qorin>"s;

struct report_store : testing::Test {
    ~report_store() override { umount2("/flash", MNT_DETACH); }
    static void flash_of(const char* size) {
        ASSERT_EQ(mount("none", "/flash", "tmpfs", 0, size), 0);
    }
};

TEST_F(report_store, keeps_every_byte_and_nothing_beside_the_file) {
    flash_of("size=2048064k");
    EXPECT_EQ(serve(cr_load, ""), nothing_saved);
    for (const auto& [form, kept] : {std::pair{"operand=<a>%00%25s%0A"s, "<a>\0%s\n"s},
                                     {"operand=x", "x"},
                                     {"operand=" + string(1 << 20, 'y'), string(1 << 20, 'y')}}) {
        EXPECT_EQ(serve(cr_save, form), saved("ok", kept.size() < 1000 ? "" : warning(1999)));
        EXPECT_EQ(serve(cr_load, ""), xml_header + kept);
    }
    for (const char* form : {"operand=", "operand"}) {
        EXPECT_EQ(serve(cr_save, form), saved("ok", ""));
        EXPECT_EQ(serve(cr_load, ""), nothing_saved);
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(paths::upload_folder), {}), 1);
    EXPECT_NE(serve(cr_save, "x=1").find("<reason>invalid arguments</reason>"), string::npos);
    EXPECT_EQ(contents(paths::custom_reports), "");
}

TEST_F(report_store, a_save_that_fails_leaves_the_old_file) {
    flash_of("size=1m");
    serve(cr_save, "operand=old");
    EXPECT_EQ(serve(cr_save, "operand=" + string(1 << 20, 'x')),
              saved("error", "Internal error!" + warning(0)));
    EXPECT_EQ(serve(cr_load, ""), xml_header + "old"s);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(paths::upload_folder), {}), 1);
}

TEST_F(report_store, what_is_too_large_is_neither_kept_nor_read) {
    flash_of("size=2002m");
    const string large((1 << 20) + 1, 'x');
    serve(cr_save, "operand=old");
    EXPECT_EQ(serve(cr_save, "operand=" + large), saved("error", "Custom reports are too large."));
    EXPECT_EQ(serve(cr_load, ""), xml_header + "old"s);
    for (const auto& [tail, rows] : {std::pair{"", true}, {"x", false}}) {
        const string report =
            "<qorin><cr><name>n</name><type>t</type><url>u</url><t>1</t></cr></qorin>";
        const string file = report + string((1 << 20) - report.size(), ' ') + tail;
        std::ofstream(paths::custom_reports) << file;
        EXPECT_EQ(serve(cr_load, ""), rows ? xml_header + file : nothing_saved);
        const request_record another;
        scoped_strbuf table;
        wuic_uih_custom_reports_to_cli(table);
        EXPECT_EQ(text_of(table.buf).find("<r>") != string::npos, rows);
    }
}

TEST_F(report_store, links_are_not_followed) {
    flash_of("size=2002m");
    ASSERT_EQ(mkdir(paths::upload_folder, 0755), 0);
    std::ofstream("/flash/precious") << "precious";
    ASSERT_EQ(symlink("/flash/precious", paths::custom_reports), 0);
    EXPECT_EQ(serve(cr_load, ""), nothing_saved);
    const request_record request;
    scoped_strbuf table;
    wuic_uih_custom_reports_to_cli(table);
    EXPECT_TRUE(text_of(table.buf).ends_with("</th></t></re>"));  // none was read
    EXPECT_EQ(serve(cr_save, "operand=x"), saved("ok", ""));
    EXPECT_EQ(contents("/flash/precious"), "precious");
    EXPECT_EQ(serve(cr_load, ""), xml_header + "x"s);
}

TEST(permissions, names_are_escaped_and_cut_between_references) {
    request_record request;
    std::strcpy(request.session.user, "a<b");
    std::fill_n(request.session.role, 127, '&');
    EXPECT_EQ(wlm_get_permissions("", &request.response, &request.session, nullptr, nullptr), 0);
    string role;
    for (int i = 0; i < 25; ++i)
        role += "&amp;";
    EXPECT_EQ(text_of(request.response), xml_header +
                                             "<qorin>\n<status>Ok</status>\n<user>a&lt;b"s +
                                             "</user>\n<role>" + role + "</role>\n</qorin>\n");
    EXPECT_EQ(wlm_does_user_have_write_permissions(&request.session), 0);
}

TEST(poll_interval, is_the_cell_behind_its_name) {
    const auto rows = [](const string& cells) { return "<re><t><r>" + cells + "</r></t></re>"; };
    const string row = "<c>poll-interval</c><c>60000</c>";
    const string digits = "<c>poll-interval</c><c>" + string(27, '0') + "9999</c>";
    for (const auto& [reply, message, seconds] :
         {std::tuple{rows("<c>x</c><c>poll-interval</c></r><r><c>61999</c><c>7000</c>"), "", 61},
          {rows(row + row + "<c>x</c>"), "", 60},
          {rows("<c>poll-interval</c><c/>" + row), "", 0},
          {rows("<c>poll-interval</c><c>-60000</c>"), "", 0},
          {rows(digits), "", 0},  // one is beyond the 30
          {rows("<c>poll-interval</c><c>99999999999999999999999999</c>"), "", INT32_MAX},
          {rows(row) + "<re><ERROR>x</ERROR></re>", "", 0},
          {rows(row), "no such command", 0},
          {"<re><t>" + row + "</t></re>", "", 0},
          {"", "", 0}}) {
        fake_helper helper(wire_reply(reply, message));
        session_record session = {};
        std::strcpy(session.user, "bob");
        EXPECT_EQ(wms_get_poll_interval(&session), seconds) << reply;
        EXPECT_EQ(helper.asked(), (std::vector<string>{"bob", "", "", "show wms general"}));
    }
}

}  // namespace

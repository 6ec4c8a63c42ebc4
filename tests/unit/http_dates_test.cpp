// HTTP dates and conditional GET.
#include <ctime>

#include "runtime/http_date.h"
#include "runtime/strbuf.h"

#include "input_support.h"

using namespace std::string_literals;

namespace {

TEST(http_dates, round_trip) {
    const struct {
        std::time_t time;
        const char* text;
    } rows[] = {
        {784111777, "Sun, 06 Nov 1994 08:49:37 GMT"},
        {951782400, "Tue, 29 Feb 2000 00:00:00 GMT"},
        {-2, "Wed, 31 Dec 1969 23:59:58 GMT"},
        {253402300799, "Fri, 31 Dec 9999 23:59:59 GMT"},
        {-30610224000, "Wed, 01 Jan 1000 00:00:00 GMT"},
    };
    char out[http_date_size];
    for (const auto& row : rows) {
        EXPECT_STREQ(wuic_get_http_date(out, sizeof out, row.time), row.text);
        EXPECT_EQ(wuic_parse_http_date(row.text), row.time) << row.text;
    }
    EXPECT_STREQ(wuic_get_http_date(out, sizeof out, 253402300800), "");
    EXPECT_STREQ(wuic_get_http_date(out, sizeof out, INT64_MAX), "");
    const exact_copy small{"#####"};
    EXPECT_STREQ(wuic_get_http_date(small.data(), 5, 0), "Thu,");
    wuic_get_http_date(nullptr, 0, 0);
}

using conditional_get = request_fixture;

TEST_F(conditional_get, answers_304_unless_the_file_is_newer) {
    put_file("/tmp/file", "");
    const timespec times[2] = {{784111777, 0}, {784111777, 999999999}};
    ASSERT_EQ(utimensat(AT_FDCWD, "/tmp/file", times, 0), 0);
    for (const char* since : {"06 Nov 1994 08:49:37 GMT", "06 Nov 1994 08:49:36 GMT", "never"}) {
        set("HTTP_IF_MODIFIED_SINCE", ("Sun, "s + since).c_str());
        const int expected = std::strstr(since, ":37") != nullptr ? 1 : 0;
        scoped_strbuf out;
        std::time_t modified = 0;
        EXPECT_EQ(wuic_handle_if_modified_since(out, input, "/tmp/file", &modified), expected);
        EXPECT_EQ(modified, 784111777);
        EXPECT_STREQ(out.buf.data, expected == 1 ? "Status: 304 Not Modified\r\n\r\n" : nullptr);
        EXPECT_EQ(wuic_handle_if_modified_since(out, input, "/nowhere", &modified), 0);
    }
}

}  // namespace

// HTTP dates and conditional GET.
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "runtime/cgi.h"
#include "runtime/http_date.h"
#include "runtime/strbuf.h"

namespace {

TEST(http_dates, round_trip) {
    const struct {
        std::time_t time;
        const char* text;
    } rows[] = {
        {784111777, "Sun, 06 Nov 1994 08:49:37 GMT"},
        {0, "Thu, 01 Jan 1970 00:00:00 GMT"},
        {951782400, "Tue, 29 Feb 2000 00:00:00 GMT"},
        {-2, "Wed, 31 Dec 1969 23:59:58 GMT"},
        {4294967296, "Sun, 07 Feb 2106 06:28:16 GMT"},
        {253402300799, "Fri, 31 Dec 9999 23:59:59 GMT"},
        {-30610224000, "Wed, 01 Jan 1000 00:00:00 GMT"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        char out[http_date_size];
        EXPECT_STREQ(wuic_get_http_date(out, sizeof out, row.time), row.text);
        EXPECT_EQ(wuic_parse_http_date(row.text), row.time);
    }
}

TEST(http_dates, what_cannot_be_written_is_empty_and_what_does_not_fit_is_cut) {
    char out[http_date_size] = "old";
    EXPECT_STREQ(wuic_get_http_date(out, sizeof out, 253402300800), "");
    EXPECT_STREQ(wuic_get_http_date(out, sizeof out, INT64_MAX), "");
    const auto small = std::make_unique<char[]>(5);
    EXPECT_STREQ(wuic_get_http_date(small.get(), 5, 0), "Thu,");
    wuic_get_http_date(nullptr, 0, 0);
}

TEST(http_dates, separators_are_free_and_values_strict) {
    const std::string long_number(200, '0');
    const struct {
        std::string text;
        std::time_t expected;
    } rows[] = {
        {"x 6-Nov-1994\t8 49\r\n37  GMT", 784111777},
        {"Sun, 06 Nov 1994 08:49:37 GMT later", 784111777},
        {"Sun, 06 Nov 1994 08:49:60 GMT", 784111800},
        {"Sun, 06 Nov 1994 08:49:61 GMT", -1},
        {"Sun, 06 Nov 1994 24:00:00 GMT", -1},
        {"Sun, 00 Nov 1994 00:00:00 GMT", -1},
        {"Sun, 31 Nov 1994 00:00:00 GMT", -1},
        {"Sun, 29 Feb 1900 00:00:00 GMT", -1},
        {"Sun, 06 nov 1994 08:49:37 GMT", -1},
        {"Sun, 06-Nov-94 08:49:37 GMT", -1},
        {"Sun, 06 Nov 10000 08:49:37 GMT", -1},
        {"Sun, 06 Nov 99999999999999999999 08:49:37 GMT", -1},
        {"Sun, 06 Nov 1994 08:49:3x GMT", -1},
        {"Sun, 06 Nov 1994 08:49:37 UTC", -1},
        {"Sun, 06 Nov 1994 08:49:37", -1},
        {"Sun, " + long_number + "6 Nov 1994 08:49:37 GMT", -1},
        {"", -1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(wuic_parse_http_date(row.text.c_str()), row.expected);
    }
    EXPECT_EQ(wuic_parse_http_date(nullptr), -1);
}

TEST(conditional_get, answers_304_unless_the_file_is_newer) {
    constexpr std::time_t modified = 784111777;
    std::string path = testing::TempDir() + "modified_XXXXXX";
    ::close(::mkstemp(path.data()));
    const timespec times[2] = {{modified, 0}, {modified, 999999999}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    const struct {
        const char *header, *path;
        int expected;
    } rows[] = {
        {"Sun, 06 Nov 1994 08:49:37 GMT", path.c_str(), 1},
        {"Sun, 06 Nov 1994 08:49:38 GMT", path.c_str(), 1},
        {"Sun, 06 Nov 1994 08:49:36 GMT", path.c_str(), 0},
        {nullptr, path.c_str(), 0},
        {"Sun, 06 Nov 1994 08:49:37 GMT", "/nowhere", 0},
        {"Sun, 06 Nov 1994 08:49:37 GMT", nullptr, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << (row.header != nullptr ? row.header : "none"));
        cgi input;
        cgi_init(&input);
        ASSERT_EQ(cgi_set_var(&input, "HTTP_IF_MODIFIED_SINCE", row.header), 0);
        scoped_strbuf response;
        std::time_t mtime = 0;
        EXPECT_EQ(wuic_handle_if_modified_since(response, &input, row.path, &mtime), row.expected);
        EXPECT_EQ(mtime, row.path == path.c_str() ? modified : -1);
        EXPECT_STREQ(response.buf.data,
                     row.expected == 1 ? "Status: 304 Not Modified\r\n\r\n" : nullptr);
        cgi_deinit(&input);
    }
    ::unlink(path.c_str());
}

}  // namespace

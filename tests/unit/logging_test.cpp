// Logging: what reaches the system log and the debug trace, in which form, and when.
#include <filesystem>

#include "runtime/redaction.h"

#include "service_support.h"

namespace {

TEST(Logging, ControlBytesBecomeBlanks) {
    const log_recorder recorder;
    const request_record request;
    const std::string rows[][2] = {{"plain\ttext \xC3\xA9", "plain\ttext \xC3\xA9"},
                                   {"forged\nline\x1B\x7F\r\x01.\n", "forged line    .\n"},
                                   {"%s%n%d", "%s%n%d"},
                                   {std::string(9000, 'a'), std::string(4095, 'a')}};
    for (const auto& [text, expected] : rows) {
        controller_log(3, "%s", text.c_str());
        EXPECT_EQ(recorder.next(), "<379>" + expected);
    }
}

TEST(Logging, LevelsDecideWhatIsLoggedWhere) {
    const log_recorder recorder;
    const request_record request;
    wuic_log(4, "dropped");
    wuic_log_set_level(7);
    wuic_log(7, "debug");
    controller_log(7, "the web module's level has not changed");
    controller_log(3, "not traced");
    EXPECT_EQ(recorder.next(), "<383>debug");
    EXPECT_EQ(recorder.next(), "<379>not traced");
    EXPECT_EQ(contents(paths::debug_trace), "debug\n");
    unlink(paths::debug_trace);
}

std::ptrdiff_t open_descriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// Also where it is the first line of all.
TEST(Logging, OnlyALineAboutAccessHasAnotherName) {
    const log_recorder recorder;
    const request_record request;
    for (int round = 0; round < 2; ++round) {
        system_log_access("refused: %s\n<0>x", "y");
        const auto connected = open_descriptors();
        controller_log(3, "ours");
        EXPECT_EQ(open_descriptors(), connected);
        EXPECT_EQ(recorder.next(true), "<85>wms: refused: y <0>x");
        EXPECT_EQ(recorder.next(true), "<379>httpd: ours");
    }
}

TEST(Logging, TraceIsOpenToAllAndBounded) {
    umask(077);
    wuic_ooo("one %s", "two");
    struct stat info = {};
    ASSERT_EQ(stat(paths::debug_trace, &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0666U);
    EXPECT_EQ(contents(paths::debug_trace), "one two");
    ASSERT_EQ(truncate(paths::debug_trace, (4 << 20) - 1), 0);
    wuic_ooo("x");
    EXPECT_EQ(contents(paths::debug_trace).size(), std::size_t{4} << 20);
    wuic_ooo("next");
    EXPECT_EQ(contents(paths::debug_trace), "next");
}

TEST(Redaction, ShowsNamesAndLengths) {
    const std::string n32(32, 'n');
    const std::string rows[][2] = {{"", "[0]"},
                                   {"a=1&UIDQORIN=s3cret", "a=[1]&UIDQORIN=[6]"},
                                   {"A_z.9-=&&=x", "A_z.9-=[0]&[0]&[2]"},
                                   {"show clock&password&a b=c&\xC3\xA9=c", "[10]&[8]&[5]&[4]"},
                                   {n32 + "=x=y&" + n32 + "n=x", n32 + "=[3]&[35]"}};
    for (const auto& [text, shown] : rows) {
        const std::vector<char> exact(text.begin(), text.end());
        EXPECT_EQ(redact_fields({exact.data(), exact.size()}).text, shown);
        EXPECT_EQ(redact_uri(("/a=b/c?" + text).c_str()).text, "/a=b/c?" + shown);
    }
    EXPECT_STREQ(redact_fields(nullptr).text, "(null)");
    EXPECT_STREQ(redact_field("srcIP", "10.1.1.1").text, "srcIP=[8]");
    EXPECT_STREQ(redact_field("s3 cret", nullptr).text, "[0]");
    EXPECT_STREQ(redact_uri("/a").text, "/a");
    EXPECT_STREQ(redact_uri("/a/UIDQORIN=s3cret").text, "/a/UIDQORIN=[6]");
    EXPECT_STREQ(redact_uri("/a&b=s3cret?c").text, "/a&b=[8]");
}

TEST(Redaction, LeavesOutWholeFieldsAndNeverOverruns) {
    std::string many;
    for (int i = 0; i < 1000; ++i)
        many += "&a=1";
    const std::string path(4000, '/');
    for (std::size_t skip = 0; skip < 30; ++skip) {
        const std::string shown = redact_fields(std::string_view(many).substr(skip)).text;
        EXPECT_LT(shown.size(), redacted_size);
        EXPECT_TRUE(shown.ends_with("]...")) << shown;
        EXPECT_TRUE(std::string(redact_uri((path.substr(0, 990 + skip) + "?" + many).c_str()).text)
                        .ends_with("..."));
    }
    EXPECT_EQ(redact_uri(path.c_str()).text, path.substr(0, redacted_size - 4) + "...");
}

TEST(Redaction, ShortensAnIdentifierWhereverItStands) {
    EXPECT_STREQ(redact_identifier("0123456789").text, "01234567...");
    EXPECT_STREQ(redact_identifier("01").text, "01...");
    EXPECT_STREQ(redact_within("(0123456789, x) 0123456789", "0123456789").text,
                 "(01234567..., x) 01234567...");
    EXPECT_STREQ(redact_within("no identifier", "").text, "no identifier");
    EXPECT_EQ(std::strlen(redact_within(std::string(5000, 'x'), "y").text), redacted_size - 1);
}

}  // namespace

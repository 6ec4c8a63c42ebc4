// Logging: what reaches the system log and the debug trace, in which form, and when.
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

}  // namespace

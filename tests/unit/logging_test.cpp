// Logging: what reaches the system log and the debug trace, in which form, and when.
#include <fstream>
#include <iterator>
#include <string>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "platform/paths.h"

#include "runtime/request.h"

#include "local_socket.h"
#include "private_world.h"

namespace {

std::string content(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void put(const char* path, const std::string& text) {
    std::ofstream(path) << text;
}

TEST(Logging, ControlBytesBecomeBlanks) {
    const log_recorder recorder;
    const request_record request;
    const std::string rows[][2] = {
        {"plain\ttext \xC3\xA9", "plain\ttext \xC3\xA9"},
        {"forged\nline\n", "forged line\n"},
        {"\x1B[2J\x7F\r\x01.", " [2J   ."},
        {"%s%n%d", "%s%n%d"},
        {std::string(9000, 'a'), std::string(4095, 'a')},
    };
    for (const auto& [text, expected] : rows) {
        controller_log(3, "%s", text.c_str());
        EXPECT_EQ(recorder.next(), "<379>" + expected);
    }
}

TEST(Logging, LevelsDecideWhatIsLoggedWhere) {
    const log_recorder recorder;
    const request_record request;
    wuic_log(4, "dropped");
    controller_log(4, "dropped");
    EXPECT_EQ(recorder.next(), "");
    wuic_log_set_level(7);
    wuic_log(7, "debug");
    controller_log(7, "the web module's level has not changed");
    controller_log(3, "not traced");
    EXPECT_EQ(recorder.next(), "<383>debug");
    EXPECT_EQ(recorder.next(), "<379>not traced");
    EXPECT_EQ(content(paths::debug_trace), "debug\n");
    unlink(paths::debug_trace);
}

TEST(Logging, LevelFileHoldsOneKindOfLine) {
    const struct {
        std::string text;
        uid_t owner;
        int level;
    } rows[] = {
        {"web 7", 0, 7},
        {"other 1\nweb 5\nweb 9\n", 0, 5},
        {"web 8", 0, 3},
        {"web 77", 0, 3},
        {"web 7 \n", 0, 3},
        {"web 7", 65534, 3},
        {std::string(2041, '#') + "\nweb 75\n", 0, 3},  // 2047 bytes end behind the 7
    };
    for (const auto& row : rows) {
        put(paths::http_log_level, row.text);
        ASSERT_EQ(chown(paths::http_log_level, row.owner, 0), 0);
        request_record request;
        readQorinLogInfo();
        EXPECT_EQ(request.levels.web, row.level) << row.text;
        EXPECT_EQ(wuic_log_get_level(), row.level) << row.text;
    }
}

TEST(Logging, TraceIsOpenToAllAndBoundedAndFollowsNoLink) {
    umask(077);
    put("/tmp/precious", "kept");
    ASSERT_EQ(symlink("/tmp/precious", paths::debug_trace), 0);
    wuic_ooo("overwritten");
    EXPECT_EQ(content("/tmp/precious"), "kept");
    unlink(paths::debug_trace);

    wuic_ooo("one %s", "two");
    struct stat info = {};
    ASSERT_EQ(stat(paths::debug_trace, &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0666U);
    EXPECT_EQ(content(paths::debug_trace), "one two");
    ASSERT_EQ(truncate(paths::debug_trace, (4 << 20) - 1), 0);
    wuic_ooo("x");
    EXPECT_EQ(content(paths::debug_trace).size(), std::size_t{4} << 20);
    wuic_ooo("next");
    EXPECT_EQ(content(paths::debug_trace), "next");
    unlink(paths::debug_trace);
}

TEST(Logging, MonitorDebugIsAskedOnceARequest) {
    const request_record request;
    wuic_ooo_mon_debug("before");
    put(paths::monitor_debug_switch, "");
    wuic_ooo_mon_debug("still not");
    EXPECT_EQ(content(paths::debug_trace), "");
    const request_record next;
    wuic_ooo_mon_debug("now %d", 1);
    const std::string line = content(paths::debug_trace);
    EXPECT_EQ(line.find(" - now 1\n"), std::string_view("12/31/24 23:59:59").size()) << line;
}

}  // namespace

// The services of the controller and the operating system that handlers ask for.
#include <algorithm>
#include <csignal>

#include "platform/child_process.h"
#include "platform/controller.h"
#include "platform/obfuscation.h"
#include "platform/paths.h"
#include "platform/safe_open.h"

#include "input_support.h"

namespace {

int run_shell(const char* script) {
    const char* const arguments[] = {"sh", "-c", script, nullptr};
    return execute_command_status("/bin/sh", arguments);
}

TEST(planted_files, only_plain_files_are_opened_for_writing) {
    for (const auto& [planted, opens] : {std::pair{"true", true},
                                         {"echo old >/tmp/x", true},
                                         {"ln -s /tmp/target /tmp/x", false},
                                         {"ln /tmp/target /tmp/x", false},
                                         {"mkfifo /tmp/x", false},
                                         {"mkdir /tmp/x", false}}) {
        SCOPED_TRACE(planted);
        ASSERT_EQ(run_shell("rm -rf /tmp/x; echo precious >/tmp/target"), 0);
        ASSERT_EQ(run_shell(planted), 0);
        const unique_fd file = safe_open_for_writing("/tmp/x", O_RDWR | O_TRUNC, 0600);
        EXPECT_EQ(bool(file), opens);
        EXPECT_EQ(contents("/tmp/target"), "precious\n");
        EXPECT_TRUE(!file || lseek(file.get(), 0, SEEK_END) == 0);
    }
}

TEST(planted_files, only_files_of_root_or_ours_are_trusted) {
    put_file("/tmp/level", "web 7\n");
    EXPECT_TRUE(safe_open_trusted("/tmp/level"));
    EXPECT_EQ(symlink("/tmp/level", "/tmp/link"), 0);
    EXPECT_FALSE(safe_open_trusted("/tmp/link") || safe_open_trusted("/tmp"));
    EXPECT_EQ(link("/tmp/level", "/tmp/second"), 0);
    EXPECT_FALSE(safe_open_trusted("/tmp/second"));
    EXPECT_EQ(unlink("/tmp/second"), 0);
    ASSERT_EQ(chown("/tmp/level", 12345, 12345), 0);
    EXPECT_FALSE(safe_open_trusted("/tmp/level"));
}

TEST(commands, a_child_gets_a_clean_start_and_its_end_is_told) {
    setenv("QUERY_STRING", "a=1", 1);
    signal(SIGPIPE, SIG_IGN);
    signal(SIGCHLD, SIG_IGN);
    ASSERT_EQ(dup2(STDERR_FILENO, 50), 50);  // not close-on-exec
    const body_on_stdin body{"the request's"};
    for (const auto& [script, status] : {std::pair{"exit 3", 3},
                                         {"kill -KILL $$", 128 + SIGKILL},
                                         {"kill -PIPE $$", 128 + SIGPIPE},
                                         {"exit ${QUERY_STRING:+1}", 0},
                                         {"[ \"$PATH\" = /usr/sbin:/usr/bin:/sbin:/bin ]", 0},
                                         {"! read line", 0},
                                         {"[ ! -e /proc/self/fd/50 ]", 0}})
        EXPECT_EQ(run_shell(script), status) << script;
    close(50);
    const char* const arguments[] = {"true", nullptr};
    EXPECT_EQ(execute_command("/bin/true", arguments), 0);
    EXPECT_EQ(execute_command("/bin/false", arguments), -1);
    EXPECT_EQ(execute_command("/bin/no-such-program", arguments), -1);
}

TEST(commands, the_process_becomes_another_with_a_clean_environment) {
    put_file("/tmp/tool", "#!/bin/sh\nread line || exit ${QUERY_STRING:-42}\n");
    chmod("/tmp/tool", 0755);
    setenv("QUERY_STRING", "1", 1);
    EXPECT_EXIT(_exit(replace_process("/tmp/tool")), testing::ExitedWithCode(42), "");
}

TEST(controller, an_entry_of_the_reboot_history_is_one_line_whatever_its_reason_holds) {
    record_reboot_reason(6, "forged\n2000-01-01 00:00:00, 1, x\x7f");
    record_reboot_reason(7, std::string(5000, 'x').c_str());
    record_reboot_reason(8, nullptr);
    const std::string history = contents(paths::reboot_history);
    EXPECT_EQ(std::ranges::count(history, '\n'), 3);
    EXPECT_NE(history.find(", 6, forged 2000-01-01 00:00:00, 1, x \n"), std::string::npos);
    EXPECT_NE(history.find(", 8, \n"), std::string::npos);
}

// The cipher texts were worked out by another program, from the format that the header states.
TEST(obfuscation, follows_the_stated_format) {
    for (const auto& [password, expected] :
         text_pairs{{"", "d1a8286e14bf49a4"},
                    {"ppppppp", "e0db0e4b5105b567"},
                    {"pppppppp", "2d12dc1953f9ee1c664f1e88da9f065c0c99591b86749e6a"}}) {
        const exact_copy text{password};
        const exact_copy hexadecimal{expected, 1};
        std::vector<unsigned char> cipher(expected.size() / 2, 0xEE);
        const auto size = int(cipher.size());
        ASSERT_EQ(qorinEncrypt(text.data(), text.size, cipher.data(), size), 0);
        EXPECT_EQ(qorinByteToStr(cipher.data(), size, hexadecimal.data(), 2 * size), -1);
        EXPECT_EQ(qorinByteToStr(cipher.data(), size, hexadecimal.data(), 2 * size + 1), 0);
        EXPECT_EQ(hexadecimal.data(), expected);
    }
    unsigned char cipher[16];
    EXPECT_EQ(qorinEncrypt("12345678", 8, cipher, 8), -1);   // no room behind the text
    EXPECT_EQ(qorinEncrypt("12345678", 8, cipher, 12), -1);  // no whole blocks
    EXPECT_EQ(qorinEncrypt("", -1, cipher, 8), -1);
    EXPECT_EQ(qorinByteToStr(cipher, 0, nullptr, 0), -1);
}

}  // namespace

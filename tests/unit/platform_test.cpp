// The services of the controller and the operating system that handlers ask for.
#include <csignal>
#include <regex.h>
#include <sys/wait.h>
#include <vector>

#include "platform/command_runner.h"
#include "platform/controller.h"
#include "platform/free_space.h"
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
    const struct {
        const char* planted;
        bool opens;
    } rows[] = {
        {"true", true},
        {"echo old >/tmp/x", true},
        {"ln -s /tmp/target /tmp/x", false},
        {"ln /tmp/target /tmp/x", false},
        {"mkfifo /tmp/x", false},
        {"mkdir /tmp/x", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.planted);
        ASSERT_EQ(run_shell("rm -rf /tmp/x; echo precious >/tmp/target"), 0);
        ASSERT_EQ(run_shell(row.planted), 0);
        const unique_fd file = safe_open_for_writing("/tmp/x", O_RDWR | O_TRUNC, 0600);
        EXPECT_EQ(bool(file), row.opens);
        EXPECT_EQ(contents("/tmp/target"), "precious\n");
        EXPECT_TRUE(!file || lseek(file.get(), 0, SEEK_END) == 0);
    }
    EXPECT_FALSE(safe_open_for_writing("/tmp/missing/x", O_WRONLY, 0600));
}

TEST(planted_files, only_files_of_root_or_ours_are_trusted) {
    put_file("/tmp/level", "web 7\n");
    EXPECT_TRUE(safe_open_trusted("/tmp/level"));
    EXPECT_EQ(symlink("/tmp/level", "/tmp/level-link"), 0);
    EXPECT_FALSE(safe_open_trusted("/tmp/level-link"));
    EXPECT_FALSE(safe_open_trusted("/tmp"));
    ASSERT_EQ(chown("/tmp/level", 12345, 12345), 0);
    EXPECT_FALSE(safe_open_trusted("/tmp/level"));
}

TEST(commands, a_child_gets_a_clean_start_and_its_end_is_told) {
    setenv("QUERY_STRING", "a=1", 1);
    signal(SIGPIPE, SIG_IGN);
    signal(SIGCHLD, SIG_IGN);
    ASSERT_EQ(dup2(STDERR_FILENO, 50), 50);  // not close-on-exec
    const body_on_stdin body{"the request's"};
    const struct {
        const char* script;
        int status;
    } rows[] = {
        {"exit 3", 3},
        {"kill -KILL $$", 128 + SIGKILL},
        {"kill -PIPE $$", 128 + SIGPIPE},
        {"exit ${QUERY_STRING:+1}", 0},
        {"[ \"$PATH\" = /usr/sbin:/usr/bin:/sbin:/bin ]", 0},
        {"! read line", 0},
        {"[ ! -e /proc/self/fd/50 ]", 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.script);
        EXPECT_EQ(run_shell(row.script), row.status);
    }
    const char* const arguments[] = {"false", nullptr};
    EXPECT_EQ(execute_command("/bin/false", arguments), -1);
    EXPECT_EQ(execute_command("/bin/true", arguments), 0);
    EXPECT_EQ(execute_command("/bin/no-such-program", arguments), -1);
    close(50);
}

TEST(commands, the_process_becomes_another_with_a_clean_environment) {
    put_file("/tmp/tool", "#!/bin/sh\nread line || exit ${QUERY_STRING:-42}\n");
    chmod("/tmp/tool", 0755);
    const body_on_stdin body{"the request's\n"};
    const pid_t child = fork();
    if (child == 0) _exit(replace_process("/tmp/tool"));
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 42);
    EXPECT_EQ(replace_process("/tmp/no-such-tool"), -1);
}

TEST(controller, what_is_free_is_told_in_its_unit) {
    fresh_flash("size=8m");
    fresh_folder("/tmp", "mode=1777,size=4m");
    EXPECT_EQ(free_flash_mib(), 8);
    EXPECT_EQ(free_ramdisk_mib(), 4);
    put_file("/flash/three", std::string(3 << 20, 'x'));
    EXPECT_EQ(free_flash_mib(), 5);
    const std::int64_t memory = sysconf(_SC_PHYS_PAGES) * sysconf(_SC_PAGESIZE);
    EXPECT_GT(free_memory_bytes(), 1 << 20);
    EXPECT_LT(free_memory_bytes(), memory);
    fresh_flash("mode=755");
}

TEST(controller, an_entry_of_the_reboot_history_is_one_line_whatever_its_reason_holds) {
    record_reboot_reason(5, "upgradecmd");
    record_reboot_reason(6, "forged\n2000-01-01 00:00:00, 1, x\x7f");
    record_reboot_reason(7, std::string(5000, 'x').c_str());
    record_reboot_reason(8, nullptr);
    const std::string date = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}";
    const std::string lines = "^" + date + ", 5, upgradecmd\n" + date +
                              ", 6, forged 2000-01-01 00:00:00, 1, x \n" + date +
                              ", 7, x{200}x*\n" + date + ", 8, \n$";
    const std::string history = contents(paths::reboot_history);
    regex_t expression;
    ASSERT_EQ(regcomp(&expression, lines.c_str(), REG_EXTENDED | REG_NOSUB), 0);
    EXPECT_EQ(regexec(&expression, history.c_str(), 0, nullptr, 0), 0) << history;
    regfree(&expression);
}

// The way back, from the format as the header states it.
std::vector<unsigned char> revealed(const std::vector<unsigned char>& cipher) {
    std::vector<unsigned char> text(cipher.size());
    for (std::size_t at = 0; at < cipher.size(); at += 8) {
        std::uint32_t word[2] = {};
        for (std::size_t i = 0; i < 8; ++i)
            word[i / 4] = word[i / 4] << 8 | cipher[at + i];
        auto& [v0, v1] = word;
        for (std::uint32_t sum = 0x9E3779B9U * 32; sum != 0;) {
            v1 -= (((v0 << 4) ^ (v0 >> 5)) + v0) ^ (sum + obfuscation_key[(sum >> 11) & 3]);
            sum -= 0x9E3779B9;
            v0 -= (((v1 << 4) ^ (v1 >> 5)) + v1) ^ (sum + obfuscation_key[sum & 3]);
        }
        for (std::size_t i = 0; i < 8; ++i) {
            const unsigned before = at > 0 ? cipher[at + i - 8] : 0;
            text[at + i] = static_cast<unsigned char>((word[i / 4] >> (24 - i % 4 * 8)) ^ before);
        }
    }
    return text;
}

TEST(obfuscation, a_password_can_be_recovered_from_the_stated_format) {
    for (const std::size_t length : {0U, 1U, 7U, 8U, 15U, 16U, 128U}) {
        SCOPED_TRACE(length);
        const std::size_t size = (length + 8) / 8 * 8 + 8;
        exact_copy password{std::string(length, 'p')};
        std::vector<unsigned char> cipher(size, 0xEE);
        ASSERT_EQ(qorinEncrypt(password.data(), int(length), cipher.data(), int(size)), 0);
        std::vector<unsigned char> expected(length, 'p');
        expected.resize(size);
        EXPECT_EQ(revealed(cipher), expected);
        EXPECT_NE(cipher, expected);
    }
    unsigned char cipher[16];
    EXPECT_EQ(qorinEncrypt("12345678", 8, cipher, 8), -1);   // no room behind the text
    EXPECT_EQ(qorinEncrypt("12345678", 8, cipher, 12), -1);  // no whole blocks
    EXPECT_EQ(qorinEncrypt("", -1, cipher, 8), -1);

    const unsigned char bytes[] = {0x00, 0x9F, 0xFA};
    exact_copy text{"#######"};
    EXPECT_EQ(qorinByteToStr(bytes, 3, text.data(), 7), 0);
    EXPECT_STREQ(text.data(), "009ffa");
    EXPECT_EQ(qorinByteToStr(bytes, 3, text.data(), 6), -1);
    EXPECT_EQ(qorinByteToStr(bytes, 0, text.data(), 0), -1);
}

}  // namespace

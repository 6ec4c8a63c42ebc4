// What the tests of text and input share: private folders at the program's fixed paths, a body on
// standard input, and copies of exact size, behind which the sanitizer sees every over-read.
#pragma once

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <memory>
#include <sched.h>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/ownership.h"

#include "runtime/cgi.h"
#include "runtime/request.h"

// Puts a fresh memory file system over `path`, seen by this program only.
inline void fresh_folder(const char* path, const char* options) {
    umount2(path, MNT_DETACH);
    ASSERT_EQ(mount("none", path, "tmpfs", 0, options), 0) << path << ": " << std::strerror(errno);
}

inline void fresh_flash(const char* options) {
    ASSERT_NO_FATAL_FAILURE(fresh_folder("/flash", options));
    ASSERT_EQ(mkdir("/flash/config", 0755), 0);
}

// When this fails no test runs, so that none writes to the folders of the host.
struct private_folders : testing::Environment {
    void SetUp() override {
        ASSERT_NE(std::getenv("SANDBOX_CHECKOUT"), nullptr) << "run this in scripts/sandbox.sh";
        ASSERT_EQ(unshare(CLONE_NEWNS), 0) << std::strerror(errno);
        ASSERT_EQ(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
        ASSERT_NO_FATAL_FAILURE(fresh_folder("/tmp", "mode=1777"));
        fresh_flash("mode=755");
    }
};
inline testing::Environment* const the_private_folders =
    testing::AddGlobalTestEnvironment(new private_folders);

inline std::string contents(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void put_file(const std::string& path, std::string_view text) {
    std::ofstream(path, std::ios::binary) << text;
}

using text_pairs = std::vector<std::pair<std::string, std::string>>;

struct exact_copy {
    std::int32_t size;
    std::unique_ptr<char[]> bytes;
    explicit exact_copy(std::string_view text, std::size_t spare = 0)
        : size(std::int32_t(text.size())), bytes(new char[text.size() + spare]) {
        text.copy(bytes.get(), text.size());
    }
    char* data() const { return bytes.get(); }
    std::string_view view() const { return {bytes.get(), std::size_t(size)}; }
};

// Standard input holds `body` as long as this lives.
struct body_on_stdin {
    unique_fd saved{dup(STDIN_FILENO)};
    explicit body_on_stdin(std::string_view body) {
        const unique_fd file{memfd_create("body", MFD_CLOEXEC)};
        EXPECT_EQ(write(file.get(), body.data(), body.size()), ssize_t(body.size()));
        lseek(file.get(), 0, SEEK_SET);
        dup2(file.get(), STDIN_FILENO);
    }
    ~body_on_stdin() { dup2(saved.get(), STDIN_FILENO); }
    static long read_so_far() { return lseek(STDIN_FILENO, 0, SEEK_CUR); }
};

struct request_fixture : testing::Test {
    request_record request;
    cgi* const input = &request.input;
    void set(const char* name, const char* value) const {
        ASSERT_EQ(cgi_set_var(input, name, value), 0);
    }
};

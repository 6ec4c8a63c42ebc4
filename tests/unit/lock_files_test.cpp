// Lock files between processes: held, stale, unreadable, planted.
#include "dispatch/lock_files.h"

#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "runtime/request.h"

namespace {

constexpr char upgrade_lock[] = "/tmp/upgrading";
constexpr char reboot_history[] = "/flash/config/reboot-history";

// Through the locked descriptor: closing another one of the same file would drop the lock.
void overwrite(int fd, const std::string& content) {
    if (::ftruncate(fd, 0) != 0) ::_exit(1);
    if (::pwrite(fd, content.data(), content.size(), 0) < 0) ::_exit(1);
}

// Another process that holds the upgrade lock until it is killed.
struct lock_holder {
    pid_t pid = -1;

    explicit lock_holder(const char* file_content) {
        int ready[2];
        if (::pipe(ready) != 0) return;
        pid = ::fork();
        if (pid == 0) {
            request_record request;
            bool busy = false;
            const bool held = lock_file_for_clisession_str(lock_upgrade_image, &busy) == nullptr;
            if (file_content != nullptr) overwrite(request.lock_fds[0], file_content);
            if (::write(ready[1], held ? "1" : "0", 1) != 1) ::_exit(1);
            for (;;)
                ::pause();
        }
        char byte = 0;
        EXPECT_EQ(::read(ready[0], &byte, 1), 1);
        EXPECT_EQ(byte, '1');
        ::close(ready[0]);
        ::close(ready[1]);
    }
    ~lock_holder() { stop(); }
    lock_holder(const lock_holder&) = delete;
    lock_holder& operator=(const lock_holder&) = delete;

    void stop() {
        if (pid <= 0) return;
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        pid = -1;
    }
};

struct LockFiles : testing::Test {
    void SetUp() override { ::unlink(upgrade_lock); }
    void TearDown() override { ::unlink(upgrade_lock); }
    request_record request;
    std::string response() const { return request.response.data ? request.response.data : ""; }
};

TEST_F(LockFiles, ALiveHolderKeepsOthersOutAndIsRecorded) {
    ::unlink(reboot_history);
    const lock_holder other(nullptr);
    EXPECT_EQ(lock_file_for_clisession(&request.response, lock_upgrade_image), 0);
    EXPECT_NE(response().find("There is already an upgradeImage command being executed."),
              std::string::npos);
    std::ifstream history(reboot_history);
    const std::string text{std::istreambuf_iterator<char>(history), {}};
    EXPECT_NE(text.find("upgradecmd"), std::string::npos);
    EXPECT_EQ(lock_file_for_clisession(&request.response, lock_log_archive), 1);
    unlock_file_for_clisession(lock_log_archive);
    EXPECT_NE(::access("/tmp/tar_logs", F_OK), 0);
}

TEST_F(LockFiles, AHolderWithoutAReadablePidCountsAsOurOwnLock) {
    for (const char* content : {"", "0\n", "-5\n", "none"}) {
        SCOPED_TRACE(content);
        const lock_holder other(content);
        EXPECT_EQ(lock_file_for_clisession(&request.response, lock_upgrade_image), 1);
        unlock_file_for_clisession(lock_upgrade_image);
    }
}

TEST_F(LockFiles, AFileLeftByADeadProcessIsTakenOver) {
    lock_holder other(nullptr);
    other.stop();
    ASSERT_EQ(::access(upgrade_lock, F_OK), 0);
    EXPECT_EQ(lock_file_for_clisession(&request.response, lock_upgrade_image), 1);
    std::ifstream file(upgrade_lock);
    long pid = 0;
    file >> pid;
    EXPECT_EQ(pid, ::getpid());
}

TEST_F(LockFiles, ALockWhoseStatedHolderIsGoneIsOnlyTakenWhenTheNewFileIsFree) {
    // A live process holds the lock while the file names a pid that no process has.
    const lock_holder other("4194304\n");
    EXPECT_EQ(lock_file_for_clisession(&request.response, lock_upgrade_image), 1);
    const lock_holder* holder = &other;
    EXPECT_EQ(::kill(holder->pid, 0), 0);
    // The old inode's lock does not count any more: the path names ours.
    std::ifstream file(upgrade_lock);
    long pid = 0;
    file >> pid;
    EXPECT_EQ(pid, ::getpid());
}

TEST_F(LockFiles, UnlockingWhatIsNotHeldTouchesNothing) {
    std::ofstream(upgrade_lock).put('1');
    for (const int kind : {-1, 0, 5, 1 << 30})
        unlock_file_for_clisession(kind);
    EXPECT_EQ(::access(upgrade_lock, F_OK), 0);
    bool busy = false;
    EXPECT_NE(lock_file_for_clisession_str(5, &busy), nullptr);
    EXPECT_NE(lock_file_for_clisession_str(-1, &busy), nullptr);
}

TEST_F(LockFiles, APlantedLinkIsNotFollowed) {
    constexpr char victim[] = "/tmp/victim";
    ::unlink(victim);
    ASSERT_EQ(::symlink(victim, upgrade_lock), 0);
    EXPECT_EQ(lock_file_for_clisession(&request.response, lock_upgrade_image), 0);
    EXPECT_NE(response().find("Error opening upgrade lock file."), std::string::npos);
    EXPECT_NE(::access(victim, F_OK), 0);
}

TEST(LockFilesAtTheEnd, ARequestLeavesItsFileButNotItsLock) {
    ::unlink(upgrade_lock);
    {
        request_record request;
        ASSERT_EQ(lock_file_for_clisession(&request.response, lock_upgrade_image), 1);
        ASSERT_EQ(lock_file_for_clisession(&request.response, lock_upgrade_image), 1);  // ours
    }
    EXPECT_EQ(::access(upgrade_lock, F_OK), 0);
    request_record next;
    EXPECT_EQ(lock_file_for_clisession(&next.response, lock_upgrade_image), 1);
    unlock_file_for_clisession(lock_upgrade_image);
}

}  // namespace

// Lock files between processes: held, stale, unreadable, planted.
#include "dispatch/lock_files.h"

#include <csignal>
#include <sys/wait.h>

#include "service_support.h"

namespace {

constexpr const char* upgrade_lock = paths::lock_upgrade;

// Another process that holds the upgrade lock until it is killed. Its pid in the file is replaced
// by `stated`, through the locked descriptor: closing another one would drop the lock.
struct lock_holder {
    pid_t pid = -1;
    explicit lock_holder(const char* stated) {
        int ready[2];
        EXPECT_EQ(pipe(ready), 0);
        pid = fork();
        if (pid == 0) {
            const request_record request;
            bool busy = false;
            bool good = lock_file_for_clisession_str(lock_upgrade_image, &busy) == nullptr;
            if (stated != nullptr) {
                good &= ftruncate(request.lock_fds[0], 0) == 0 &&
                        pwrite(request.lock_fds[0], stated, std::strlen(stated), 0) >= 0;
            }
            good &= write(ready[1], good ? "1" : "0", 1) == 1;
            _exit(good ? pause() : 1);
        }
        char byte = 0;
        EXPECT_TRUE(read(ready[0], &byte, 1) == 1 && byte == '1');
    }
    ~lock_holder() {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
};

struct LockFiles : testing::Test {
    request_record request;
    ~LockFiles() override { unlink(upgrade_lock); }
    int lock() { return lock_file_for_clisession(&request.response, lock_upgrade_image); }
};

TEST_F(LockFiles, ALiveHolderKeepsOthersOutAndIsRecorded) {
    const lock_holder other(nullptr);
    EXPECT_EQ(lock(), 0);
    EXPECT_NE(text_of(request.response).find("There is already an upgradeImage"),
              std::string::npos);
    EXPECT_NE(contents(paths::reboot_history).find("upgradecmd"), std::string::npos);
    EXPECT_EQ(lock_file_for_clisession(&request.response, lock_log_archive), 1);
    unlock_file_for_clisession(lock_log_archive);
    EXPECT_NE(access(paths::lock_tar_logs, F_OK), 0);
}

// No readable pid counts as our own lock; a stated holder that is gone loses the file, whose old
// inode may still be locked.
TEST_F(LockFiles, AHolderThatCannotBeNamedOrIsGoneIsPassed) {
    const std::string own = std::to_string(getpid()) + "\n";
    for (const char* stated : {"", "0\n", "-5\n", "none", "4194304\n"}) {
        const lock_holder other(stated);
        EXPECT_EQ(lock(), 1) << stated;
        EXPECT_EQ(contents(upgrade_lock), stated[0] == '4' ? own : stated);
        unlock_file_for_clisession(lock_upgrade_image);
    }
    { const lock_holder dead(nullptr); }
    ASSERT_EQ(access(upgrade_lock, F_OK), 0);
    EXPECT_EQ(lock(), 1);
    EXPECT_EQ(lock(), 1);  // ours
    EXPECT_EQ(contents(upgrade_lock), own);
}

// '\0' at the pipe's end.
char next_byte(int fd) {
    char byte = 0;
    return read(fd, &byte, 1) == 1 ? byte : '\0';
}

// One of several that lock as soon as `go` ends and keep what they have until `end` does.
[[noreturn]] void compete(int go, int told, int end) {
    const request_record request;
    bool busy = false;
    next_byte(go);
    const bool held = lock_file_for_clisession_str(lock_upgrade_image, &busy) == nullptr;
    const bool good = write(told, held ? "1" : "0", 1) == 1;
    next_byte(end);
    _exit(good ? 0 : 1);
}

int holders_among(int competitors) {
    int go[2];
    int told[2];
    int end[2];
    if (pipe(go) != 0 || pipe(told) != 0 || pipe(end) != 0) return -1;
    for (int i = 0; i < competitors; ++i) {
        if (fork() != 0) continue;
        close(go[1]);
        close(end[1]);
        compete(go[0], told[1], end[0]);
    }
    close(go[1]);
    close(told[1]);
    int holders = 0;
    for (int i = 0; i < competitors; ++i)
        holders += next_byte(told[0]) == '1' ? 1 : 0;
    for (const int fd : {go[0], told[0], end[0], end[1]})
        close(fd);
    for (int i = 0; i < competitors; ++i)
        wait(nullptr);
    return holders;
}

#ifdef __SANITIZE_ADDRESS__
constexpr int rounds = 20;  // a fork takes long there
#else
constexpr int rounds = 600;
#endif

// Whoever comes while another one takes the lock sees a file that names nobody yet, or the dead.
TEST_F(LockFiles, OfManyAtOnceOneHoldsTheLock) {
    for (int round = 0; round < rounds; ++round) {
        unlink(upgrade_lock);
        if (round % 2 == 0) std::ofstream(upgrade_lock) << "4194304\n";
        EXPECT_EQ(holders_among(4), 1) << round;
    }
}

// As at a process's end, though its process, whose pid the file states, lives on.
TEST_F(LockFiles, WhatIsHeldWhenARequestEndsIsFreeAndItsFileStays) {
    {
        const request_record ended;
        bool busy = false;
        ASSERT_EQ(lock_file_for_clisession_str(lock_upgrade_image, &busy), nullptr);
    }
    ASSERT_EQ(access(upgrade_lock, F_OK), 0);
    const lock_holder next(nullptr);
}

TEST_F(LockFiles, UnlockingWhatIsNotHeldTouchesNothing) {
    std::ofstream(upgrade_lock) << "1";
    for (const int kind : {-1, 5, 1 << 30, int{lock_upgrade_image}})
        unlock_file_for_clisession(kind);
    EXPECT_EQ(lock_file_for_clisession(&request.response, 5), 0);
    EXPECT_EQ(access(upgrade_lock, F_OK), 0);
}

TEST_F(LockFiles, APlantedLinkIsNotFollowed) {
    ASSERT_EQ(symlink("/tmp/victim", upgrade_lock), 0);
    EXPECT_EQ(lock(), 0);
    EXPECT_NE(access("/tmp/victim", F_OK), 0);
}

}  // namespace

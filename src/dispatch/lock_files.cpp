#include "dispatch/lock_files.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/controller.h"
#include "platform/ownership.h"
#include "platform/paths.h"
#include "platform/safe_open.h"

#include "runtime/error_response.h"
#include "runtime/request.h"
#include "runtime/wait.h"

namespace {

struct lock_row {
    const char* path;
    const char* open_failure;
    const char* busy;
};

constexpr std::array<lock_row, lock_kind_count> locks{{
    {.path = paths::lock_upgrade,
     .open_failure = "Error opening upgrade lock file. Please try again later\r\n",
     .busy = "There is already an upgradeImage command being executed.\r\nTry after a while.\r\n"},
    {.path = paths::lock_upgrade_pkg,
     .open_failure = "Error opening upgrade package lock file. Please try again later\r\n",
     .busy = "There is already an upgrade package command being executed.\r\n"},
    {.path = paths::lock_tar_flash,
     .open_failure = "Error opening tar flash lock file. Please try again later\r\n",
     .busy = "There is already a tar flash command being executed\r\nTry after a while.\r\n"},
    {.path = paths::lock_tar_crash,
     .open_failure = "Error opening tar crash lock file. Please try again later\r\n",
     .busy = "There is already a tar crash command being executed\r\nTry after a while.\r\n"},
    {.path = paths::lock_tar_logs,
     .open_failure = "Error opening tar logs lock file. Please try again later\r\n",
     .busy = "There is already a tar logs command being executed\r\nTry after a while.\r\n"},
}};

constexpr int reboot_entry_upgrade = 5;

// Others may delete a file between our opening and locking it; a bound keeps two processes that do
// so to each other from running in circles.
constexpr int reopen_attempts = 8;

// How long a holder may take from locking the file to naming itself in it.
constexpr int naming_attempts = 50;
constexpr timespec naming_pause{.tv_sec = 0, .tv_nsec = 1'000'000};

bool is_lock_kind(int kind) {
    return kind >= 0 && kind < lock_kind_count;
}

bool write_pid(int fd, pid_t pid) {
    char text[24];
    const int length = std::snprintf(text, sizeof text, "%ld\n", static_cast<long>(pid));
    return ::ftruncate(fd, 0) == 0 && ::pwrite(fd, text, static_cast<std::size_t>(length), 0) > 0;
}

// 0 when no pid can be read: a pid of 0 names no process.
pid_t read_pid(int fd) {
    char text[254];
    const ssize_t length = ::pread(fd, text, sizeof text, 0);
    pid_t pid = 0;
    if (length > 0) std::from_chars(text, text + length, pid);
    return pid > 0 ? pid : 0;
}

bool is_alive(pid_t pid) {
    return pid > 0 && ::getpgid(pid) >= 0;
}

bool take_lock(int fd) {
    struct flock whole {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    return ::fcntl(fd, F_SETLK, &whole) == 0;
}

bool path_names(const char* path, int fd) {
    struct stat opened {};
    struct stat named {};
    return ::fstat(fd, &opened) == 0 && ::lstat(path, &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

struct attempt {
    unique_fd fd;  // none: the file could not be opened
    int result = -1;
    pid_t holder = 0;
};

// Opens and locks. A lock on a file that was deleted meanwhile locks nothing: it is opened again.
attempt try_lock(const char* path) {
    attempt tried;
    for (int i = 0; i < reopen_attempts; ++i) {
        tried.fd = unique_fd(open_file_for_locking(path));
        if (!tried.fd) return tried;
        tried.result = lock_file(tried.fd.get(), ::getpid(), &tried.holder);
        if (tried.result != 0 || path_names(path, tried.fd.get())) return tried;
    }
    tried.fd.reset();
    return tried;
}

}  // namespace

int open_file_for_locking(const char* path) {
    return safe_open_for_writing(path, O_RDWR, 0777).release();
}

int lock_file(int fd, pid_t pid, pid_t* holder) {
    // Somebody who has locked the file this moment is not named in it yet, and must not be passed
    // like a holder who never will be: the file is read again for a while.
    for (int i = 0; i < naming_attempts; ++i) {
        if (take_lock(fd)) {
            // Without its pid the lock still excludes others, which then see no readable holder.
            static_cast<void>(write_pid(fd, pid));
            return 0;
        }
        *holder = read_pid(fd);
        if (is_alive(*holder)) return 1;
        ::nanosleep(&naming_pause, nullptr);
    }
    return *holder > 0 ? 1 : 2;
}

const char* lock_file_for_clisession_str(int kind, bool* upgrade_busy) {
    if (!is_lock_kind(kind)) return "Unknown lock\r\n";
    const lock_row& row = locks[static_cast<std::size_t>(kind)];
    int& held = request_current().lock_fds[static_cast<std::size_t>(kind)];
    if (held >= 0) return nullptr;
    if (client_has_left()) return row.open_failure;

    attempt tried = try_lock(row.path);
    if (!tried.fd) return row.open_failure;
    if (tried.result == 1 && !is_alive(tried.holder)) {
        // Not a file that another one made meanwhile.
        if (path_names(row.path, tried.fd.get())) ::unlink(row.path);
        tried.fd.reset();
        tried = try_lock(row.path);
        if (!tried.fd) return row.open_failure;
        if (tried.result != 0) tried.result = 1;  // another one was faster
    }
    if (tried.result == 1) {
        *upgrade_busy = kind == lock_upgrade_image;
        return row.busy;
    }
    // Kept: a holder whose pid cannot be read does not block the command.
    held = tried.fd.release();
    return nullptr;
}

int lock_file_for_clisession(wms_strbuf* response, int kind) {
    bool upgrade_busy = false;
    const char* message = lock_file_for_clisession_str(kind, &upgrade_busy);
    if (upgrade_busy) record_reboot_reason(reboot_entry_upgrade, "upgradecmd");
    if (message == nullptr) return 1;
    wuic_generic_error(response, "%s", message);
    return 0;
}

void unlock_file_for_clisession(int kind) {
    if (!is_lock_kind(kind)) return;
    const unique_fd held(
        std::exchange(request_current().lock_fds[static_cast<std::size_t>(kind)], -1));
    // Deleted while still locked, so that a lock taken by another in between is not deleted.
    if (held) ::unlink(locks[static_cast<std::size_t>(kind)].path);
}

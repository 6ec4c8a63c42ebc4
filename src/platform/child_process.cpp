#include "platform/child_process.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/ownership.h"

namespace {

constexpr int first_private_fd = 3;  // what lies above standard error is ours alone
constexpr char search_path[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";

// execve takes pointers to writable text, so the environment is a copy on the caller's stack.
struct clean_environment {
    char path[sizeof search_path];
    std::array<char*, 2> entries{path, nullptr};
    clean_environment() { std::copy(std::begin(search_path), std::end(search_path), path); }
    clean_environment(const clean_environment&) = delete;
    clean_environment& operator=(const clean_environment&) = delete;
};

struct spawn_settings {
    posix_spawn_file_actions_t files{};
    posix_spawnattr_t attributes{};
    spawn_settings() {
        posix_spawn_file_actions_init(&files);
        posix_spawnattr_init(&attributes);
    }
    ~spawn_settings() {
        posix_spawn_file_actions_destroy(&files);
        posix_spawnattr_destroy(&attributes);
    }
    spawn_settings(const spawn_settings&) = delete;
    spawn_settings& operator=(const spawn_settings&) = delete;
};

bool describe_child(spawn_settings* child) {
    sigset_t restored;
    sigset_t blocked;
    sigemptyset(&restored);
    sigemptyset(&blocked);
    sigaddset(&restored, SIGPIPE);
    sigaddset(&restored, SIGXFSZ);
    sigaddset(&restored, SIGCHLD);
    return posix_spawn_file_actions_addopen(&child->files, STDIN_FILENO, "/dev/null", O_RDONLY,
                                            0) == 0 &&
           posix_spawn_file_actions_addclosefrom_np(&child->files, first_private_fd) == 0 &&
           posix_spawnattr_setsigdefault(&child->attributes, &restored) == 0 &&
           posix_spawnattr_setsigmask(&child->attributes, &blocked) == 0 &&
           posix_spawnattr_setflags(&child->attributes,
                                    POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK) == 0;
}

int wait_for(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    return 128 + WTERMSIG(status);
}

}  // namespace

int execute_command_status(const char* program, const char* const* arguments) {
    spawn_settings settings;
    if (!describe_child(&settings)) return -1;
    // A server may hand SIGCHLD down ignored; the child's status would then be lost.
    std::signal(SIGCHLD, SIG_DFL);

    clean_environment environment;
    pid_t child = -1;
    // posix_spawn does not write to the arguments (POSIX.1-2017, exec, rationale).
    const int error = posix_spawn(&child, program, &settings.files, &settings.attributes,
                                  const_cast<char* const*>(arguments), environment.entries.data());
    return error == 0 ? wait_for(child) : -1;
}

int execute_command(const char* program, const char* const* arguments) {
    return execute_command_status(program, arguments) == 0 ? 0 : -1;
}

int replace_process(const char* program) {
    const unique_fd nothing{::open("/dev/null", O_RDONLY | O_CLOEXEC)};
    if (!nothing || ::dup2(nothing.get(), STDIN_FILENO) < 0) return -1;
    if (::close_range(first_private_fd, ~0U, CLOSE_RANGE_CLOEXEC) != 0) return -1;

    clean_environment environment;
    const auto pipe = std::signal(SIGPIPE, SIG_DFL);
    const auto file_size = std::signal(SIGXFSZ, SIG_DFL);
    std::array<char*, 2> arguments{const_cast<char*>(program), nullptr};
    ::execve(program, arguments.data(), environment.entries.data());
    const int error = errno;
    std::signal(SIGPIPE, pipe);
    std::signal(SIGXFSZ, file_size);
    errno = error;
    return -1;
}

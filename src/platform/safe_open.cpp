#include "platform/safe_open.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// O_NONBLOCK keeps a planted FIFO from holding us; it means nothing for a regular file.
constexpr int guarded = O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

// The file may be made or removed by others between the two attempts; a few rounds settle that.
unique_fd open_or_create(const char* path, int flags, mode_t mode) {
    constexpr int rounds = 4;
    for (int round = 0; round < rounds; ++round) {
        unique_fd present{::open(path, flags | guarded)};
        if (present || errno != ENOENT) return present;
        unique_fd made{::open(path, flags | guarded | O_CREAT | O_EXCL, mode)};
        if (made || errno != EEXIST) return made;
    }
    return {};
}

// A second name means that somebody linked the path to a file of another purpose.
bool is_plain_file(int fd) {
    struct stat facts {};
    if (::fstat(fd, &facts) != 0) return false;
    if (S_ISREG(facts.st_mode) && facts.st_nlink <= 1) return true;
    errno = EACCES;
    return false;
}

}  // namespace

unique_fd safe_open_for_writing(const char* path, int flags, mode_t mode) {
    // Emptied only once it is known to be a plain file.
    unique_fd file = open_or_create(path, flags & ~(O_TRUNC | O_CREAT), mode);
    if (!file || !is_plain_file(file.get())) return {};
    if ((flags & O_TRUNC) != 0 && ::ftruncate(file.get(), 0) != 0) return {};
    return file;
}

unique_fd safe_open_trusted(const char* path) {
    unique_fd file{::open(path, O_RDONLY | guarded)};
    struct stat facts {};
    if (!file || !is_plain_file(file.get()) || ::fstat(file.get(), &facts) != 0) return {};
    if (facts.st_uid == 0 || facts.st_uid == ::geteuid()) return file;
    errno = EACCES;
    return {};
}

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/ownership.h"

#include "runtime/sfmt.h"

namespace {

// The size of an open regular file, or the reason why it is not taken.
int file_size(int fd, std::size_t* size) {
    struct stat facts {};
    if (::fstat(fd, &facts) != 0) return errno;
    if (!S_ISREG(facts.st_mode)) return EINVAL;
    if (facts.st_size > sfmt_file_max) return EFBIG;
    *size = static_cast<std::size_t>(facts.st_size);
    return 0;
}

// Reads exactly `size` bytes.
int read_exactly(int fd, char* to, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t n = ::read(fd, to + done, size - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return errno;
        if (n == 0) return EIO;
        done += static_cast<std::size_t>(n);
    }
    return 0;
}

}  // namespace

int sfmt_read_all(char** data, std::int32_t* size, const char* path) {
    *data = nullptr;
    *size = 0;
    if (path == nullptr) return EINVAL;
    // O_NONBLOCK keeps a FIFO from holding us; it means nothing for a regular file.
    const unique_fd file{::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)};
    if (!file) return errno;
    std::size_t length = 0;
    if (const int failed = file_size(file.get(), &length)) return failed;
    malloc_text block{static_cast<char*>(std::malloc(length + 1))};
    if (!block) return ENOMEM;
    if (const int failed = read_exactly(file.get(), block.get(), length)) return failed;
    block.get()[length] = '\0';
    *data = block.release();
    *size = static_cast<std::int32_t>(length);
    return 0;
}

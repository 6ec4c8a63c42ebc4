#include "platform/ownership.h"

#include <cerrno>

void unique_fd::reset(int next) noexcept {
    if (fd >= 0) {
        const int saved = errno;
        ::close(fd);
        errno = saved;
    }
    fd = next;
}

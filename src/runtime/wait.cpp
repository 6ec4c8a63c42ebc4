#include "runtime/wait.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <unistd.h>

#include "runtime/request.h"

namespace {

int watched_connection() {
    const request_record* const request = request_current_or_null();
    return request != nullptr ? request->streams.connection : -1;
}

}  // namespace

int wait_for(std::span<pollfd> entries, int milliseconds) {
    std::array<pollfd, wait_entries_max + 1> all{};
    if (entries.size() > wait_entries_max) {
        errno = EINVAL;
        return -1;
    }
    // Nothing is asked of the connection: that it is gone is told in any case, while bytes of the
    // request that were not read yet, and a server that has only ended its side, are no reason.
    all[0] = {.fd = watched_connection(), .events = 0, .revents = 0};
    std::ranges::copy(entries, all.begin() + 1);
    const int ready = ::poll(all.data(), entries.size() + 1, milliseconds);
    if (ready > 0 && all[0].revents != 0) ::_exit(0);
    std::copy_n(all.begin() + 1, entries.size(), entries.begin());
    return ready;
}

bool wait_is_watched() {
    return watched_connection() >= 0;
}

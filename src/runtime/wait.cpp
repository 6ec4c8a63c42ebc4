#include "runtime/wait.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include "runtime/request.h"

namespace {

// Nothing is asked of the connection: that it is gone is told in any case, while bytes of the
// request that were not read yet, and a server that has only ended its side, are no reason.
pollfd watched_connection(const request_record* request) {
    return {.fd = request != nullptr ? request->streams.connection : -1, .events = 0, .revents = 0};
}

bool has_left(const request_record* request) {
    return request != nullptr && request->client_left;
}

int cancelled() {
    errno = ECANCELED;
    return -1;
}

}  // namespace

int wait_for(std::span<pollfd> entries, int milliseconds) {
    std::array<pollfd, wait_entries_max + 1> all{};
    if (entries.size() > wait_entries_max) {
        errno = EINVAL;
        return -1;
    }
    request_record* const request = request_current_or_null();
    if (has_left(request)) return cancelled();
    all[0] = watched_connection(request);
    std::ranges::copy(entries, all.begin() + 1);
    const int ready = ::poll(all.data(), entries.size() + 1, milliseconds);
    if (ready > 0 && all[0].revents != 0) {
        request->client_left = true;
        return cancelled();
    }
    std::copy_n(all.begin() + 1, entries.size(), entries.begin());
    return ready;
}

bool client_has_left() {
    if (!wait_is_watched()) return false;
    const int saved = errno;
    static_cast<void>(wait_for({}, 0));
    if (has_left(request_current_or_null())) return true;
    errno = saved;
    return false;
}

bool wait_is_watched() {
    return watched_connection(request_current_or_null()).fd >= 0;
}

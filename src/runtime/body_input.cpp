#include "runtime/body_input.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <unistd.h>

#include "runtime/request.h"

std::optional<std::int64_t> body_content_length(const cgi* input) {
    const char* const text = cgi_get_var(input, "CONTENT_LENGTH");
    if (text == nullptr) return std::nullopt;
    static_assert(sizeof(long long) == sizeof(std::int64_t));
    return std::strtoll(text, nullptr, 10);
}

ssize_t read_whole(int fd, char* bytes, std::size_t length) {
    std::size_t got = 0;
    while (got < length) {
        const ssize_t n = ::read(fd, bytes + got, length - got);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return -1;
        if (n == 0) break;
        got += static_cast<std::size_t>(n);
    }
    return static_cast<ssize_t>(got);
}

void body_discard(std::int64_t length) {
    std::array<char, 16384> dropped;
    const request_streams streams = request_current_streams();
    constexpr auto chunk = static_cast<std::int64_t>(dropped.size());
    while (length > 0) {
        const std::int64_t want = std::min(length, chunk);
        const long n = streams_read_whole(streams, dropped.data(), static_cast<std::size_t>(want));
        if (n < want) return;
        length -= want;
    }
}

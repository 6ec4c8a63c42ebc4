#include "runtime/request_streams.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "runtime/spool_parser.h"

namespace {

long read_input(void* /*context*/, void* bytes, std::size_t size) {
    for (;;) {
        const ssize_t got = ::read(STDIN_FILENO, bytes, size);
        if (got >= 0 || errno != EINTR) return got;
    }
}

bool write_output(void* /*context*/, const void* bytes, std::size_t size) {
    return write_whole(STDOUT_FILENO, static_cast<const char*>(bytes), size);
}

void finish_nothing(void* /*context*/) {}

}  // namespace

request_streams process_streams() {
    return {.variables = nullptr,
            .read = read_input,
            .write = write_output,
            .finish = finish_nothing,
            .context = nullptr,
            .connection = -1};
}

const char* streams_variable(const request_streams& streams, const char* name) {
    if (streams.variables == nullptr) return std::getenv(name);
    const std::size_t length = std::strlen(name);
    for (const char* const* entry = streams.variables; *entry != nullptr; ++entry) {
        // Most differ in their first letter, which is cheaper to see than to call for.
        if (**entry != *name || std::strncmp(*entry, name, length) != 0) continue;
        if ((*entry)[length] == '=') return *entry + length + 1;
    }
    return nullptr;
}

long streams_read_whole(const request_streams& streams, void* bytes, std::size_t size) {
    std::size_t got = 0;
    while (got < size) {
        const long n = streams.read(streams.context, static_cast<char*>(bytes) + got, size - got);
        if (n < 0) return -1;
        if (n == 0) break;
        got += static_cast<std::size_t>(n);
    }
    return static_cast<long>(got);
}

#include "dispatch/helper_mode.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/child_process.h"
#include "platform/ownership.h"
#include "platform/paths.h"

namespace {

struct helper_program {
    std::string_view name;
    const char* path;
};

constexpr auto helper_programs = std::to_array<helper_program>({
    {.name = "moduleStatus", .path = paths::module_status},
    {.name = "softwareVersion", .path = paths::software_version},
    {.name = "showVersion", .path = paths::show_version},
});

constexpr std::size_t copy_block = 8192;

int refuse() {
    std::fputs("unknown wuic helper command\n", stderr);
    return -1;
}

int run_program(std::string_view name) {
    const auto program = std::ranges::find(helper_programs, name, &helper_program::name);
    if (program == helper_programs.end()) return refuse();
    replace_process(program->path);
    std::perror(program->path);
    return -1;
}

// The destination is emptied only once it is known to be another file than the source.
unique_fd open_destination(int source, const char* path) {
    unique_fd destination(::open(path, O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY, 0666));
    struct stat from {};
    struct stat to {};
    if (!destination || ::fstat(source, &from) != 0 || ::fstat(destination.get(), &to) != 0) {
        return {};
    }
    if (from.st_dev == to.st_dev && from.st_ino == to.st_ino) return {};
    if (S_ISREG(to.st_mode) && ::ftruncate(destination.get(), 0) != 0) return {};
    return destination;
}

// Returns false with errno set when a block could not be read or written whole.
bool copy_blocks(int source, int destination) {
    std::array<char, copy_block> block;
    for (;;) {
        const ssize_t count = ::read(source, block.data(), block.size());
        if (count == 0) return true;
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        errno = 0;
        if (::write(destination, block.data(), static_cast<std::size_t>(count)) < count) {
            return false;
        }
    }
}

int copy_file(const char* from, const char* to) {
    const unique_fd source(::open(from, O_RDONLY | O_CLOEXEC | O_NOCTTY));
    const unique_fd destination = source ? open_destination(source.get(), to) : unique_fd{};
    if (destination && !copy_blocks(source.get(), destination.get())) {
        std::perror("failed to copy");
        return -1;
    }
    // Kept: files that cannot be opened are reported as a success, too.
    std::puts("copying was successful.");
    return 0;
}

}  // namespace

bool helper_mode_requested(int argc, const char* const* argv) {
    return argc >= 2 && std::string_view(argv[1]) == "wuic" &&
           std::getenv("GATEWAY_INTERFACE") == nullptr;
}

int helper_mode_run(int argc, const char* const* argv) {
    if (argc == 3) return run_program(argv[2]);
    if (argc == 5 && std::string_view(argv[2]) == "copy") return copy_file(argv[3], argv[4]);
    return refuse();
}

#include "monitor/shell_capture.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

#include "platform/child_process.h"
#include "platform/ownership.h"
#include "platform/paths.h"

#include "runtime/body_input.h"
#include "runtime/strbuf.h"
#include "runtime/wait.h"

namespace {

constexpr std::size_t path_size = 64;
constexpr std::size_t line_size = 512;

// Read through the descriptor that made it, so that nobody can put another file in its place.
struct temporary_file {
    char path[path_size];
    unique_fd fd;
    temporary_file() {
        std::snprintf(path, sizeof path, paths::capture_template, "cli");
        fd.reset(::mkostemp(path, O_CLOEXEC));
    }
    ~temporary_file() {
        if (fd) static_cast<void>(::unlink(path));
    }
    temporary_file(const temporary_file&) = delete;
    temporary_file& operator=(const temporary_file&) = delete;
};

}  // namespace

void shell_capture(wms_strbuf* out, const char* command) {
    if (client_has_left()) return;
    const temporary_file file;
    if (!file.fd) return;
    char line[line_size];
    std::snprintf(line, sizeof line, "%s > %s", command, file.path);
    const char* const arguments[] = {"sh", "-c", line, nullptr};
    const int status = execute_command_status(paths::shell, arguments);
    if (status != 0) {
        wms_strbuf_fmt(out, "cmd=%s, r=%d\n", line, status);
        return;
    }
    std::array<char, shell_output_max> output;
    const ssize_t length = read_whole(file.fd.get(), output.data(), output.size());
    if (length > 0) wms_strbuf_append(out, output.data(), static_cast<std::int32_t>(length));
}

#include "platform/controller.h"

#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/paths.h"
#include "platform/safe_open.h"

namespace {

constexpr std::size_t history_line_max = 512;  // bytes of one entry, its newline included

bool is_control(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
}

// Writes "time, type, reason" on one line of its own whatever the reason holds; returns its length.
std::size_t format_entry(char (&line)[history_line_max], int type, const char* reason) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    char when[32] = "";
    ::tzset();  // a worker outlives a change of the time zone
    if (localtime_r(&now, &local) != nullptr) {
        std::strftime(when, sizeof when, "%Y-%m-%d %H:%M:%S", &local);
    }
    const int wanted = std::snprintf(line, sizeof line - 1, "%s, %d, %s", when, type, reason);
    if (wanted < 0) return 0;
    std::size_t length = std::string_view{line}.size();
    for (std::size_t i = 0; i < length; ++i) {
        if (is_control(line[i])) line[i] = ' ';
    }
    line[length++] = '\n';
    return length;
}

}  // namespace

const char* getrole() {
    return ::geteuid() == 0 ? "root" : "";
}

bool isWuicConfigFactoryDefault() {
    struct stat facts {};
    return ::stat(paths::factory_default_marker, &facts) == 0;
}

void record_reboot_reason(int type, const char* reason) {
    char line[history_line_max];
    const std::size_t length = format_entry(line, type, reason != nullptr ? reason : "");
    const unique_fd history =
        safe_open_for_writing(paths::reboot_history, O_WRONLY | O_APPEND, 0644);
    if (!history) return;
    [[maybe_unused]] const ssize_t written = ::write(history.get(), line, length);
}

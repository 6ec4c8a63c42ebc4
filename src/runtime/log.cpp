#include "runtime/log.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/paths.h"
#include "platform/safe_open.h"
#include "platform/system_log.h"

#include "runtime/request.h"

namespace {

constexpr int controller_facility = 376;  // code 47, shifted as syslog(3) wants it
constexpr int level_max = 7;
constexpr off_t trace_max = off_t{4} * 1024 * 1024;
constexpr mode_t everybody = 0666;
constexpr std::size_t level_file_max = 2047;

int priority_of(int level) {
    return controller_facility + std::clamp(level, 0, level_max);
}

// The open trace, emptied when it has grown to its limit; none when it cannot be had.
unique_fd trace_open() {
    unique_fd fd = safe_open_for_writing(paths::debug_trace, O_WRONLY | O_APPEND, everybody);
    struct stat info = {};
    if (!fd || fstat(fd.get(), &info) != 0) return {};
    // A trace that is another's cannot be changed, which is no reason not to write to it.
    if ((info.st_mode & 0777) != everybody) static_cast<void>(fchmod(fd.get(), everybody));
    if (info.st_size >= trace_max && ftruncate(fd.get(), 0) != 0) return {};
    return fd;
}

[[gnu::format(printf, 1, 0)]] void trace_v(const char* format, va_list args) {
    const int saved = errno;
    if (const unique_fd fd = trace_open(); fd) {
        errno = saved;  // for a "%m" of the caller
        static_cast<void>(vdprintf(fd.get(), format, args));
    }
    errno = saved;
}

bool is_mon_debug() {
    remembered& fact = request_current().mon_debug;
    if (fact == remembered::unknown) {
        fact = access(paths::monitor_debug_switch, F_OK) == 0 ? remembered::yes : remembered::no;
    }
    return fact == remembered::yes;
}

std::size_t read_up_to(int fd, char* out, std::size_t size) {
    std::size_t total = 0;
    while (total < size) {
        const ssize_t got = read(fd, out + total, size - total);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        total += static_cast<std::size_t>(got);
    }
    return total;
}

// Once its client has left, all that a request was about fails, and none of that is an error.
int level_of_news(int level) {
    return request_current().client_left ? std::max(level, log_debug) : level;
}

// The level of a line that is exactly "web N"; -1 for any other.
int web_level(std::string_view line) {
    constexpr std::string_view prefix = "web ";
    if (line.size() != prefix.size() + 1 || !line.starts_with(prefix)) return -1;
    const int level = line.back() - '0';
    return level >= 0 && level <= level_max ? level : -1;
}

}  // namespace

void wuic_log(int level, const char* format, ...) {
    level = level_of_news(level);
    if (level > wuic_log_get_level()) return;
    char line[system_log_line_max + 1];
    va_list args;
    va_start(args, format);
    system_log_v(priority_of(level), line, format, args);
    va_end(args);
    const bool ended = std::string_view(line).ends_with('\n');
    wuic_ooo(ended ? "%s" : "%s\n", line);
}

int wuic_log_get_level() {
    return request_current().levels.wuic;
}

void wuic_log_set_level(int level) {
    request_current().levels.wuic = level;
}

void controller_log(int level, const char* format, ...) {
    level = level_of_news(level);
    if (level > request_current().levels.web) return;
    char line[system_log_line_max + 1];
    va_list args;
    va_start(args, format);
    system_log_v(priority_of(level), line, format, args);
    va_end(args);
}

void wuic_ooo(const char* format, ...) {
    va_list args;
    va_start(args, format);
    trace_v(format, args);
    va_end(args);
}

void wuic_ooo_mon_debug(const char* format, ...) {
    const int saved = errno;
    if (!is_mon_debug()) {
        errno = saved;
        return;
    }
    char message[system_log_line_max + 1] = "";
    va_list args;
    va_start(args, format);
    errno = saved;
    static_cast<void>(std::vsnprintf(message, sizeof message, format, args));
    va_end(args);

    const std::time_t now = std::time(nullptr);
    std::tm local = {};
    ::tzset();  // a worker outlives a change of the time zone
    static_cast<void>(localtime_r(&now, &local));
    wuic_ooo("%02d/%02d/%02d %02d:%02d:%02d - %s\n", local.tm_mon + 1, local.tm_mday,
             local.tm_year % 100, local.tm_hour, local.tm_min, local.tm_sec, message);
    errno = saved;
}

void readQorinLogInfo() {
    const unique_fd fd = safe_open_trusted(paths::http_log_level);
    if (!fd) return;
    char text[level_file_max];
    const std::size_t length = read_up_to(fd.get(), text, sizeof text);
    std::string_view rest(text, length);
    while (!rest.empty()) {
        const std::size_t end = rest.find('\n');
        const bool cut = end == std::string_view::npos && length == sizeof text;
        if (cut) break;  // what is missing might make it another line
        const int level = web_level(rest.substr(0, end));
        if (level >= 0) request_current().levels = {.web = level, .wuic = level};
        if (end == std::string_view::npos) break;
        rest.remove_prefix(end + 1);
    }
}

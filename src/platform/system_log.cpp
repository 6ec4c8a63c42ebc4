#include "platform/system_log.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <syslog.h>

namespace {

constexpr char own_name[] = "httpd";
constexpr char access_name[] = "wms";

bool is_control(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
}

}  // namespace

// A line break or an escape sequence inside a logged text could forge a line or steer a terminal.
void blank_controls(char* line) {
    std::size_t length = std::strlen(line);
    if (length > 0 && line[length - 1] == '\n') --length;
    for (std::size_t i = 0; i < length; ++i) {
        if (is_control(line[i]) && line[i] != '\t') line[i] = ' ';
    }
}

void system_log_open(bool at_once) {
    openlog(own_name, at_once ? LOG_PID | LOG_NDELAY : LOG_PID, LOG_USER);
}

void system_log_v(int priority, char* line, const char* format, va_list args) {
    const int saved = errno;
    line[0] = '\0';
    if (std::vsnprintf(line, system_log_line_max + 1, format, args) < 0) line[0] = '\0';
    blank_controls(line);
    syslog(priority, "%s", line);
    errno = saved;
}

// openlog(3) changes the name alone where there is a connection.
void system_log_access(const char* format, ...) {
    char line[system_log_line_max + 1];
    va_list args;
    va_start(args, format);
    openlog(access_name, LOG_PID, LOG_USER);
    system_log_v(LOG_AUTHPRIV | LOG_NOTICE, line, format, args);
    openlog(own_name, LOG_PID, LOG_USER);
    va_end(args);
}

// The one place through which a line reaches syslog.
#pragma once

#include <cstdarg>

// Longest line that is handed on, in bytes; what is longer is cut.
inline constexpr int system_log_line_max = 4095;

// Opens the system log under a process name; `name` must live as long as the process.
void system_log_open(const char* name);

// Replaces control bytes (below 0x20 and 0x7F, but TAB and one final LF) by blanks, in place.
void blank_controls(char* line);

// Formats a line, replaces control bytes (below 0x20 and 0x7F, but TAB and one final LF) by blanks
// and hands it to syslog(3) as an argument, never as a format.
//   priority  facility and level, as syslog(3) takes them
//   line      receives the cleaned line, NUL-terminated; at least system_log_line_max + 1 bytes
// Keeps errno.
[[gnu::format(printf, 3, 0)]] void system_log_v(int priority, char* line, const char* format,
                                                va_list args);

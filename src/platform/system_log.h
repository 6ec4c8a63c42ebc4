// The one place through which a line reaches syslog. Lines carry the name "httpd"; those about who
// gets in have a name of their own, for tools that watch nothing else.
#pragma once

#include <cstdarg>

// Longest line that is handed on, in bytes; what is longer is cut.
inline constexpr int system_log_line_max = 4095;

// Opens the system log. It is connected to with the first line, or `at_once`.
void system_log_open(bool at_once = false);

// Blanks out control bytes in place: 0x7F and all under 0x20, save TAB and an LF at the very end.
void blank_controls(char* line);

// Formats a line, cleans it with blank_controls and logs it. For syslog(3) it is an argument of
// "%s": a "%" in it has no effect.
//   priority  facility and level, as syslog(3) takes them
//   line      receives the cleaned line, NUL-terminated; at least system_log_line_max + 1 bytes
// Keeps errno.
[[gnu::format(printf, 3, 0)]] void system_log_v(int priority, char* line, const char* format,
                                                va_list args);

// Logs a line, formatted and cleaned like that, under the name "wms" with the facility authpriv and
// the priority notice. The connection stays, and the lines that follow have their name again.
[[gnu::format(printf, 1, 2)]] void system_log_access(const char* format, ...);

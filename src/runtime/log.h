// The program's own logging and debug trace. Levels are those of syslog(3), 0 to 7; 3 is error.
#pragma once

// Levels of one request: read from /tmp/http_log_level at its start.
struct log_levels {
    int web = 3;   // the web module's level, for the controller's log
    int wuic = 3;  // the level of wuic_log
};

// Writes to the system log with the controller's facility (priority 376 + level) and appends the
// line to the debug trace, when `level` is at most wuic_log_get_level().
[[gnu::format(printf, 2, 3)]] void wuic_log(int level, const char* format, ...);
int wuic_log_get_level();
void wuic_log_set_level(int level);

// The controller's logger: the same chokepoint and priority, dropped when `level` is above the web
// module's; never in the trace.
[[gnu::format(printf, 2, 3)]] void controller_log(int level, const char* format, ...);

// Appends to the debug trace /tmp/ooo, of mode 0666. A trace that has reached 4 MiB starts anew.
[[gnu::format(printf, 1, 2)]] void wuic_ooo(const char* format, ...);

// As wuic_ooo with the local time in front, and only while /flash/mon_debug exists (tested once per
// request).
[[gnu::format(printf, 1, 2)]] void wuic_ooo_mon_debug(const char* format, ...);

// Applies the line "web N" (N 0 to 7) of /tmp/http_log_level, when the file is root's or ours, to
// both levels of the current request; anything else there is ignored.
void readQorinLogInfo();  // NOLINT(readability-identifier-naming): fixed name

// The system log and the debug trace. Levels count as in syslog(3): from 0 to 7, 3 being an error.
#pragma once

// The levels that this program logs at.
inline constexpr int log_error = 3;
inline constexpr int log_debug = 7;

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

// As wuic_ooo with local date and time in front, on a controller that has /flash/mon_debug; looked
// for once a request.
[[gnu::format(printf, 1, 2)]] void wuic_ooo_mon_debug(const char* format, ...);

// Sets both levels of the current request by the last line of /tmp/http_log_level that is exactly
// "web " and a digit up to 7. Without such a line they stay, and so they do when the file belongs
// neither to root nor to us.
void readQorinLogInfo();  // NOLINT(readability-identifier-naming): fixed name

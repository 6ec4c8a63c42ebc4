// The slow-request log: a line in /tmp/httpd_timing for each handler that took six seconds or more.
// For hosts that have the dispatcher built in, and only while that file exists; in this program the
// entry turns it off.
#pragma once

#include <ctime>

inline constexpr std::time_t slow_request_seconds = 6;

// Decided once per request.
bool slow_request_log_is_on();

// Appends a line when `seconds` is slow_request_seconds or more. `key` is written only where it
// differs from the program name.
void slow_request_log_add(const char* program_name, const char* key, std::time_t seconds);

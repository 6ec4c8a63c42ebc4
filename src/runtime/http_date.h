// HTTP dates (RFC 9110 section 5.6.7, IMF-fixdate) and conditional GET (section 13.1.3).
#pragma once

#include <cstdint>
#include <ctime>

struct cgi;
struct wms_strbuf;

inline constexpr std::int32_t http_date_size = 30;  // bytes of a date with its NUL

// Formats a UTC time, NUL-terminated; cut where `out_size` is smaller than http_date_size, empty
// for a year that has not four digits. Returns `out`.
char* wuic_get_http_date(char* out, std::int32_t out_size, std::time_t time);

// The inverse: weekday (not checked), day, month name, year, hour, minute, second and "GMT",
// separated by any of ":", "-", blank, tab, CR and LF. Returns seconds since the epoch; -1 when a
// field is missing, is no number, or is out of range (a year below 1000 included; a leap second is
// not).
std::time_t wuic_parse_http_date(const char* text);

// When a file was last modified, by stat(2); -1 when that fails.
std::time_t wuic_get_last_modified_time(const char* path);

// For a handler that serves a file: `mtime` receives the time of wuic_get_last_modified_time.
// Returns 1 after appending a whole 304 response, when If-Modified-Since names that time or a later
// one; else 0, and the file is to be sent.
int wuic_handle_if_modified_since(wms_strbuf* response, const cgi* input, const char* path,
                                  std::time_t* mtime);

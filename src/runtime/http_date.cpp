#include "runtime/http_date.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <optional>
#include <string_view>
#include <sys/stat.h>

#include "runtime/cgi.h"
#include "runtime/fsb.h"
#include "runtime/strbuf.h"

namespace {

using std::string_view;

constexpr auto weekdays =
    std::to_array<const char*>({"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"});
constexpr auto months = std::to_array<const char*>(
    {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"});

constexpr int year_min = 1000;
constexpr int year_max = 9999;

enum field : std::size_t { weekday, day, month, year, hour, minute, second, zone, field_count };

using date_fields = std::array<string_view, field_count>;

bool split(string_view text, date_fields* fields) {
    constexpr string_view separators = ":- \t\r\n";
    for (string_view& part : *fields) {
        text.remove_prefix(std::min(text.find_first_not_of(separators), text.size()));
        part = text.substr(0, text.find_first_of(separators));
        if (part.empty()) return false;
        text.remove_prefix(part.size());
    }
    return true;
}

// The whole text as a number within bounds.
std::optional<int> read_number(string_view text, int least, int most) {
    constexpr std::size_t longest = 127;
    int value = 0;
    if (text.size() > longest) return {};
    const auto [stop, failed] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (failed != std::errc{} || stop != text.data() + text.size()) return {};
    if (value < least || value > most) return {};
    return value;
}

std::optional<std::chrono::sys_days> read_day(const date_fields& fields) {
    const auto* const name =
        std::ranges::find(months, fields[month], [](auto m) { return string_view{m}; });
    const auto days = read_number(fields[day], 1, 31);
    const auto years = read_number(fields[year], year_min, year_max);
    if (name == months.end() || !days || !years) return {};
    const std::chrono::year_month_day date{
        std::chrono::year{*years},
        std::chrono::month{static_cast<unsigned>(name - months.begin()) + 1},
        std::chrono::day{static_cast<unsigned>(*days)}};
    if (!date.ok()) return {};
    return std::chrono::sys_days{date};
}

}  // namespace

char* wuic_get_http_date(char* out, std::int32_t out_size, std::time_t time) {
    fsb text;
    fsb_new(&text, out, out_size);
    fsb_clear(&text);
    std::tm utc{};
    if (::gmtime_r(&time, &utc) == nullptr) return out;
    const int full_year = utc.tm_year + 1900;
    if (full_year < year_min || full_year > year_max) return out;
    char date[64];
    fsb whole;
    fsb_new(&whole, date, sizeof date);
    fsb_fmt(&whole, "%s, %02d %s %d %02d:%02d:%02d GMT", weekdays[std::size_t(utc.tm_wday)],
            utc.tm_mday, months[std::size_t(utc.tm_mon)], full_year, utc.tm_hour, utc.tm_min,
            utc.tm_sec);
    fsb_append(&text, date, whole.length);
    return out;
}

std::time_t wuic_parse_http_date(const char* text) {
    date_fields fields;
    if (text == nullptr || !split(text, &fields) || fields[zone] != "GMT") return -1;
    const auto date = read_day(fields);
    const auto hours = read_number(fields[hour], 0, 23);
    const auto minutes = read_number(fields[minute], 0, 59);
    const auto seconds = read_number(fields[second], 0, 60);
    if (!date || !hours || !minutes || !seconds) return -1;
    const std::time_t days = date->time_since_epoch().count();
    return ((days * 24 + *hours) * 60 + *minutes) * 60 + *seconds;
}

std::time_t wuic_get_last_modified_time(const char* path) {
    struct stat facts {};
    if (path == nullptr || ::stat(path, &facts) != 0) return -1;
    return facts.st_mtime;
}

int wuic_handle_if_modified_since(wms_strbuf* response, const cgi* input, const char* path,
                                  std::time_t* mtime) {
    *mtime = wuic_get_last_modified_time(path);
    if (*mtime == -1) return 0;
    // Null, and a date that is none, are -1.
    const std::time_t since = wuic_parse_http_date(cgi_get_var(input, "HTTP_IF_MODIFIED_SINCE"));
    if (since == -1 || since < *mtime) return 0;
    wms_strbuf_fmt(response, "Status: 304 Not Modified\r\n\r\n");
    return 1;
}

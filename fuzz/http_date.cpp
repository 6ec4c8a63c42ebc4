// HTTP dates: what is accepted is what a second, plain reading accepts, and comes back from the
// formatter.
#include "runtime/http_date.h"

#include <array>
#include <optional>
#include <vector>

#include "fuzz_input.h"

namespace {

std::vector<std::string> words_of(std::string_view text) {
    std::vector<std::string> words(1);
    for (const char byte : text) {
        const bool separates = std::string_view{":- \t\r\n"}.find(byte) != std::string_view::npos;
        if (!separates) {
            words.back() += byte;
        } else if (!words.back().empty()) {
            words.emplace_back();
        }
    }
    return words;
}

// No sign, white space or other base; leading zeros do not count.
std::optional<long> number_of(const std::string& word) {
    if (word.empty() || word.size() > 127) return {};
    if (word.find_first_not_of("0123456789") != std::string::npos) return {};
    const std::string digits = word.substr(std::min(word.find_first_not_of('0'), word.size()));
    if (digits.size() > 4) return {};
    return digits.empty() ? 0 : std::stol(digits);
}

bool within(std::optional<long> value, long least, long most) {
    return value && *value >= least && *value <= most;
}

long days_in(long month, long year) {
    constexpr std::array<long, 12> lengths{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    return lengths[static_cast<std::size_t>(month)] + (month == 1 && leap ? 1 : 0);
}

std::time_t plain_reading(std::string_view text) {
    const std::vector<std::string> words = words_of(text);
    if (words.size() < 8 || words[7] != "GMT") return -1;
    constexpr std::string_view names = "JanFebMarAprMayJunJulAugSepOctNovDec";
    const std::size_t at = words[2].size() == 3 ? names.find(words[2]) : std::string_view::npos;
    if (at == std::string_view::npos || at % 3 != 0) return -1;
    const auto month = static_cast<long>(at / 3);
    const auto year = number_of(words[3]);
    if (!within(year, 1000, 9999)) return -1;
    const auto day = number_of(words[1]);
    const auto hour = number_of(words[4]);
    const auto minute = number_of(words[5]);
    const auto second = number_of(words[6]);
    if (!within(day, 1, days_in(month, *year))) return -1;
    if (!within(hour, 0, 23) || !within(minute, 0, 59) || !within(second, 0, 60)) return -1;
    std::tm parts{};
    parts.tm_year = static_cast<int>(*year - 1900);
    parts.tm_mon = static_cast<int>(month);
    parts.tm_mday = static_cast<int>(*day);
    parts.tm_hour = static_cast<int>(*hour);
    parts.tm_min = static_cast<int>(*minute);
    parts.tm_sec = static_cast<int>(*second);
    return ::timegm(&parts);
}

void check_formatter(std::time_t time) {
    char whole[http_date_size];
    wuic_get_http_date(whole, sizeof whole, time);
    // The last second of the last year may be a leap second, which begins a year of five digits.
    const bool four_digits = time >= -30610224000 && time <= 253402300799;
    expect(std::string_view{whole}.size() == (four_digits ? http_date_size - 1 : 0),
           "a date of a year with four digits has one length");
    if (!four_digits) return;
    expect(wuic_parse_http_date(whole) == time, "what is formatted is read back");
    const auto room = static_cast<std::int32_t>(std::uint64_t(time) % http_date_size) + 1;
    const exact_bytes small("", static_cast<std::size_t>(room));
    wuic_get_http_date(small.data(), room, time);
    expect(std::string_view{whole}.substr(0, std::size_t(room) - 1) == small.data(),
           "a small buffer holds the date's beginning");
}

}  // namespace

void fuzz_one(std::string_view data) {
    const exact_text text(data);
    const std::time_t time = wuic_parse_http_date(text.data());
    expect(time == plain_reading(text.view()), "both readings agree");
    if (time != -1) check_formatter(time);
    check_formatter(static_cast<std::time_t>(fuzz_fields{data}.number()) * 67 - 31000000000);
}

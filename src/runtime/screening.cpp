#include "runtime/screening.h"

#include <algorithm>
#include <array>

namespace {

using namespace std::string_view_literals;

constexpr auto htmltags = std::to_array<std::string_view>(
    {"script"sv, "style"sv,   "div"sv,   "frame"sv, "img"sv,   "a "sv,      "a%20"sv,
     "base"sv,   "bgsound"sv, "body"sv,  "meta"sv,  "layer"sv, "object"sv,  "link"sv,
     "table"sv,  "td"sv,      "input"sv, "br"sv,    "embed"sv, "?import"sv, "iframe"sv});

constexpr char ascii_lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool starts_with_tag(std::string_view rest) {
    const char first = rest.empty() ? '\0' : ascii_lower(rest.front());
    return std::ranges::any_of(htmltags, [rest, first](std::string_view tag) {
        return first == tag.front() && rest.size() > tag.size() &&
               std::ranges::equal(rest.substr(0, tag.size()), tag, {}, ascii_lower);
    });
}

// How many bytes of an angle bracket the text starts with: plain or percent-encoded; 0 for none.
std::size_t bracket_length(std::string_view text) {
    if (text.front() == '<') return 1;
    if (text.size() < 3 || text[0] != '%' || text[1] != '3') return 0;
    const char digit = ascii_lower(text[2]);
    return digit == 'c' || digit == 'e' ? 3 : 0;
}

}  // namespace

bool screening_finds_tag(std::string_view query) {
    for (std::size_t at = 0; at < query.size(); ++at) {
        if (query[at] != '<' && query[at] != '%') continue;
        const std::size_t bracket = bracket_length(query.substr(at));
        if (bracket > 0 && starts_with_tag(query.substr(at + bracket))) return true;
    }
    return false;
}

// The leftmost hit of each piece leaves the most room for the next one, so four searches in a row
// decide what a backtracking expression would try in every combination.
bool screening_finds_event_handler(std::string_view decoded) {
    constexpr auto none = std::string_view::npos;
    std::size_t at = std::min(decoded.find('"'), decoded.find('\''));
    if (at == none) return false;
    at = decoded.find("on", at + 1);
    if (at == none) return false;
    at = decoded.find("=(", at + 2);
    if (at == none) return false;
    return decoded.find(')', at + 2) != none;
}

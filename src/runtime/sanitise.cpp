#include "runtime/sanitise.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace {

constexpr char malicious_characters[] = ";\",<>";
constexpr auto malicious_forms = std::to_array<const char*>(
    {"%3B", "%22", "%2C", "%3C", "%3E", "%253B", "%2522", "%252C", "%253C", "%253E"});
constexpr auto traversal_forms =
    std::to_array<const char*>({"../", "%2E%2E%2F", "%252E%252E%252F"});
constexpr std::size_t filename_max = 255;

template <std::size_t N>
bool contains_any(const char* text, const std::array<const char*, N>& forms) {
    return std::ranges::any_of(
        forms, [text](const char* form) { return std::strstr(text, form) != nullptr; });
}

bool is_refused_in_name(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F || c == '/' || c == '\\';
}

}  // namespace

bool is_malicious_chars(const char* text) {
    if (text == nullptr) return false;
    return std::strpbrk(text, malicious_characters) != nullptr ||
           contains_any(text, malicious_forms);
}

bool is_directory_traversal(const char* text) {
    return text != nullptr && contains_any(text, traversal_forms);
}

bool is_sanitized(const char* text) {
    return text != nullptr && !is_malicious_chars(text) && !is_directory_traversal(text);
}

bool is_restricted_filename(const char* name) {
    if (name == nullptr) return true;
    const std::string_view text{name};
    if (text.empty()) return false;
    return text.front() == '.' || text.size() > filename_max ||
           std::ranges::any_of(text, is_refused_in_name) || !is_sanitized(name);
}

// NOLINTNEXTLINE(readability-identifier-naming): fixed name
int isDirectoryFormat(const char* text) {
    if (text == nullptr) return 0;
    return std::strchr(text, '/') != nullptr || std::strstr(text, "..") != nullptr ? 1 : 0;
}

// The conversions between text and markup, read a second time: plain and slow, to compare with.
#pragma once

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <string>
#include <utility>

namespace plain {

using std::string;

// The reference that begins at the "&" at `at`: its length, 0 when there is none, and its meaning.
inline std::pair<std::size_t, char> reference(const string& text, std::size_t at) {
    const std::size_t end = text.find(';', at);
    if (end == string::npos) return {0, '\0'};
    const string name = text.substr(at + 1, end - at - 1);
    const std::pair<const char*, char> named[] = {
        {"lt", '<'}, {"gt", '>'}, {"amp", '&'}, {"quot", '"'}};
    for (const auto& [known, byte] : named) {
        if (name == known) return {name.size() + 2, byte};
    }
    if (name[0] != '#' || name.find_first_not_of("0123456789", 1) != string::npos) return {0, '\0'};
    const long number = std::strtol(name.substr(1, 31).c_str(), nullptr, 10);
    return {name.size() + 2, static_cast<char>(std::min<long>(number, INT_MAX) & 0xFF)};
}

// Appends what stands at `at`, the reference or the "&" itself, and steps over it.
inline void take_reference(string* out, const string& text, std::size_t* at) {
    const auto [length, byte] = reference(text, *at);
    *out += length > 0 ? byte : '&';
    *at += length > 0 ? length : 1;
}

inline string unescaped(const string& text) {
    string out;
    for (std::size_t at = 0; at < text.size();) {
        if (text[at] == '&') {
            take_reference(&out, text, &at);
        } else {
            out += text[at++];
        }
    }
    return out;
}

inline string compacted(const string& value) {
    string out;
    char run = '\0';
    bool escaped = false;
    for (std::size_t at = 0; at < value.size();) {
        const char c = value[at];
        const bool quote = !escaped && (c == '\'' || c == '"') && (run == '\0' || run == c);
        if (c == '&') {
            take_reference(&out, value, &at);
            escaped = false;
            continue;
        }
        if (quote) run = run == '\0' ? c : '\0';
        if (!quote && (escaped || c != '\\')) out += c;
        escaped = !escaped && c == '\\';
        ++at;
    }
    return out;
}

inline string trimmed(const string& text, const string& set = " \t\r\n") {
    const std::size_t first = text.find_first_not_of(set);
    if (first == string::npos) return "";
    return text.substr(first, text.find_last_not_of(set) - first + 1);
}

}  // namespace plain

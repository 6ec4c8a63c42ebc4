// Tiny text helpers that every floor needs.
#pragma once

#include <string_view>

// What a missing string prints as. Handing a null pointer to %s is undefined (C17 7.21.6.1), so
// every optional text goes through here.
inline const char* text_or_null(const char* text) {
    return text != nullptr ? text : "(null)";
}

constexpr bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// The text without blanks, tabs, CR and LF at both ends.
constexpr std::string_view trimmed(std::string_view text) {
    while (!text.empty() && is_blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back()))
        text.remove_suffix(1);
    return text;
}

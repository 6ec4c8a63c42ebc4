// Tiny text helpers that every floor needs.
#pragma once

// What a missing string prints as. Handing a null pointer to %s is undefined (C17 7.21.6.1), so
// every optional text goes through here.
inline const char* text_or_null(const char* text) {
    return text != nullptr ? text : "(null)";
}

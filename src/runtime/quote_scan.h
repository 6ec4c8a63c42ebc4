// Where a scan stands among quotes and backslashes: a backslash takes the next byte's meaning, a
// quote opens a run that only the same quote closes.
#pragma once

struct quote_scan {
    char open = '\0';  // the quote that encloses the next byte
    bool escaped = false;

    // Whether the next byte means what it is.
    constexpr bool is_plain() const { return open == '\0' && !escaped; }

    constexpr void step(char byte) {
        if (escaped) {
            escaped = false;
        } else if (byte == '\\') {
            escaped = true;
        } else if (byte == '\'' || byte == '"') {
            if (open == '\0') {
                open = byte;
            } else if (open == byte) {
                open = '\0';
            }
        }
    }
};

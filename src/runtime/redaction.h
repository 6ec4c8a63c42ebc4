// What a log line shows of a text that may hold a secret: the system log has many readers, and the
// debug trace everybody. Nothing here needs memory.
#pragma once

#include <cstddef>
#include <string_view>

inline constexpr std::size_t redacted_size = 1024;

// NUL-terminated. What does not fit is left out, in whole fields, and "..." stands for it.
struct redacted {
    char text[redacted_size];
};

// A query or a form's body. Each field stands as its name and the length of its value, in bytes:
// "name=[12]&[3]". A name is shown where "=" follows and it is 1 to 32 of A-Z a-z 0-9 _ . and -;
// of anything else only the length. A null text is "(null)".
redacted redact_fields(const char* text);
redacted redact_fields(std::string_view text);

// One field of a form; null texts are empty.
redacted redact_field(const char* name, const char* value);

// A URI, or a key that may be one: its path as it stands; what follows "?" or "&", and a token that
// stands in the path, as redact_fields.
redacted redact_uri(const char* uri);
redacted redact_uri(std::string_view uri);

// A session identifier: its first eight characters and "...".
redacted redact_identifier(std::string_view identifier);

// A message in which the identifier may stand, which is shown as redact_identifier does.
redacted redact_within(std::string_view message, std::string_view identifier);

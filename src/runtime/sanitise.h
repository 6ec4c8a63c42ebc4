// Checks on names and arguments that a client supplies. All are false for a null text, but for
// is_restricted_filename, which refuses it.
#pragma once

// Contains ; " , < > or one of their (also doubly) percent-encoded forms, upper case only.
[[nodiscard]] bool is_malicious_chars(const char* text);
// Contains "../" or its (also doubly) percent-encoded form.
[[nodiscard]] bool is_directory_traversal(const char* text);
// Neither of the two.
[[nodiscard]] bool is_sanitized(const char* text);
// Whether an upload must not carry this bare file name. Refused are names that begin with a dot,
// hold a separator of either kind or a control byte, exceed 255 bytes, or fail is_sanitized. An
// empty one passes: browsers send it where no file was chosen.
[[nodiscard]] bool is_restricted_filename(const char* name);
// 1 when the text holds a "/" or "..", so that as a file name it could leave its directory; else 0.
[[nodiscard]] int isDirectoryFormat(  // NOLINT(readability-identifier-naming): fixed name
    const char* text);

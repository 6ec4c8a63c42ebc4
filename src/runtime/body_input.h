// The body of a request (RFC 3875 section 4.2): its stated length, and reading it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <sys/types.h>

#include "runtime/cgi.h"

inline constexpr std::size_t body_chunk = 102400;  // bytes of a body read at a time

// CONTENT_LENGTH as a decimal number: 0 when it has no digits, the nearest 64-bit number when it is
// beyond that range; none when the variable is absent.
std::optional<std::int64_t> body_content_length(const cgi* input);

// Reads `length` bytes from `fd`, in as many reads as it takes. Returns how many came before the
// input ended, or -1 with errno set when a read failed.
[[nodiscard]] ssize_t read_whole(int fd, char* bytes, std::size_t length);

// Reads up to `length` bytes of the body and drops them; ends early where it does.
void body_discard(std::int64_t length);

// The writer beneath all text conversions: stores what fits into the caller's buffer and counts
// everything, so that a call with size 0 measures. It writes no terminating NUL, formatted text
// excepted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

struct bounded_writer {
    char* out;             // borrowed; not touched when size is 0
    std::size_t size;      // bytes that may be written
    std::size_t used = 0;  // bytes appended, in full; may exceed size
};

// A writer over `size` bytes of `out`; a negative size or a null `out` only measures.
bounded_writer bounded_writer_new(char* out, std::int64_t size);

// A writer that keeps back one byte for a NUL (bounded_writer_terminate). An `out_size` below 1
// only measures.
bounded_writer bounded_writer_text(char* out, std::int32_t out_size);

// Appends bytes, cutting them where the room ends. They may overlap `out` from behind its end.
void bounded_writer_append(bounded_writer* to, std::string_view bytes);

// Appends formatted text. What is stored ends in a NUL, which does not count and which the next
// append overwrites.
[[gnu::format(printf, 2, 3)]] void bounded_writer_fmt(bounded_writer* to, const char* format, ...);

// Appends a piece that is stored whole or not at all; where it is not, the rest of the buffer is
// zeroed and nothing more is stored.
void bounded_writer_append_whole(bounded_writer* to, std::string_view piece);

// Writes a NUL behind what was stored.
// REQUIRES: made by bounded_writer_text over the same `out` and `out_size`.
void bounded_writer_terminate(const bounded_writer* to, std::int32_t out_size);

// The bytes appended when they are fewer than the size, else their negated number; -1 where that
// leaves 32 bits.
int bounded_writer_result(const bounded_writer* to);

// Text buffer of fixed size, over storage of the caller's that must outlive the record. What does
// not fit is counted but not stored: the negated length that reports the cut also tells how much
// room the whole text wants.
//
// One rule for all results: they are positive up to capacity - 2. With one character more the last
// byte before the NUL is taken, and the result is negative even if all of the text was stored.
#pragma once

#include <cstdarg>
#include <cstdint>

inline constexpr std::uint32_t fsb_magic = 0xBAADBEEF;

// Laid out as wms_strbuf is: wms_strbuf_free may be given either, and tells them by their tags.
struct fsb {
    std::uint32_t magic;
    std::int32_t capacity;  // size of the storage in bytes
    std::int32_t length;    // characters appended, in full; may exceed the capacity
    char* data;             // the caller's storage; null with capacity 0 only measures
};

// Makes an empty buffer over `storage` of `size` bytes, which is not touched. Returns `buf`.
fsb* fsb_new(fsb* buf, char* storage, std::int32_t size);

// Appends `n` bytes, storing what fits. Returns the new length, negated when it is capacity - 1 or
// more; -1 for a negative n or a length that would leave 32 bits, the buffer unchanged.
int fsb_append(fsb* buf, const char* bytes, std::int32_t n);

// Appends formatted text, storing one byte less than fsb_append would. Result as fsb_append.
[[gnu::format(printf, 2, 3)]] int fsb_fmt(fsb* buf, const char* format, ...);
[[gnu::format(printf, 2, 0)]] int fsb_vfmt(fsb* buf, const char* format, va_list args);

// Empties the buffer.
void fsb_clear(fsb* buf);

// Moves the length to `offset` bytes from the start (whence 0), from where it is (1) or from the
// capacity (2), and returns it; it may then lie outside the storage. -1 for any other whence or a
// length beyond 32 bits. While the length is negative, appending stores nothing.
int fsb_seek(fsb* buf, std::int32_t offset, int whence);

// Forgets the storage and zeroes the record.
void fsb_free(fsb* buf);

// Growing text buffer: one heap block, NUL-terminated after every append. Responses are put
// together in it. A view or pointer into `data` dies with the next append.
#pragma once

#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <string_view>

inline constexpr std::uint32_t wms_strbuf_magic = 0x900DBEEF;

struct wms_strbuf {
    std::uint32_t magic;    // wms_strbuf_magic: only such a buffer frees its block
    std::int32_t capacity;  // size of the block in bytes, grown in steps of 1024; 0: none yet
    std::int32_t length;    // bytes in use, the terminating NUL not counted
    char* data;             // null while there is no block
};

// Makes an empty buffer; allocates nothing. Returns `buf`.
wms_strbuf* wms_strbuf_new(wms_strbuf* buf);

// Makes room for `need` bytes in all, rounded up to a multiple of 1024; never shrinks.
// Returns 0; -1 for a negative or too large need, for a buffer that was freed or never made, or
// when memory runs out, the buffer unchanged.
[[nodiscard]] int wms_strbuf_brk(wms_strbuf* buf, std::int64_t need);

// Reserves room for `more` bytes and the NUL beyond the present length, at least doubling the
// capacity when it has to grow: for documents that grow item by item. Results as wms_strbuf_brk.
[[nodiscard]] int wms_strbuf_reserve(wms_strbuf* buf, std::int64_t more);

// Appends `n` bytes, which may hold NULs and may lie in the buffer itself. Returns 0; -1 for a
// negative n, missing bytes or a failed growth, the buffer unchanged.
int wms_strbuf_append(wms_strbuf* buf, const char* bytes, std::int32_t n);

// Appends all of the pieces, or nothing, growing as wms_strbuf_reserve does. They must not lie in
// the buffer. Returns 0, or -1 where wms_strbuf_reserve does.
int wms_strbuf_append_all(wms_strbuf* buf, std::initializer_list<std::string_view> pieces);

// Appends formatted text; nothing when it is empty or the growth fails. Always returns 0.
[[gnu::format(printf, 2, 3)]] int wms_strbuf_fmt(wms_strbuf* buf, const char* format, ...);

// Empties the buffer and keeps its block. Returns `data`.
char* wms_strbuf_clear(wms_strbuf* buf);

// Frees the block when the tag is wms_strbuf_magic, and zeroes the record. Null is ignored.
void wms_strbuf_free(wms_strbuf* buf);

// Writes the text to `stream` in a single fwrite(3); null is standard output.
void wms_strbuf_out(const wms_strbuf* buf, std::FILE* stream);

// A buffer that is freed with its scope.
struct scoped_strbuf {
    wms_strbuf buf;
    scoped_strbuf() noexcept { wms_strbuf_new(&buf); }
    ~scoped_strbuf() { wms_strbuf_free(&buf); }
    scoped_strbuf(const scoped_strbuf&) = delete;
    scoped_strbuf& operator=(const scoped_strbuf&) = delete;
    operator wms_strbuf*() noexcept { return &buf; }
};

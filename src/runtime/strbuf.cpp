#include "runtime/strbuf.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "runtime/request.h"

namespace {

constexpr std::int64_t growth_step = 1024;
constexpr std::int64_t capacity_max = INT32_MAX / growth_step * growth_step;

char* end_of(const wms_strbuf* buf) {
    return buf->data + buf->length;
}

std::size_t free_room(const wms_strbuf* buf) {
    return static_cast<std::size_t>(buf->capacity - buf->length);
}

// Formats into what room there is. Returns the length of the whole text.
[[gnu::format(printf, 2, 0)]] int format_at_end(const wms_strbuf* buf, const char* format,
                                                va_list args) {
    if (buf->data == nullptr) return std::vsnprintf(nullptr, 0, format, args);
    return std::vsnprintf(end_of(buf), free_room(buf), format, args);
}

}  // namespace

wms_strbuf* wms_strbuf_new(wms_strbuf* buf) {
    *buf = {.magic = wms_strbuf_magic, .capacity = 0, .length = 0, .data = nullptr};
    return buf;
}

int wms_strbuf_brk(wms_strbuf* buf, std::int64_t need) {
    // Storage of a fixed buffer, or of nobody, is not ours to reallocate.
    if (buf->magic != wms_strbuf_magic || need < 0 || need > capacity_max) return -1;
    const std::int64_t size = (need + growth_step - 1) / growth_step * growth_step;
    if (size <= buf->capacity) return 0;
    auto* const block = static_cast<char*>(std::realloc(buf->data, static_cast<std::size_t>(size)));
    if (block == nullptr) {
        if (request_record* const request = request_current_or_null()) request->text_lost = true;
        return -1;
    }
    if (buf->data == nullptr) block[0] = '\0';
    buf->data = block;
    buf->capacity = static_cast<std::int32_t>(size);
    return 0;
}

int wms_strbuf_reserve(wms_strbuf* buf, std::int64_t more) {
    if (more < 0 || more > capacity_max) return -1;
    const std::int64_t need = buf->length + more + 1;
    if (need <= buf->capacity) return 0;
    const std::int64_t doubled = std::min(2 * std::int64_t{buf->capacity}, capacity_max);
    return wms_strbuf_brk(buf, std::max(need, doubled));
}

int wms_strbuf_append(wms_strbuf* buf, const char* bytes, std::int32_t n) {
    if (n < 0 || (bytes == nullptr && n > 0)) return -1;
    // A piece of the buffer itself moves along with the block.
    const auto distance =
        reinterpret_cast<std::uintptr_t>(bytes) - reinterpret_cast<std::uintptr_t>(buf->data);
    const bool own = buf->data != nullptr && distance < static_cast<std::uintptr_t>(buf->capacity);
    if (wms_strbuf_brk(buf, std::int64_t{buf->length} + n + 1) < 0) return -1;
    if (n > 0) std::memmove(end_of(buf), own ? buf->data + distance : bytes, std::size_t(n));
    buf->length += n;
    *end_of(buf) = '\0';
    return 0;
}

int wms_strbuf_append_all(wms_strbuf* buf, std::initializer_list<std::string_view> pieces) {
    std::size_t size = 0;
    for (const std::string_view piece : pieces)
        size += piece.size();
    if (wms_strbuf_reserve(buf, static_cast<std::int64_t>(size)) < 0) return -1;
    char* end = end_of(buf);
    for (const std::string_view piece : pieces)
        end += piece.copy(end, piece.size());
    *end = '\0';
    buf->length += static_cast<std::int32_t>(size);
    return 0;
}

int wms_strbuf_fmt(wms_strbuf* buf, const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    // One pass does where the room suffices; otherwise it has measured.
    const int n = format_at_end(buf, format, args);
    const std::int64_t need = std::int64_t{buf->length} + n + 1;
    if (n > 0 && need <= buf->capacity) {
        buf->length += n;
    } else if (n > 0 && wms_strbuf_brk(buf, need) == 0) {
        format_at_end(buf, format, again);
        buf->length += n;
    } else if (buf->data != nullptr) {
        *end_of(buf) = '\0';
    }
    va_end(again);
    va_end(args);
    return 0;
}

char* wms_strbuf_clear(wms_strbuf* buf) {
    buf->length = 0;
    if (buf->data != nullptr) buf->data[0] = '\0';
    return buf->data;
}

void wms_strbuf_free(wms_strbuf* buf) {
    if (buf == nullptr) return;
    if (buf->magic == wms_strbuf_magic) std::free(buf->data);
    *buf = {};
}

void wms_strbuf_out(const wms_strbuf* buf, std::FILE* stream) {
    if (buf->length <= 0 || buf->data == nullptr) return;
    std::fwrite(buf->data, 1, static_cast<std::size_t>(buf->length),
                stream != nullptr ? stream : stdout);
}

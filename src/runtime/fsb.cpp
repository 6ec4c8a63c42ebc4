#include "runtime/fsb.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "runtime/strbuf.h"

// One release routine and the length serve both records.
static_assert(sizeof(fsb) == sizeof(wms_strbuf));
static_assert(offsetof(fsb, magic) == offsetof(wms_strbuf, magic));
static_assert(offsetof(fsb, capacity) == offsetof(wms_strbuf, capacity));
static_assert(offsetof(fsb, length) == offsetof(wms_strbuf, length));
static_assert(offsetof(fsb, data) == offsetof(wms_strbuf, data));

namespace {

bool has_storage(const fsb* buf) {
    return buf->data != nullptr && buf->capacity > 0;
}

// What can be stored behind the present length, the terminating NUL not counted.
std::int64_t room(const fsb* buf) {
    if (!has_storage(buf) || buf->length < 0) return 0;
    return std::max<std::int64_t>(std::int64_t{buf->capacity} - buf->length - 1, 0);
}

bool can_count(const fsb* buf, std::int64_t n) {
    return n >= 0 && buf->length + n <= INT32_MAX;
}

int count_and_terminate(fsb* buf, std::int32_t n) {
    buf->length += n;
    if (has_storage(buf) && buf->length >= 0) {
        buf->data[std::min(buf->length, buf->capacity - 1)] = '\0';
    }
    return buf->length < buf->capacity - 1 ? buf->length : -buf->length;
}

}  // namespace

fsb* fsb_new(fsb* buf, char* storage, std::int32_t size) {
    *buf = {.magic = fsb_magic, .capacity = std::max(size, 0), .length = 0, .data = storage};
    return buf;
}

int fsb_append(fsb* buf, const char* bytes, std::int32_t n) {
    if (!can_count(buf, n) || (bytes == nullptr && n > 0)) return -1;
    const auto stored = std::min<std::int64_t>(n, room(buf));
    if (stored > 0) {
        std::memmove(buf->data + buf->length, bytes, static_cast<std::size_t>(stored));
    }
    return count_and_terminate(buf, n);
}

int fsb_fmt(fsb* buf, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int result = fsb_vfmt(buf, format, args);
    va_end(args);
    return result;
}

int fsb_vfmt(fsb* buf, const char* format, va_list args) {
    const auto limit = static_cast<std::size_t>(room(buf));
    char* const at = limit > 0 ? buf->data + buf->length : nullptr;
    const int n = std::max(std::vsnprintf(at, limit, format, args), 0);
    if (can_count(buf, n)) return count_and_terminate(buf, n);
    count_and_terminate(buf, 0);
    return -1;
}

void fsb_clear(fsb* buf) {
    buf->length = 0;
    if (has_storage(buf)) buf->data[0] = '\0';
}

int fsb_seek(fsb* buf, std::int32_t offset, int whence) {
    std::int64_t base = 0;
    if (whence == 1) base = buf->length;
    if (whence == 2) base = buf->capacity;
    const std::int64_t target = base + offset;
    if (whence < 0 || whence > 2 || target > INT32_MAX || target <= INT32_MIN) return -1;
    buf->length = static_cast<std::int32_t>(target);
    return buf->length;
}

void fsb_free(fsb* buf) {
    if (buf != nullptr) *buf = {};
}

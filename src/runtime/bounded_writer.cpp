#include "runtime/bounded_writer.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

std::size_t room(const bounded_writer* to) {
    return to->used < to->size ? to->size - to->used : 0;
}

}  // namespace

bounded_writer bounded_writer_new(char* out, std::int64_t size) {
    const bool stores = out != nullptr && size > 0;
    return {.out = out, .size = stores ? static_cast<std::size_t>(size) : 0};
}

bounded_writer bounded_writer_text(char* out, std::int32_t out_size) {
    return bounded_writer_new(out, std::int64_t{out_size} - 1);
}

void bounded_writer_append(bounded_writer* to, std::string_view bytes) {
    const std::size_t stored = std::min(bytes.size(), room(to));
    if (stored > 0) std::memmove(to->out + to->used, bytes.data(), stored);
    to->used += bytes.size();
}

void bounded_writer_fmt(bounded_writer* to, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const std::size_t left = room(to);
    const int length = std::vsnprintf(left > 0 ? to->out + to->used : nullptr, left, format, args);
    va_end(args);
    if (length > 0) to->used += static_cast<std::size_t>(length);
}

void bounded_writer_append_whole(bounded_writer* to, std::string_view piece) {
    const std::size_t left = room(to);
    if (piece.size() <= left) {
        std::memcpy(to->out + to->used, piece.data(), piece.size());
    } else if (left > 0) {
        std::memset(to->out + to->used, 0, left);
    }
    to->used += piece.size();
}

void bounded_writer_terminate(const bounded_writer* to, std::int32_t out_size) {
    if (to->out != nullptr && out_size > 0) to->out[std::min(to->used, to->size)] = '\0';
}

int bounded_writer_result(const bounded_writer* to) {
    if (to->used > INT32_MAX) return -1;
    const int whole = static_cast<int>(to->used);
    return to->used < to->size ? whole : -whole;
}

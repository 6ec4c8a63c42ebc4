#include "runtime/wsv.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr std::int32_t pointer_size = 8;  // bytes of the commonest elements

char* element_at(const wsv* vec, std::int32_t i) {
    return vec->buf.data + std::size_t(i) * vec->elem_size;
}

bool holds(const wsv* vec, std::int32_t i) {
    return vec != nullptr && i >= 0 && i < vec->count;
}

// The element size as a length of the buffer; -1 for one that no vector can hold.
std::int32_t step(const wsv* vec) {
    const std::uint32_t size = vec->elem_size;
    return size > 0 && size <= INT32_MAX ? static_cast<std::int32_t>(size) : -1;
}

}  // namespace

wsv* wsv_new(wsv* vec, std::uint32_t elem_size) {
    wms_strbuf_new(&vec->buf);
    vec->elem_size = elem_size;
    vec->count = 0;
    return vec;
}

void* wsv_add(wsv* vec, const void* element) {
    if (vec == nullptr || element == nullptr) return nullptr;
    const std::int32_t size = step(vec);
    wms_strbuf* const buf = &vec->buf;
    // Vectors of pointers grow by hundreds of thousands: no calls while there is room.
    if (size == pointer_size && buf->capacity - buf->length > size) {
        std::memcpy(buf->data + buf->length, element, pointer_size);
        buf->length += size;
        buf->data[buf->length] = '\0';
    } else if (wms_strbuf_append(buf, static_cast<const char*>(element), size) < 0) {
        return nullptr;
    }
    return element_at(vec, vec->count++);
}

int wsv_alloc(wsv* vec) {
    if (vec == nullptr || step(vec) < 0) return -1;
    if (wms_strbuf_brk(&vec->buf, std::int64_t{vec->buf.length} + step(vec) + 1) < 0) return -1;
    vec->buf.length += step(vec);
    vec->buf.data[vec->buf.length] = '\0';
    return vec->count++;
}

int wsv_length(const wsv* vec) {
    return vec != nullptr ? vec->count : 0;
}

void* wsv_nth(const wsv* vec, std::int32_t i) {
    return holds(vec, i) ? element_at(vec, i) : nullptr;
}

int wsv_index(const wsv* vec, const void* element) {
    if (wsv_length(vec) == 0) return -1;
    // Compared as numbers: the address may belong to another object.
    const auto at = reinterpret_cast<std::uintptr_t>(element);
    const auto base = reinterpret_cast<std::uintptr_t>(vec->buf.data);
    if (at < base || at - base >= static_cast<std::uintptr_t>(vec->buf.length)) return -1;
    return static_cast<int>((at - base) / vec->elem_size);
}

void wsv_del(wsv* vec, std::int32_t i) {
    if (!holds(vec, i)) return;
    const auto later = std::size_t(vec->count - i - 1) * vec->elem_size;
    if (later > 0) std::memmove(element_at(vec, i), element_at(vec, i + 1), later);
    --vec->count;
    vec->buf.length -= step(vec);
    vec->buf.data[vec->buf.length] = '\0';
}

void wsv_del2(wsv* vec, const void* element) {
    wsv_del(vec, wsv_index(vec, element));
}

void wsv_clear(wsv* vec) {
    if (vec == nullptr) return;
    wms_strbuf_clear(&vec->buf);
    vec->count = 0;
}

void* wsv_lsearch(const wsv* vec, const void* key, wsv_compare* compare) {
    for (std::int32_t i = 0; i < wsv_length(vec); ++i) {
        if (compare(element_at(vec, i), key) == 0) return element_at(vec, i);
    }
    return nullptr;
}

void* wsv_bsearch(const wsv* vec, const void* key, wsv_compare* compare) {
    std::int32_t low = 0;
    std::int32_t high = wsv_length(vec);
    while (low < high) {
        const std::int32_t middle = low + (high - low) / 2;
        const int order = compare(element_at(vec, middle), key);
        if (order == 0) return element_at(vec, middle);
        if (order > 0) {
            high = middle;
        } else {
            low = middle + 1;
        }
    }
    return nullptr;
}

void wsv_sort(wsv* vec, wsv_compare* compare) {
    if (wsv_length(vec) < 2) return;
    std::qsort(vec->buf.data, static_cast<std::size_t>(vec->count), vec->elem_size, compare);
}

void wsv_free(wsv* vec) {
    if (vec == nullptr) return;
    wms_strbuf_free(&vec->buf);
    *vec = {};
}

// The vector under the names that the location code uses. It is the vector of wsv.h but for what
// is stated here.
#pragma once

#include <cstdint>

#include "runtime/wsv.h"

using aqt_vector = wsv;

// Makes an empty vector. Returns 0, or -1 for null.
inline int aqt_vector_init(aqt_vector* vec, std::uint32_t elem_size) {
    if (vec == nullptr) return -1;
    *vec = {};
    wsv_new(vec, elem_size);
    return 0;
}

inline void aqt_vector_deinit(aqt_vector* vec) {
    wsv_free(vec);
}

inline int aqt_vector_length(const aqt_vector* vec) {
    return wsv_length(vec);
}
inline void* aqt_vector_nth(const aqt_vector* vec, std::int32_t i) {
    return wsv_nth(vec, i);
}
inline int aqt_vector_alloc(aqt_vector* vec) {
    return wsv_alloc(vec);
}
inline void* aqt_vector_add(aqt_vector* vec, const void* element) {
    return wsv_add(vec, element);
}

// Returns 0; callers ignore it.
inline int aqt_vector_del(aqt_vector* vec, std::int32_t i) {
    wsv_del(vec, i);
    return 0;
}

// Takes the distance in bytes from the first element as the index, so that it removes the element
// meant only when that is the first one or elements are one byte long. Kept: callers rely on it.
inline void aqt_vector_del2(aqt_vector* vec, const void* element) {
    if (wsv_length(vec) == 0) return;
    const auto distance =
        reinterpret_cast<std::uintptr_t>(element) - reinterpret_cast<std::uintptr_t>(vec->buf.data);
    if (distance < static_cast<std::uintptr_t>(vec->count)) {
        wsv_del(vec, static_cast<std::int32_t>(distance));
    }
}

inline void aqt_vector_clear(aqt_vector* vec) {
    wsv_clear(vec);
}

inline void* aqt_vector_lsearch(const aqt_vector* vec, const void* key, wsv_compare* compare) {
    return wsv_lsearch(vec, key, compare);
}
inline void* aqt_vector_bsearch(const aqt_vector* vec, const void* key, wsv_compare* compare) {
    return wsv_bsearch(vec, key, compare);
}
inline void aqt_vector_sort(aqt_vector* vec, wsv_compare* compare) {
    wsv_sort(vec, compare);
}

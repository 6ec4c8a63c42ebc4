// Vector of fixed-size elements, copied in by value and kept back to back in a growing buffer.
// Where the elements are pointers, their targets stay the caller's. Adding an element may move them
// all; removing one moves those behind it.
#pragma once

#include <cstdint>

#include "runtime/strbuf.h"

struct wsv {
    wms_strbuf buf;           // length == count * elem_size
    std::uint32_t elem_size;  // bytes per element
    std::int32_t count;
};

// Compares two elements (wsv_sort) or an element with a key (the searches): negative, 0 or positive
// as the first is before, equal to or after the second.
using wsv_compare = int(const void* element, const void* key);

// Makes an empty vector; allocates nothing. Returns `vec`.
// REQUIRES: elem_size above 0 (with 0, every addition fails).
wsv* wsv_new(wsv* vec, std::uint32_t elem_size);

// Copies one element, which may lie in the vector, to its end. Returns where the copy is; null, the
// vector unchanged, for a missing argument or when it cannot grow.
void* wsv_add(wsv* vec, const void* element);
// Adds one element of undefined bytes. Returns its index; -1 where wsv_add returns null.
int wsv_alloc(wsv* vec);

// The number of elements; 0 for null.
int wsv_length(const wsv* vec);
// The address of element `i`; null for null or an index out of range.
void* wsv_nth(const wsv* vec, std::int32_t i);
// The index of the element at, or around, an address; -1 when it is not in the vector.
int wsv_index(const wsv* vec, const void* element);

// Removes element `i` and keeps the order of the others; ignored for null or an index out of range.
void wsv_del(wsv* vec, std::int32_t i);
// Removes the element at an address.
void wsv_del2(wsv* vec, const void* element);
// Removes all elements and keeps the storage.
void wsv_clear(wsv* vec);

// The first element that compares equal to the key, tried in order; null when there is none.
void* wsv_lsearch(const wsv* vec, const void* key, wsv_compare* compare);
// Some element that compares equal to the key, by halving; null when there is none.
// REQUIRES: sorted by `compare`.
void* wsv_bsearch(const wsv* vec, const void* key, wsv_compare* compare);
// Sorts in place; equal elements keep no order.
void wsv_sort(wsv* vec, wsv_compare* compare);

// Frees the storage and zeroes the record. Null is ignored.
void wsv_free(wsv* vec);

// A vector that is freed with its scope.
struct scoped_wsv {
    wsv vec;
    explicit scoped_wsv(std::uint32_t elem_size) noexcept { wsv_new(&vec, elem_size); }
    ~scoped_wsv() { wsv_free(&vec); }
    scoped_wsv(const scoped_wsv&) = delete;
    scoped_wsv& operator=(const scoped_wsv&) = delete;
    operator wsv*() noexcept { return &vec; }
};

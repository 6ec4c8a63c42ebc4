#include "runtime/escape_table.h"

#include <algorithm>
#include <cstring>

#include "runtime/strbuf.h"

namespace {

// Room beyond the text and its NUL, so that the next small append need not grow the buffer.
constexpr std::int64_t spare = 32;

constexpr std::int64_t longest_replacement = 6;

// A carriage return that a line feed follows is no byte of its own, where the table says so.
template <bool drops>
bool is_dropped(std::string_view in, std::size_t at) {
    return drops && in[at] == '\r' && at + 1 < in.size() && in[at + 1] == '\n';
}

template <bool drops>
std::size_t measure(std::string_view in, const escape_table& table) {
    std::size_t size = 0;
    for (std::size_t at = 0; at < in.size(); ++at) {
        if (!is_dropped<drops>(in, at)) size += table.of(in[at]).length;
    }
    return size;
}

std::size_t escaped_size(std::string_view in, const escape_table& table) {
    return table.drops_cr_before_lf ? measure<true>(in, table) : measure<false>(in, table);
}

// So many bytes at the end are written one by one. Each takes room, or the next one does, so what
// whole entries leave behind themselves is written over: callers find there what they had there.
constexpr std::size_t held_back = 2 * sizeof(escape_entry);

// Writes whole entries, whatever their length, and moves on by that: no branch depends on the text,
// and the room is looked at once for as many bytes as surely fit. Returns how many were read.
template <bool drops>
std::size_t write_entries(bounded_writer* to, std::string_view in, const escape_table& table) {
    std::size_t at = 0;
    while (in.size() - at > held_back && to->used < to->size) {
        const std::size_t sure = (to->size - to->used) / sizeof(escape_entry);
        if (sure <= held_back) break;
        const std::size_t end = at + std::min(in.size() - at, sure) - held_back;
        char* out = to->out + to->used;
        for (; at < end; ++at) {
            if (is_dropped<drops>(in, at)) continue;
            const escape_entry entry = table.of(in[at]);
            std::memcpy(out, &entry, sizeof entry);
            out += entry.length;
        }
        to->used = static_cast<std::size_t>(out - to->out);
    }
    return at;
}

template <bool drops>
void append(bounded_writer* to, std::string_view in, const escape_table& table) {
    std::size_t at = write_entries<drops>(to, in, table);
    // For all that the compiler knows, a byte that is written could be one of the writer's own.
    char* const out = to->out;
    const std::size_t size = to->size;
    std::size_t used = to->used;
    for (; at < in.size() && used < size; ++at) {
        if (is_dropped<drops>(in, at)) continue;
        const escape_entry& entry = table.of(in[at]);
        if (entry.length == 1) {
            out[used++] = entry.text[0];
        } else {
            to->used = used;
            bounded_writer_append_whole(to, {entry.text.data(), entry.length});
            used = to->used;
        }
    }
    to->used = used + measure<drops>(in.substr(at), table);  // what is not stored is counted
}

// True when the buffer holds the escaped text, measuring it only where the worst case might not
// fit.
bool make_room(wms_strbuf* buf, std::string_view in, const escape_table& table) {
    const auto worst = static_cast<std::int64_t>(in.size()) * longest_replacement;
    if (buf->length + worst + spare <= buf->capacity) return true;
    // A document may be made of millions of small texts: its buffer grows by doubling.
    return wms_strbuf_reserve(buf, static_cast<std::int64_t>(escaped_size(in, table)) + spare) == 0;
}

}  // namespace

void escape_append(bounded_writer* to, std::string_view in, const escape_table& table) {
    if (table.drops_cr_before_lf) {
        append<true>(to, in, table);
    } else {
        append<false>(to, in, table);
    }
}

std::int32_t escape_to_strbuf(wms_strbuf* buf, std::string_view in, const escape_table& table) {
    if (in.empty() || !make_room(buf, in, table)) return 0;
    bounded_writer to = bounded_writer_new(buf->data + buf->length, buf->capacity - buf->length);
    escape_append(&to, in, table);
    const auto added = static_cast<std::int32_t>(to.used);
    buf->length += added;
    buf->data[buf->length] = '\0';
    return added;
}

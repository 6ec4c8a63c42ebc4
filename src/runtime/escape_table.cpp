#include "runtime/escape_table.h"

#include "runtime/strbuf.h"

namespace {

// Room beyond the text and its NUL, so that the next small append need not grow the buffer.
constexpr std::int64_t spare = 32;

constexpr std::int64_t longest_replacement = 6;

// True when the buffer holds the escaped text, measuring it only where the worst case might not
// fit.
bool make_room(wms_strbuf* buf, std::string_view in, const escape_table& table) {
    const auto worst = static_cast<std::int64_t>(in.size()) * longest_replacement;
    if (buf->length + worst + spare <= buf->capacity) return true;
    bounded_writer measure = bounded_writer_new(nullptr, 0);
    escape_append(&measure, in, table);
    // A document may be made of millions of small texts: its buffer grows by doubling.
    return wms_strbuf_reserve(buf, static_cast<std::int64_t>(measure.used) + spare) == 0;
}

}  // namespace

void escape_append(bounded_writer* to, std::string_view in, const escape_table& table) {
    std::size_t copied = 0;
    for (std::size_t i = 0; i < in.size(); ++i) {
        const escape_entry& entry = table.entries[static_cast<unsigned char>(in[i])];
        if (entry.length == 0) continue;
        bounded_writer_append(to, in.substr(copied, i - copied));
        copied = i + 1;
        const bool dropped =
            table.drops_cr_before_lf && in[i] == '\r' && in.substr(i + 1, 1) == "\n";
        if (!dropped) bounded_writer_append_whole(to, {entry.text.data(), entry.length});
    }
    bounded_writer_append(to, in.substr(copied));
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

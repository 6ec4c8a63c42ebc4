// Escaping by table: what each byte is written as, itself or a replacement. All escapers share the
// one loop over it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "runtime/bounded_writer.h"

struct wms_strbuf;

// What one byte is written as. Eight bytes, which are copied in one move.
struct escape_entry {
    std::array<char, 7> text{};
    std::uint8_t length = 0;

    constexpr void set(std::string_view replacement) {
        length = 0;
        add(replacement);
    }
    constexpr void add(std::string_view more) {
        for (const char c : more)
            text[length++] = c;
    }
};
static_assert(sizeof(escape_entry) == 8);

struct escape_table {
    std::array<escape_entry, 256> entries{};
    bool drops_cr_before_lf = false;

    constexpr escape_table() {
        for (unsigned byte = 0; byte < entries.size(); ++byte) {
            entries[byte].text[0] = static_cast<char>(byte);
            entries[byte].length = 1;
        }
    }
    const escape_entry& of(char byte) const { return entries[static_cast<unsigned char>(byte)]; }
    constexpr void set(char byte, std::string_view replacement) {
        entries[static_cast<unsigned char>(byte)].set(replacement);
    }
};

// Appends `in` by the table. Replacements are stored whole or not at all; what does not fit zeroes
// the rest of the room. `in` must not lie in the room.
void escape_append(bounded_writer* to, std::string_view in, const escape_table& table);

// Appends to a growing buffer, measured first. Returns the bytes added; 0 when there are none or
// the buffer cannot grow.
std::int32_t escape_to_strbuf(wms_strbuf* buf, std::string_view in, const escape_table& table);

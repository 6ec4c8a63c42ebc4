// Escaping by table: what each byte is written as. All escapers share the one loop over it, which
// copies runs of plain bytes at once.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "runtime/bounded_writer.h"

struct wms_strbuf;

// The replacement of one byte; a length of 0 means that the byte is copied.
struct escape_entry {
    std::array<char, 7> text{};
    std::uint8_t length = 0;

    constexpr void set(std::string_view replacement) {
        for (const char c : replacement)
            text[length++] = c;
    }
};

struct escape_table {
    std::array<escape_entry, 256> entries{};
    bool drops_cr_before_lf = false;

    constexpr void set(char byte, std::string_view replacement) {
        entries[static_cast<unsigned char>(byte)].set(replacement);
    }
};

// Appends `in` by the table. Replacements are stored whole or not at all.
void escape_append(bounded_writer* to, std::string_view in, const escape_table& table);

// Appends to a growing buffer, measured first. Returns the bytes added; 0 when there are none or
// the buffer cannot grow.
std::int32_t escape_to_strbuf(wms_strbuf* buf, std::string_view in, const escape_table& table);

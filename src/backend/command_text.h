// The text of a command as a browser sends it: decoded, cut and split, all in place. Texts are
// NUL-terminated.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

// Decodes "%" and "+" (RFC 3986 section 2.1, HTML forms).
void command_url_decode(char* text);

// Decodes the eight references that the browser writes for characters of a command, repeatedly, so
// that a decoded "&" can form a new one. `size` is the text's length. Linear in the text.
void command_unencode(char* text, std::int32_t size);
void command_unencode(char* text);  // as long as its NUL tells

// Cuts the text at its last "@@": what follows is the page's own context and no part of the
// command.
void command_cut_context(char* text);

// Cuts the text at its first CR or LF.
void command_cut_line(char* text);

// The pieces of one text, commands or ports: borrowed from it, NUL-terminated, none of them empty.
struct command_pieces {
    std::array<char*, 4096> items;
    std::size_t count = 0;

    std::span<char* const> view() const { return {items.data(), count}; }
};

// Cuts the text at every byte of `separators` and lists the pieces; empty ones are left out. False
// when there are more than `pieces` holds.
[[nodiscard]] bool command_split(char* text, const char* separators, command_pieces* pieces);

// A file that is looked things up in: its pages are read when they are touched, and no others.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

struct file_unmapper {
    std::size_t size = 0;
    void operator()(const char* bytes) const noexcept;
};
using mapped_file = std::unique_ptr<const char, file_unmapper>;

// Maps a regular file of root's or ours for reading; none when it is missing, empty or another's.
// REQUIRES: whoever replaces the file renames a new one over it, and never shortens it.
[[nodiscard]] mapped_file map_file(const char* path);

// The file's bytes, which live as long as the mapping; empty where there is none.
std::string_view mapped_bytes(const mapped_file& file);

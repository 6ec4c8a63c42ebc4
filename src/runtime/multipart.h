// Forms sent as multipart/form-data (RFC 7578; RFC 2046 section 5.1 for boundaries): finding
// boundaries, reading the heading of a part, and parsing a whole body in memory.
//
// Every search is linear in what it looks at, and stays inside the part or window it is given.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "runtime/cgi.h"

inline constexpr std::size_t boundary_max = 256;  // bytes; RFC 2046 allows 70 behind the "--"

// A delimiter line without its line ends, prepared for searching.
struct boundary {
    std::array<char, boundary_max> text;
    // By matched length: how much of the delimiter still matches after the next byte does not.
    std::array<std::uint16_t, boundary_max + 1> fallback;
    std::size_t length;
};

// Prepares a delimiter: "--" and all that `content_type` has behind "boundary=". Returns false when
// that is nothing, or when the delimiter would exceed boundary_max bytes; null counts as "".
[[nodiscard]] bool boundary_prepare(boundary* delimiter, const char* content_type);

// The offset of the first delimiter in `text`, or std::string_view::npos.
[[nodiscard]] std::size_t boundary_find(const boundary& delimiter, std::string_view text);

struct part_range {
    std::size_t begin = 0;
    std::size_t end = 0;
};

// Where the pieces of one part lie, as offsets into it. Each range may be terminated at its end:
// that byte belongs to the heading and is not needed otherwise.
struct part_heading {
    part_range name;
    part_range filename;
    part_range content_type;
    std::size_t data = 0;  // where the data begins
    bool has_filename = false;
    bool has_content_type = false;
};

// Reads the heading at the start of `part`, which begins behind a delimiter's line end. Returns
// false when it is too short or does not end within `part`.
[[nodiscard]] bool part_read_heading(std::string_view part, part_heading* heading);

// True when an uploaded file must not be taken under the last element of this name.
[[nodiscard]] bool part_is_refused_file(std::string_view filename);

// Parses a body in place, appends its parts to input->pairs and sorts them.
//   body    `length` bytes and a NUL behind them; must outlive the pairs
// The boundary comes from CONTENT_TYPE. A part that is not followed by another delimiter is none.
// Returns 0, cgi_refused for a missing boundary, too many parts or lack of memory, or
// cgi_refused_file.
[[nodiscard]] int multipart_parse(cgi* input, char* body, std::size_t length);

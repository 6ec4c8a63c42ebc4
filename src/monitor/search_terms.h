// How the variables of a search request become parts of a query. What a caller sends enters the
// query in two ways only: as an escaped literal, or as a number; the names in it come from tables.
#pragma once

#include <cstdint>
#include <span>

struct cgi;
struct fsb;

// A word that requests use, and the column that it stands for.
struct search_column {
    const char* word;
    const char* column;
};

inline constexpr int search_literal_size = 512;  // bytes of a literal, its NUL included
inline constexpr int search_sort_size = 1024;    // room enough for all terms that criteria can name

// The reason that a search is refused with, before anything is sent, when its text does not fit.
inline constexpr char search_too_long[] = "Search text is too long";

// Escapes the variable's value for a LIKE pattern between apostrophes. Returns the length; 0 when
// the variable is absent or empty; a negative value when the value does not fit or holds a NUL.
[[nodiscard]] int search_literal(std::span<char, search_literal_size> out, const cgi* vars,
                                 const char* variable);

// The packed location code (campus in bits 24-31, building in 16-23, floor in 0-15; 0: any); 0 when
// the request has none.
std::uint32_t search_location(const cgi* vars);
// Appends a condition for each part of the location that is not 0, `before` and `after` around it.
void search_location_terms(fsb* out, std::uint32_t location, const char* before, const char* after);

// What to sort by: a list of words and directions by turns, separated by commas, of which the first
// 255 characters count; null when the request has none.
const char* search_criteria(const cgi* vars);
// Appends the terms of the criteria, separated by commas: only "desc" sorts downward, a word
// without a column is left out, the first incomplete pair ends the list.
void search_sort_terms(fsb* out, const char* criteria, std::span<const search_column> columns);

// Where a page begins, a multiple of its size, and that size, 10 unless the request says otherwise.
struct search_page {
    std::int32_t offset;
    std::int32_t limit;
};
search_page search_page_of(const cgi* vars);

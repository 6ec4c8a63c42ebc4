// How a search is run on the server, and how its rows become markup.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "platform/ownership.h"

struct wms_strbuf;

// Makes the server read the literals of `sql`, the first query of a search, as they are meant: with
// no apostrophe in any of them, standard-conforming strings keep the backslash that makes a "%" or
// a backslash match itself. A literal with one needs its backslash read away, so there the
// connection stays as it is. Returns false when the server refuses.
[[nodiscard]] bool search_settle_literals(PGconn* db, const char* sql);

// The number of rows that a query yields; -1 when the server refuses it.
[[nodiscard]] int search_count(PGconn* db, const char* sql);

// Appends the generic error, header included, with an escaped reason: that of the last failure on
// the connection, or one of ours. Both return -1, the result of a failed search.
int search_fail(wms_strbuf* out, const PGconn* db);
int search_refuse(wms_strbuf* out, const char* reason);

// Which text of a row an element shows.
enum class shown : std::uint8_t {
    value,
    model,   // the name of the model whose code the value is
    vendor,  // the name of the maker of the MAC address that the value is
};

struct search_field {
    std::string_view tag;
    int column;
    shown as = shown::value;
};

// Runs a query and appends an element per row, with the row's fields in it, as the rows arrive.
// Returns their number; -1 with the server's error in the place of all rows, or with `out` emptied
// when memory ran out.
[[nodiscard]] int search_emit_rows(wms_strbuf* out, PGconn* db, const char* sql,
                                   const char* element, std::span<const search_field> fields);

// What stands in front of the rows: where the page begins, how many it has, how many there are in
// all.
struct search_counts {
    const char* before = "";  // markup
    std::int32_t start = 0;
    std::int32_t length = 0;
    std::int32_t total = 0;
};

// Inserts the counts, which are known last, in front of the rows, which begin at `at`. Returns 0,
// or -1 with `out` emptied when memory ran out.
[[nodiscard]] int search_insert_counts(wms_strbuf* out, std::int32_t at,
                                       const search_counts& counts);

// Appends <tag>, the value and </tag>: a value is escaped, of which at most 1023 bytes are taken,
// and wrapped in a CDATA section as well; null is empty.
void wlm_emit_field(wms_strbuf* out, std::string_view tag, const char* value);
// Appends the element with a text that is escaped already.
void wlm_emit_cdata(wms_strbuf* out, std::string_view tag, const char* escaped);

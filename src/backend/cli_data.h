// The result model of a command: named values, tables and the error text of one XML reply.
//
//   re/data[name], re/cmd[name]   a named value        re/ERROR, re/error   the error text
//   re/t[tn,nc]                   a table of nc columns, with t/th/h headings and t/r/c cells
//
// No text is copied: names, values, headings and cells are decoded where they stand in the reply
// and NUL-terminated there, so a reply is parsed once, must be writable, and must outlive the
// model. It stays the caller's. The vectors grow on the heap; where that fails the model ends at
// what it holds. Names and headings are looked up in any case of (ASCII) letters.
#pragma once

#include <cstdint>

#include "runtime/wsv.h"

struct wuic_cli_table {
    const char* name;      // null without `tn`
    std::int32_t columns;  // `nc`, whatever it says; 0 without
    std::int32_t rows;     // `r` elements seen
    wsv headings;          // of const char*, in document order
    wsv heading_index;     // of wuic_cli_index_entry, sorted by text
    wsv cells;             // of const char*, row after row
    const char* text;      // the part of the reply that the table was read from
    std::int32_t length;
};

struct wuic_cli_index_entry {
    const char* text;
    std::int32_t number;  // of the column, or of the name/value pair
};

struct wuic_cli_data {
    const char* error;  // null when the reply has none
    wsv data;           // of const char*: name, value, name, value ...
    wsv name_index;     // of wuic_cli_index_entry, sorted by text
    wsv tables;         // of wuic_cli_table
    const char* text;   // the reply
    std::int32_t length;
};

// Makes an empty table. Returns 0.
int wuic_cli_table_init(wuic_cli_table* table);
// Reads one `t` element into a table that was just made. Returns 0 when it has as many cells as
// columns times rows, else -1; it is filled either way.
//   text, length   begin at the "<t"; one more byte behind them must be writable
int wuic_cli_table_parse(wuic_cli_table* table, char* text, std::int32_t length);
// A heading, or null for a column that the table does not have.
const char* wuic_cli_table_get_header(const wuic_cli_table* table, std::int32_t column);
// The column of a heading; any one of several of that text; -1 when there is none.
std::int32_t wuic_cli_table_get_header_column(const wuic_cli_table* table, const char* heading);
// A cell, or null for one that the table does not have, whatever its number of columns says.
const char* wuic_cli_table_get_cell(const wuic_cli_table* table, std::int32_t row,
                                    std::int32_t column);
// Frees the vectors and zeroes the record.
void wuic_cli_table_deinit(wuic_cli_table* table);

// Makes an empty model. Returns 0.
int wuic_cli_data_init(wuic_cli_data* data);
// Reads a whole reply; at an error in it, what came before stays. Always returns 0.
//   text, length   the reply; one more byte behind it must be writable, and becomes a NUL
int wuic_cli_data_parse(wuic_cli_data* data, char* text, std::int32_t length);

// Pairs of name and value; the i-th, null out of range; the value of a name, null when there is
// none, any one of several. An element without a name has the name "".
// An element without text has the value that follows its opening tag in the reply, markup and all:
// callers look at the content of values that they need to be empty.
std::int32_t wuic_cli_data_get_num_data(const wuic_cli_data* data);
const char* wuic_cli_data_get_name(const wuic_cli_data* data, std::int32_t i);
const char* wuic_cli_data_get_value(const wuic_cli_data* data, std::int32_t i);
const char* wuic_cli_data_get_named_value(const wuic_cli_data* data, const char* name);

// Tables; the i-th, null out of range; the first of a name, null when there is none. They die with
// the model.
std::int32_t wuic_cli_data_get_num_tables(const wuic_cli_data* data);
const wuic_cli_table* wuic_cli_data_get_table(const wuic_cli_data* data, std::int32_t i);
const wuic_cli_table* wuic_cli_data_get_named_table(const wuic_cli_data* data, const char* name);

// Empties the model for another reply. The error pointer stays what it was.
void wuic_cli_data_clear(wuic_cli_data* data);
// Frees everything and zeroes the record; the reply is not freed.
void wuic_cli_data_deinit(wuic_cli_data* data);

// A model that is freed with its scope.
struct scoped_cli_data {
    wuic_cli_data data;
    scoped_cli_data() noexcept { wuic_cli_data_init(&data); }
    ~scoped_cli_data() { wuic_cli_data_deinit(&data); }
    scoped_cli_data(const scoped_cli_data&) = delete;
    scoped_cli_data& operator=(const scoped_cli_data&) = delete;
    operator wuic_cli_data*() noexcept { return &data; }
};

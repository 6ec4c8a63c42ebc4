#include "backend/cli_data.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <strings.h>

#include "runtime/text.h"

#include "backend/sgml_tokenizer.h"

namespace {

using std::string_view;

constexpr char empty_text[] = "";

// The reply while it is read. What is written to it lies behind the tokenizer, and never on the
// name of an element that is still open.
struct reply_reader {
    sgml_tokenizer tokens;
    char* text;
    scoped_strbuf scratch;  // texts that do not stand in the reply in one piece

    reply_reader(char* reply, std::int32_t length) : text(reply) {
        sgml_tokenizer_init(&tokens, reply, length);
    }
};

// ---- looking at tokens

// Compared by the length of the name wanted: it is a literal, which spares the call.
inline bool is_named(const sgml_token& token, string_view name) {
    return static_cast<std::size_t>(token.name_length) == name.size() &&
           std::memcmp(token.name, name.data(), name.size()) == 0;
}

string_view token_text(const sgml_tokenizer& tokens) {
    return {tokens.text + tokens.token.start, static_cast<std::size_t>(tokens.token.size)};
}

// ---- texts in place

// Out of memory: nothing more is read, so that no cell stands in the place of another.
void stop_reading(reply_reader* reader) {
    reader->tokens.kind = sgml_error;
}

void append_decoded(reply_reader* reader, string_view text) {
    wms_strbuf* const buf = reader->scratch;
    const auto length = static_cast<std::int32_t>(text.size());
    if (wms_strbuf_reserve(buf, length) < 0) return stop_reading(reader);
    // It never grows; where nothing shrinks it fills its room, and the count comes negative.
    buf->length +=
        std::abs(sgml_tokenizer_unescape(buf->data + buf->length, length, text.data(), length));
}

// The text of the current element, decoded and trimmed, with the tokenizer moved to its close tag.
// A view of the reply where the text stands there as it is, else of the scratch buffer.
string_view element_text(reply_reader* reader) {
    sgml_tokenizer* const tokens = &reader->tokens;
    if (tokens->token.self_closing != 0) return {};
    int result = sgml_tokenizer_next(tokens);
    const std::int32_t depth = tokens->depth;
    const auto goes_on = [&] {
        return result == sgml_text ||
               (result == sgml_tag && (tokens->token.closing == 0 || tokens->depth != depth));
    };
    string_view first;
    if (result == sgml_text) {
        first = token_text(*tokens);
        result = sgml_tokenizer_next(tokens);
    }
    if (!goes_on() && first.find('&') == string_view::npos) return trimmed(first);

    wms_strbuf* const scratch = reader->scratch;
    wms_strbuf_clear(scratch);
    append_decoded(reader, first);
    for (; goes_on(); result = sgml_tokenizer_next(tokens)) {
        if (result == sgml_text) append_decoded(reader, token_text(*tokens));
    }
    return trimmed({scratch->data, static_cast<std::size_t>(scratch->length)});
}

// Where the content of the current tag's element begins.
char* content_of(const reply_reader* reader) {
    const sgml_token& token = reader->tokens.token;
    return reader->text + token.start + token.size;
}

// Decoding never makes a text longer, so it and its NUL end at the latest on the close tag's "<",
// or on the byte behind the reply.
void put_text(char* to, string_view text) {
    if (text.data() != to && !text.empty()) std::memmove(to, text.data(), text.size());
    to[text.size()] = '\0';
}

string_view decoded_in_place(char* text, std::int32_t length) {
    if (std::memchr(text, '&', static_cast<std::size_t>(length)) != nullptr) {
        length = std::abs(sgml_tokenizer_unescape(text, length, text, length));
    }
    return {text, static_cast<std::size_t>(length)};
}

// An attribute of the current tag as plain text where it stands; null when it is absent or empty.
// At least one byte of the tag follows each value, and takes the NUL.
const char* attribute_text(reply_reader* reader, string_view name) {
    const char* found = nullptr;
    std::int32_t length = 0;
    if (!sgml_tokenizer_get_attributes(&reader->tokens, name.data(),
                                       static_cast<std::int32_t>(name.size()), &found, &length) ||
        length == 0) {
        return nullptr;
    }
    char* const value = reader->text + (found - reader->text);
    value[std::abs(sgml_tokenizer_compact(value, length, value, length))] = '\0';
    return value;
}

// ---- vectors

void add_text(reply_reader* reader, wsv* to, const char* text) {
    if (wsv_add(to, static_cast<const void*>(&text)) == nullptr) stop_reading(reader);
}

const char* text_at(const wsv* from, std::int64_t i) {
    if (i < 0 || i >= wsv_length(from)) return nullptr;
    return *static_cast<const char* const*>(wsv_nth(from, static_cast<std::int32_t>(i)));
}

int compare_entries(const void* left, const void* right) {
    return strcasecmp(static_cast<const wuic_cli_index_entry*>(left)->text,
                      static_cast<const wuic_cli_index_entry*>(right)->text);
}

int compare_entry_to_text(const void* entry, const void* text) {
    return strcasecmp(static_cast<const wuic_cli_index_entry*>(entry)->text,
                      static_cast<const char*>(text));
}

// Fills an index with every `step`-th text, numbered from 0, and sorts it.
void build_index(wsv* index, const wsv* texts, std::int32_t step) {
    wsv_clear(index);
    for (std::int32_t i = 0; i < wsv_length(texts); i += step) {
        const wuic_cli_index_entry entry{.text = text_at(texts, i), .number = i / step};
        static_cast<void>(wsv_add(index, &entry));
    }
    wsv_sort(index, compare_entries);
}

const wuic_cli_index_entry* find_entry(const wsv* index, const char* text) {
    return static_cast<const wuic_cli_index_entry*>(
        wsv_bsearch(index, text, compare_entry_to_text));
}

// ---- tables

void read_table_attributes(reply_reader* reader, wuic_cli_table* table) {
    table->name = attribute_text(reader, "tn");
    const char* const columns = attribute_text(reader, "nc");
    if (columns == nullptr) return;
    const long number = std::strtol(columns, nullptr, 10);
    table->columns = static_cast<std::int32_t>(std::clamp<long>(number, INT_MIN, INT_MAX));
}

// A self-closing element has no room for a text of its own.
void add_cell(reply_reader* reader, wsv* to) {
    const bool has_room = reader->tokens.token.self_closing == 0;
    char* const content = content_of(reader);
    const string_view text = element_text(reader);
    if (has_room) put_text(content, text);
    add_text(reader, to, has_room ? content : empty_text);
}

// Most elements of a table hold one text and nothing else. As many of them as follow the current
// tag are taken without the tokenizer, which then goes on behind them.
void add_plain_cells(reply_reader* reader, char name, wsv* to) {
    constexpr int opener = 3;  // "<c>"
    constexpr int closer = 4;  // "</c>"
    sgml_tokenizer* const tokens = &reader->tokens;
    const char* const end = reader->text + tokens->length;
    char* at = reader->text + tokens->position;
    while (tokens->kind != sgml_error && end - at >= opener + closer && at[0] == '<' &&
           at[1] == name && at[2] == '>') {
        char* const content = at + opener;
        auto* const close =
            static_cast<char*>(std::memchr(content, '<', static_cast<std::size_t>(end - content)));
        if (close == nullptr || end - close < closer || close[1] != '/' || close[2] != name ||
            close[3] != '>') {
            break;
        }
        const auto length = static_cast<std::int32_t>(close - content);
        put_text(content, trimmed(decoded_in_place(content, length)));
        add_text(reader, to, content);
        at = close + closer;
    }
    tokens->position = static_cast<std::int32_t>(at - reader->text);
}

// Takes the opening tag of a row.
void begin_row(reply_reader* reader, wuic_cli_table* table) {
    const sgml_token& token = reader->tokens.token;
    const bool is_data = is_named(token, "r");
    if (is_data) ++table->rows;
    if (token.self_closing != 0) return;
    if (is_data) add_plain_cells(reader, 'c', &table->cells);
    if (is_named(token, "th")) add_plain_cells(reader, 'h', &table->headings);
}

// Takes an opening tag of the table whose content has the depth `depth`.
void read_table_tag(reply_reader* reader, wuic_cli_table* table, std::int32_t depth) {
    const sgml_tokenizer& tokens = reader->tokens;
    if (tokens.depth == depth) return begin_row(reader, table);
    if (tokens.depth != depth + 1 || depth >= sgml_stack_max) return;
    const sgml_token& parent = tokens.stack[static_cast<std::size_t>(depth)];
    if (is_named(tokens.token, "c") && is_named(parent, "r")) {
        add_cell(reader, &table->cells);
    } else if (is_named(tokens.token, "h") && is_named(parent, "th")) {
        add_cell(reader, &table->headings);
    }
}

// Reads the table whose opening tag is the current token, up to its close tag; without one, it
// takes the rest of the text.
void read_table(reply_reader* reader, wuic_cli_table* table) {
    sgml_tokenizer* const tokens = &reader->tokens;
    const std::int32_t start = tokens->token.start;
    std::int32_t end = start + tokens->token.size;
    const bool has_content = tokens->token.self_closing == 0;
    read_table_attributes(reader, table);
    if (has_content) {
        int result = sgml_tokenizer_next(tokens);
        const std::int32_t depth = tokens->depth;
        for (; result > 0; result = sgml_tokenizer_next(tokens)) {
            if (result != sgml_tag) continue;
            const bool closing = tokens->token.closing != 0;
            if (closing && tokens->depth == depth) break;
            if (!closing) read_table_tag(reader, table, depth);
        }
        end = result > 0 ? tokens->token.start : tokens->length;
    }
    table->text = reader->text + start;
    table->length = end - start;
    build_index(&table->heading_index, &table->headings, 1);
}

// ---- the elements of a reply

// Appends where the element's text is. One without text is left as it stands.
char* read_text(reply_reader* reader) {
    char* const content = content_of(reader);
    const string_view text = element_text(reader);
    if (!text.empty()) put_text(content, text);
    return content;
}

void read_named_value(reply_reader* reader, wuic_cli_data* data) {
    const char* const name = attribute_text(reader, "name");
    add_text(reader, &data->data, name != nullptr ? name : empty_text);
    add_text(reader, &data->data, read_text(reader));
}

void read_reply_table(reply_reader* reader, wuic_cli_data* data) {
    wuic_cli_table table;
    wuic_cli_table_init(&table);
    read_table(reader, &table);
    if (wsv_add(&data->tables, &table) == nullptr) {
        wuic_cli_table_deinit(&table);
        stop_reading(reader);
    }
}

void read_element(reply_reader* reader, wuic_cli_data* data) {
    const sgml_token& token = reader->tokens.token;
    if (is_named(token, "data") || is_named(token, "cmd")) {
        read_named_value(reader, data);
    } else if (is_named(token, "ERROR") || is_named(token, "error")) {
        data->error = read_text(reader);
    } else if (is_named(token, "t")) {
        read_reply_table(reader, data);
    }
}

void free_tables(wuic_cli_data* data) {
    for (std::int32_t i = 0; i < wsv_length(&data->tables); ++i)
        wuic_cli_table_deinit(static_cast<wuic_cli_table*>(wsv_nth(&data->tables, i)));
}

}  // namespace

int wuic_cli_table_init(wuic_cli_table* table) {
    *table = {};
    wsv_new(&table->headings, sizeof(const char*));
    wsv_new(&table->heading_index, sizeof(wuic_cli_index_entry));
    wsv_new(&table->cells, sizeof(const char*));
    return 0;
}

int wuic_cli_table_parse(wuic_cli_table* table, char* text, std::int32_t length) {
    reply_reader reader(text, length);
    if (sgml_tokenizer_next(&reader.tokens) == sgml_tag && st_is(&reader.tokens, "t", nullptr)) {
        read_table(&reader, table);
    }
    const bool whole = table->columns >= 0 &&
                       std::int64_t{table->columns} * table->rows == wsv_length(&table->cells);
    return whole ? 0 : -1;
}

const char* wuic_cli_table_get_header(const wuic_cli_table* table, std::int32_t column) {
    return column < table->columns ? text_at(&table->headings, column) : nullptr;
}

std::int32_t wuic_cli_table_get_header_column(const wuic_cli_table* table, const char* heading) {
    const wuic_cli_index_entry* const found = find_entry(&table->heading_index, heading);
    return found != nullptr ? found->number : -1;
}

const char* wuic_cli_table_get_cell(const wuic_cli_table* table, std::int32_t row,
                                    std::int32_t column) {
    if (row < 0 || row >= table->rows || column < 0 || column >= table->columns) return nullptr;
    return text_at(&table->cells, std::int64_t{row} * table->columns + column);
}

void wuic_cli_table_deinit(wuic_cli_table* table) {
    wsv_free(&table->headings);
    wsv_free(&table->heading_index);
    wsv_free(&table->cells);
    *table = {};
}

int wuic_cli_data_init(wuic_cli_data* data) {
    *data = {};
    wsv_new(&data->data, sizeof(const char*));
    wsv_new(&data->name_index, sizeof(wuic_cli_index_entry));
    wsv_new(&data->tables, sizeof(wuic_cli_table));
    return 0;
}

int wuic_cli_data_parse(wuic_cli_data* data, char* text, std::int32_t length) {
    data->text = text;
    data->length = length;
    if (text == nullptr || length < 0) return 0;
    text[length] = '\0';  // a value without text may begin here
    reply_reader reader(text, length);
    const sgml_tokenizer& tokens = reader.tokens;
    for (int result = 0; (result = sgml_tokenizer_next(&reader.tokens)) > 0;) {
        const bool in_reply = result == sgml_tag && tokens.token.closing == 0 &&
                              tokens.depth == 1 && is_named(tokens.stack[0], "re");
        if (in_reply) read_element(&reader, data);
    }
    build_index(&data->name_index, &data->data, 2);
    return 0;
}

std::int32_t wuic_cli_data_get_num_data(const wuic_cli_data* data) {
    return wsv_length(&data->data) / 2;
}

const char* wuic_cli_data_get_name(const wuic_cli_data* data, std::int32_t i) {
    return text_at(&data->data, std::int64_t{i} * 2);
}

const char* wuic_cli_data_get_value(const wuic_cli_data* data, std::int32_t i) {
    return text_at(&data->data, std::int64_t{i} * 2 + 1);
}

const char* wuic_cli_data_get_named_value(const wuic_cli_data* data, const char* name) {
    const wuic_cli_index_entry* const found = find_entry(&data->name_index, name);
    return found != nullptr ? wuic_cli_data_get_value(data, found->number) : nullptr;
}

std::int32_t wuic_cli_data_get_num_tables(const wuic_cli_data* data) {
    return wsv_length(&data->tables);
}

const wuic_cli_table* wuic_cli_data_get_table(const wuic_cli_data* data, std::int32_t i) {
    return static_cast<const wuic_cli_table*>(wsv_nth(&data->tables, i));
}

const wuic_cli_table* wuic_cli_data_get_named_table(const wuic_cli_data* data, const char* name) {
    for (std::int32_t i = 0; i < wsv_length(&data->tables); ++i) {
        const wuic_cli_table* const table = wuic_cli_data_get_table(data, i);
        if (table->name != nullptr && strcasecmp(table->name, name) == 0) return table;
    }
    return nullptr;
}

void wuic_cli_data_clear(wuic_cli_data* data) {
    free_tables(data);
    wsv_clear(&data->data);
    wsv_clear(&data->name_index);
    wsv_clear(&data->tables);
}

void wuic_cli_data_deinit(wuic_cli_data* data) {
    free_tables(data);
    wsv_free(&data->data);
    wsv_free(&data->name_index);
    wsv_free(&data->tables);
    *data = {};
}

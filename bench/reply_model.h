// The result model as the peers build it: what wuic_cli_data holds, in the containers of the
// standard library. Its texts belong to the reader that made it and die with its next reading.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

struct model_index_entry {
    const char* text;
    std::int32_t number;
};

struct model_table {
    const char* name = nullptr;
    std::int32_t columns = 0;
    std::int32_t rows = 0;
    std::vector<const char*> headings;
    std::vector<model_index_entry> heading_index;  // sorted in any case of letters
    std::vector<const char*> cells;
};

struct reply_model {
    const char* error = nullptr;
    std::vector<const char*> data;  // name, value, name, value ...
    std::vector<model_index_entry> name_index;
    std::vector<model_table> tables;
};

// What an element of a reply is, by its name and where it stands.
enum class element_kind : std::uint8_t {
    outside,
    reply,
    value,
    error,
    table,
    heading_row,
    heading,
    row,
    cell,
    unknown,
};
inline element_kind element_within(element_kind parent, const char* name) {
    using enum element_kind;
    const auto is = [name](const char* other) { return std::strcmp(name, other) == 0; };
    switch (parent) {
        case outside:
            return is("re") ? reply : unknown;
        case reply:
            if (is("data") || is("cmd")) return value;
            if (is("ERROR") || is("error")) return error;
            return is("t") ? table : unknown;
        case table:
            if (is("r")) return row;
            return is("th") ? heading_row : unknown;
        case heading_row:
            return is("h") ? heading : unknown;
        case row:
            return is("c") ? cell : unknown;
        default:
            return unknown;
    }
}

// An index of every `step`-th text, numbered from 0.
std::vector<model_index_entry> model_index(const std::vector<const char*>& texts, std::size_t step);

// Everything that a model holds, in one text: equal for equal models.
std::string model_description(const reply_model& model);
void describe(std::string* to, const char* text);
void describe(std::string* to, std::int32_t number);

// Builds a model from what a reader of events reports. Texts are copied, one behind the other, into
// storage as large as the reply, which they never outgrow.
struct model_builder {
    reply_model* model;
    char* text;     // the one that is being collected
    char* end;      // of it, and of what is in use
    bool collects;  // texts belong to the model now
    std::vector<element_kind> open;

    model_builder(reply_model* to, char* storage)
        : model(to), text(storage), end(storage), collects(false), open{element_kind::outside} {}
};

// An opening tag; the attributes that its element has come next.
element_kind builder_open(model_builder* builder, const char* name);
void builder_set_name(model_builder* builder, const char* name);
void builder_set_columns(model_builder* builder, const char* columns);
// A piece of text.
void builder_add(model_builder* builder, std::string_view piece);
void builder_close(model_builder* builder);
// The end of the reply.
void builder_finish(model_builder* builder);

// White space that is dropped at both ends of a text.
constexpr bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

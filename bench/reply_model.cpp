#include "reply_model.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <strings.h>

namespace {

bool holds_text(element_kind kind) {
    return kind == element_kind::cell || kind == element_kind::heading ||
           kind == element_kind::value || kind == element_kind::error;
}

// Ends the collected text and returns it, trimmed and terminated.
const char* take_text(model_builder* builder) {
    char* first = builder->text;
    while (first != builder->end && is_blank(*first))
        ++first;
    while (builder->end != first && is_blank(builder->end[-1]))
        --builder->end;
    *builder->end++ = '\0';
    builder->text = builder->end;
    return first;
}

void describe_index(std::string* to, const std::vector<model_index_entry>& index) {
    for (const auto& [text, number] : index) {
        describe(to, text);
        describe(to, number);
    }
}

void describe_texts(std::string* to, const std::vector<const char*>& texts) {
    for (const char* text : texts)
        describe(to, text);
}

}  // namespace

std::vector<model_index_entry> model_index(const std::vector<const char*>& texts,
                                           std::size_t step) {
    std::vector<model_index_entry> index;
    index.reserve(texts.size() / step);
    for (std::size_t i = 0; i < texts.size(); i += step)
        index.push_back({.text = texts[i], .number = static_cast<std::int32_t>(i / step)});
    std::ranges::sort(index, [](const model_index_entry& left, const model_index_entry& right) {
        return strcasecmp(left.text, right.text) < 0;
    });
    return index;
}

void describe(std::string* to, const char* text) {
    to->append(text != nullptr ? text : "(none)").push_back('\n');
}

void describe(std::string* to, std::int32_t number) {
    describe(to, std::to_string(number).c_str());
}

std::string model_description(const reply_model& model) {
    std::string all;
    describe(&all, model.error);
    describe_texts(&all, model.data);
    describe_index(&all, model.name_index);
    for (const model_table& table : model.tables) {
        describe(&all, table.name);
        describe(&all, table.columns);
        describe(&all, table.rows);
        describe_texts(&all, table.headings);
        describe_index(&all, table.heading_index);
        describe_texts(&all, table.cells);
    }
    return all;
}

element_kind builder_open(model_builder* builder, const char* name) {
    const element_kind kind = element_within(builder->open.back(), name);
    builder->open.push_back(kind);
    if (holds_text(kind)) builder->collects = true;
    if (kind == element_kind::row) ++builder->model->tables.back().rows;
    if (kind == element_kind::table) builder->model->tables.emplace_back();
    return kind;
}

void builder_set_name(model_builder* builder, const char* name) {
    const std::size_t size = std::strlen(name) + 1;
    const char* const copy = static_cast<char*>(std::memcpy(builder->end, name, size));
    builder->text = builder->end += size;
    if (builder->open.back() == element_kind::table) {
        builder->model->tables.back().name = copy;
    } else {
        builder->model->data.push_back(copy);
    }
}

void builder_set_columns(model_builder* builder, const char* columns) {
    builder->model->tables.back().columns =
        static_cast<std::int32_t>(std::strtol(columns, nullptr, 10));
}

void builder_add(model_builder* builder, std::string_view piece) {
    if (!builder->collects) return;
    std::memcpy(builder->end, piece.data(), piece.size());
    builder->end += piece.size();
}

void builder_close(model_builder* builder) {
    const element_kind kind = builder->open.back();
    builder->open.pop_back();
    if (kind == element_kind::table) {
        model_table& table = builder->model->tables.back();
        table.heading_index = model_index(table.headings, 1);
    }
    if (!holds_text(kind)) return;
    builder->collects = false;
    const char* const text = take_text(builder);
    switch (kind) {
        case element_kind::cell:
            builder->model->tables.back().cells.push_back(text);
            break;
        case element_kind::heading:
            builder->model->tables.back().headings.push_back(text);
            break;
        case element_kind::value:
            builder->model->data.push_back(text);
            break;
        default:
            builder->model->error = text;
            break;
    }
}

void builder_finish(model_builder* builder) {
    builder->model->name_index = model_index(builder->model->data, 2);
}

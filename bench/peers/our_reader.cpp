#include <cstring>

#include "backend/sgml_tokenizer.h"

#include "reply_readers.h"

namespace {

char* copy_reply(our_reader* reader, std::string_view reply) {
    return static_cast<char*>(std::memcpy(reader->copy.data(), reply.data(), reply.size()));
}

void describe_index(std::string* to, const wsv& index) {
    for (int i = 0; i < wsv_length(&index); ++i) {
        const auto* const entry = static_cast<const wuic_cli_index_entry*>(wsv_nth(&index, i));
        describe(to, entry->text);
        describe(to, entry->number);
    }
}

void describe_texts(std::string* to, const wsv& texts) {
    for (int i = 0; i < wsv_length(&texts); ++i)
        describe(to, *static_cast<const char* const*>(wsv_nth(&texts, i)));
}

}  // namespace

bool read_model(our_reader* reader, std::string_view reply, scoped_cli_data* model) {
    char* const text = copy_reply(reader, reply);
    return wuic_cli_data_parse(*model, text, static_cast<std::int32_t>(reply.size())) == 0;
}

bool read_tokens(our_reader* reader, std::string_view reply) {
    sgml_tokenizer tokens;
    sgml_tokenizer_init(&tokens, copy_reply(reader, reply),
                        static_cast<std::int32_t>(reply.size()));
    int result = sgml_tokenizer_next(&tokens);
    while (result > 0)
        result = sgml_tokenizer_next(&tokens);
    return result == sgml_end;
}

std::string model_description(const scoped_cli_data& model) {
    std::string all;
    describe(&all, model.data.error);
    describe_texts(&all, model.data.data);
    describe_index(&all, model.data.name_index);
    for (int i = 0; i < wuic_cli_data_get_num_tables(&model.data); ++i) {
        const wuic_cli_table* const table = wuic_cli_data_get_table(&model.data, i);
        describe(&all, table->name);
        describe(&all, table->columns);
        describe(&all, table->rows);
        describe_texts(&all, table->headings);
        describe_index(&all, table->heading_index);
        describe_texts(&all, table->cells);
    }
    return all;
}

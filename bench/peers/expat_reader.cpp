#include <cstring>

#include "reply_readers.h"

namespace {

const char* attribute(const char** attributes, const char* name) {
    for (; *attributes != nullptr; attributes += 2) {
        if (std::strcmp(attributes[0], name) == 0) return attributes[1];
    }
    return nullptr;
}

void XMLCALL on_open(void* data, const char* name, const char** attributes) {
    auto* const builder = static_cast<model_builder*>(data);
    const element_kind kind = builder_open(builder, name);
    if (kind == element_kind::value) builder_set_name(builder, attribute(attributes, "name"));
    if (kind == element_kind::table) {
        builder_set_name(builder, attribute(attributes, "tn"));
        builder_set_columns(builder, attribute(attributes, "nc"));
    }
}

void XMLCALL on_text(void* data, const char* text, int length) {
    builder_add(static_cast<model_builder*>(data), {text, static_cast<std::size_t>(length)});
}

void XMLCALL on_close(void* data, const char*) {
    builder_close(static_cast<model_builder*>(data));
}

struct token_counts {
    int open;
    int close;
    int text;
};

void XMLCALL count_open(void* data, const char*, const char**) {
    ++static_cast<token_counts*>(data)->open;
}

void XMLCALL count_text(void* data, const char*, int) {
    ++static_cast<token_counts*>(data)->text;
}

void XMLCALL count_close(void* data, const char*) {
    ++static_cast<token_counts*>(data)->close;
}

// Copies the reply straight into the parser's own buffer: given any other, it would copy it again.
bool parse(XML_Parser parser, std::string_view reply) {
    const auto size = static_cast<int>(reply.size());
    void* const buffer = XML_GetBuffer(parser, size);
    if (buffer == nullptr) return false;
    std::memcpy(buffer, reply.data(), reply.size());
    return XML_ParseBuffer(parser, size, XML_TRUE) == XML_STATUS_OK;
}

}  // namespace

bool read_model(expat_reader* reader, std::string_view reply, reply_model* model) {
    XML_ParserStruct* const parser = reader->parser.get();
    model_builder builder(model, reader->texts.data());
    XML_ParserReset(parser, "UTF-8");
    XML_SetUserData(parser, &builder);
    XML_SetElementHandler(parser, on_open, on_close);
    XML_SetCharacterDataHandler(parser, on_text);
    const bool is_whole = parse(parser, reply);
    builder_finish(&builder);
    return is_whole;
}

bool read_tokens(expat_reader* reader, std::string_view reply) {
    XML_ParserStruct* const parser = reader->parser.get();
    token_counts counts{};
    XML_ParserReset(parser, "UTF-8");
    XML_SetUserData(parser, &counts);
    XML_SetElementHandler(parser, count_open, count_close);
    XML_SetCharacterDataHandler(parser, count_text);
    return parse(parser, reply) && counts.open == counts.close;
}

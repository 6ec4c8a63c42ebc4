#include <cstring>

#include "reply_readers.h"

namespace {

// A new reader for the first reply, the same one again for those that follow.
bool start(libxml2_reader* reader, std::string_view reply) {
    constexpr int options = XML_PARSE_HUGE | XML_PARSE_COMPACT;
    const auto size = static_cast<int>(reply.size());
    std::memcpy(reader->copy.data(), reply.data(), reply.size());
    if (reader->reader != nullptr) {
        return xmlReaderNewMemory(reader->reader.get(), reader->copy.data(), size, nullptr, nullptr,
                                  options) == 0;
    }
    reader->reader.reset(xmlReaderForMemory(reader->copy.data(), size, nullptr, nullptr, options));
    return reader->reader != nullptr;
}

const char* plain(const xmlChar* text) {
    return reinterpret_cast<const char*>(text);
}

const char* attribute(xmlTextReaderPtr reader, const char* name) {
    xmlTextReaderMoveToAttribute(reader, reinterpret_cast<const xmlChar*>(name));
    return plain(xmlTextReaderConstValue(reader));
}

void open_element(xmlTextReaderPtr reader, model_builder* builder) {
    const bool is_empty = xmlTextReaderIsEmptyElement(reader) != 0;
    const element_kind kind = builder_open(builder, plain(xmlTextReaderConstLocalName(reader)));
    if (kind == element_kind::value) builder_set_name(builder, attribute(reader, "name"));
    if (kind == element_kind::table) {
        builder_set_name(builder, attribute(reader, "tn"));
        builder_set_columns(builder, attribute(reader, "nc"));
    }
    if (is_empty) builder_close(builder);
}

void take_node(xmlTextReaderPtr reader, model_builder* builder) {
    switch (xmlTextReaderNodeType(reader)) {
        case XML_READER_TYPE_ELEMENT:
            open_element(reader, builder);
            break;
        case XML_READER_TYPE_END_ELEMENT:
            builder_close(builder);
            break;
        case XML_READER_TYPE_TEXT:
        case XML_READER_TYPE_CDATA:
            if (builder->collects) builder_add(builder, plain(xmlTextReaderConstValue(reader)));
            break;
        default:
            break;
    }
}

}  // namespace

bool read_model(libxml2_reader* reader, std::string_view reply, reply_model* model) {
    if (!start(reader, reply)) return false;
    xmlTextReader* const nodes = reader->reader.get();
    model_builder builder(model, reader->texts.data());
    int result = xmlTextReaderRead(nodes);
    for (; result > 0; result = xmlTextReaderRead(nodes))
        take_node(nodes, &builder);
    builder_finish(&builder);
    return result == 0;
}

bool read_tokens(libxml2_reader* reader, std::string_view reply) {
    if (!start(reader, reply)) return false;
    int result = xmlTextReaderRead(reader->reader.get());
    while (result > 0)
        result = xmlTextReaderRead(reader->reader.get());
    return result == 0;
}

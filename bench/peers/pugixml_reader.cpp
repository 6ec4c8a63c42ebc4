#include <cstdlib>
#include <cstring>

#include "reply_readers.h"

namespace {

using pugi::xml_node;

bool parse(pugixml_reader* reader, std::string_view reply, unsigned flags) {
    std::memcpy(reader->copy.data(), reply.data(), reply.size());
    return static_cast<bool>(reader->document.load_buffer_inplace(reader->copy.data(), reply.size(),
                                                                  flags, pugi::encoding_utf8));
}

// The library trims text but not CDATA sections. All of it stands in the copy, so it may be cut.
const char* trimmed(const char* text) {
    while (is_blank(*text))
        ++text;
    std::size_t size = std::strlen(text);
    while (size > 0 && is_blank(text[size - 1]))
        --size;
    const_cast<char*>(text)[size] = '\0';
    return text;
}

// Plain text is kept in the element itself, so a child is a CDATA section. The replies hold no
// element with more than one piece of text.
const char* text_of(xml_node element) {
    const char* const text = element.value();
    if (*text != '\0') return text;
    const xml_node section = element.first_child();
    return section ? trimmed(section.value()) : text;
}

void add_texts(std::vector<const char*>* to, xml_node parent, element_kind kind,
               element_kind wanted) {
    for (xml_node child = parent.first_child(); child; child = child.next_sibling()) {
        if (element_within(kind, child.name()) == wanted) to->push_back(text_of(child));
    }
}

void add_table(reply_model* model, xml_node element) {
    model_table& table = model->tables.emplace_back();
    table.name = element.attribute("tn").value();
    table.columns =
        static_cast<std::int32_t>(std::strtol(element.attribute("nc").value(), nullptr, 10));
    for (xml_node child = element.first_child(); child; child = child.next_sibling()) {
        const element_kind kind = element_within(element_kind::table, child.name());
        if (kind == element_kind::row) {
            ++table.rows;
            add_texts(&table.cells, child, kind, element_kind::cell);
        } else if (kind == element_kind::heading_row) {
            add_texts(&table.headings, child, kind, element_kind::heading);
        }
    }
    table.heading_index = model_index(table.headings, 1);
}

void add_element(reply_model* model, xml_node element) {
    switch (element_within(element_kind::reply, element.name())) {
        case element_kind::value:
            model->data.push_back(element.attribute("name").value());
            model->data.push_back(text_of(element));
            break;
        case element_kind::error:
            model->error = text_of(element);
            break;
        case element_kind::table:
            add_table(model, element);
            break;
        default:
            break;
    }
}

}  // namespace

bool read_model(pugixml_reader* reader, std::string_view reply, reply_model* model) {
    constexpr unsigned flags = pugi::parse_cdata | pugi::parse_escapes | pugi::parse_trim_pcdata |
                               pugi::parse_embed_pcdata;
    if (!parse(reader, reply, flags)) return false;
    const xml_node root = reader->document.child("re");
    for (xml_node child = root.first_child(); child; child = child.next_sibling())
        add_element(model, child);
    model->name_index = model_index(model->data, 2);
    return true;
}

bool read_tokens(pugixml_reader* reader, std::string_view reply) {
    return parse(reader, reply, pugi::parse_cdata | pugi::parse_embed_pcdata);
}

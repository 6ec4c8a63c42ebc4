// The contenders: each reads replies one after the other with what it keeps from one to the next,
// in the fastest form that its library offers for the work.
//
// `read_model` builds the model of a reply; it lives until the reader's next reading. `read_tokens`
// goes through the markup alone. Both first copy the reply to where it is read, since two of
// the contenders rewrite it, and return whether it was read to its end.
#pragma once

#include <cstddef>
#include <expat.h>
#include <libxml/xmlreader.h>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ownership.h"

#include "backend/cli_data.h"

#include "reply_model.h"

struct our_reader {
    using model = scoped_cli_data;
    std::vector<char> copy;
    explicit our_reader(std::size_t longest) : copy(longest + 1) {}
};
bool read_model(our_reader* reader, std::string_view reply, scoped_cli_data* model);
bool read_tokens(our_reader* reader, std::string_view reply);
std::string model_description(const scoped_cli_data& model);

struct expat_reader {
    using model = reply_model;
    std::vector<char> texts;
    std::unique_ptr<XML_ParserStruct, releaser<XML_ParserFree>> parser;
    explicit expat_reader(std::size_t longest)
        : texts(longest), parser(XML_ParserCreate("UTF-8")) {}
};
bool read_model(expat_reader* reader, std::string_view reply, reply_model* model);
bool read_tokens(expat_reader* reader, std::string_view reply);

struct pugixml_reader {
    using model = reply_model;
    std::vector<char> copy;
    pugi::xml_document document;
    explicit pugixml_reader(std::size_t longest) : copy(longest) {}
};
bool read_model(pugixml_reader* reader, std::string_view reply, reply_model* model);
bool read_tokens(pugixml_reader* reader, std::string_view reply);

struct libxml2_reader {
    using model = reply_model;
    std::vector<char> copy;
    std::vector<char> texts;
    std::unique_ptr<xmlTextReader, releaser<xmlFreeTextReader>> reader;
    explicit libxml2_reader(std::size_t longest) : copy(longest), texts(longest) {}
};
bool read_model(libxml2_reader* reader, std::string_view reply, reply_model* model);
bool read_tokens(libxml2_reader* reader, std::string_view reply);

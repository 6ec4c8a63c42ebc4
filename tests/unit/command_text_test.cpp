// A browser's command before it is sent, and what becomes of the reply.
#include <random>

#include "backend/command_endpoints.h"

#include "service_support.h"

namespace {

// The slow way, which defines the result: as long as the text holds a reference, take the kind that
// ranks first, and of these the leftmost, and replace it.
std::string decoded_by_definition(std::string text) {
    constexpr std::pair<std::string_view, const char*> references[] = {
        {"&plus;", "+"}, {"&quot;", "\\\""}, {"&gt;", ">"},  {"&lt;", "<"},
        {"&amp;", "&"},  {"&apos;", "'"},    {"&pct;", "%"}, {"&pound;", "#"}};
    for (const auto* row = std::begin(references); row != std::end(references);) {
        const std::size_t at = text.find(row->first);
        const bool found = at != std::string::npos;
        if (found) text.replace(at, row->first.size(), row->second);
        row = found ? std::begin(references) : row + 1;
    }
    return text;
}

TEST(CommandText, DecodingAgreesWithItsDefinition) {
    const char* const pieces[] = {"&",   ";", "&amp;", "amp;", "lt;",  "gt;",   "quot;",  "apos;",
                                  "pct", "a", "p",     "am",   "plus", "pound", "&amp;&", "#"};
    std::minstd_rand random(20240229);
    for (std::size_t round = 0; round < 20000; ++round) {
        std::string text;
        for (std::size_t i = round % 24; i > 0; --i)
            text += pieces[random() % std::size(pieces)];
        std::vector<char> block(text.c_str(), text.c_str() + text.size() + 1);  // exactly sized
        command_unencode(block.data(), static_cast<std::int32_t>(text.size()));
        ASSERT_EQ(block.data(), decoded_by_definition(text)) << text;
    }
}

TEST(CommandText, MessagesGoBeforeRepliesAndAreEscaped) {
    const std::string rows[][2] = {{"", "<re/>"}, {"a <b>", "<re><ERROR>a &lt;b&gt;</ERROR></re>"}};
    for (const auto& [message, body] : rows) {
        scoped_strbuf response;
        EXPECT_EQ(command_append_reply(response, "<re/>", 5, message.c_str()), 0);
        EXPECT_EQ(text_of(response.buf), body);
    }
}

}  // namespace

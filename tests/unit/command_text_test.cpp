// A browser's command: from the query string to the helper, and from its reply to the response.
#include <cstring>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "runtime/error_response.h"
#include "runtime/request.h"

#include "backend/command_endpoints.h"

#include "fake_helper.h"
#include "private_world.h"

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

std::string decoded(const std::string& text) {
    std::vector<char> block(text.c_str(), text.c_str() + text.size() + 1);  // exactly sized
    command_unencode(block.data(), static_cast<std::int32_t>(text.size()));
    return block.data();
}

TEST(CommandText, DecodingAgreesWithItsDefinition) {
    const char* const pieces[] = {"&",   ";", "&amp;", "amp;", "lt;",  "gt;",   "quot;",  "apos;",
                                  "pct", "a", "p",     "am",   "plus", "pound", "&amp;&", "#"};
    std::minstd_rand random(20240229);
    std::uniform_int_distribution<std::size_t> piece(0, std::size(pieces) - 1);
    for (std::size_t round = 0; round < 20000; ++round) {
        std::string text;
        for (std::size_t i = round % 24; i > 0; --i)
            text += pieces[piece(random)];
        ASSERT_EQ(decoded(text), decoded_by_definition(text)) << text;
    }
    EXPECT_EQ(decoded("a&plus;b&quot;c&gt;d&lt;&apos;&pct;&pound;&amp;amp;lt;"), "a+b\\\"c>d<'%#<");
}

std::string respond(request_record* request, std::string query, int expected = 0) {
    request->input.raw = query.data();
    wms_strbuf_clear(&request->response);
    EXPECT_EQ(execCommandWithContext("key", &request->response, &request->session, nullptr,
                                     &request->input),
              expected);
    request->input.raw = nullptr;
    EXPECT_TRUE(std::string_view(request->response.data).starts_with(xml_header));
    return request->response.data + std::strlen(xml_header);
}

TEST(CommandEndpoint, CommandIsPreparedAndSentAsTheSession) {
    request_record request;
    std::strcpy(request.session.user, "bob");
    std::strcpy(request.session.ip, "10.0.0.9");
    std::strcpy(request.session.sid, "abc");
    const std::string rows[][2] = {
        {"show%20clock@@1234", "show clock"},
        {"show+a@@b@@c", "show a@@b"},
        {"show%20%26amp%3Blt%3B@@", "show <"},
        {"@", "@"},
        {"a%00b@@c", "a"},
    };
    for (const auto& [query, command] : rows) {
        fake_helper helper;
        helper.answer(wire_reply("<re>1</re>", ""));
        EXPECT_EQ(respond(&request, query), "<re>1</re>");
        helper.finish();
        EXPECT_EQ(helper.fields, (std::vector<std::string>{"bob", "10.0.0.9", "abc", command}));
    }
    EXPECT_NE(respond(&request, "", -1).find("<reason>Invalid arguments</reason>"),
              std::string::npos);
}

TEST(CommandEndpoint, RepliesAndMessages) {
    request_record request;
    std::string all_escaped;
    for (int i = 0; i < 1023; ++i)
        all_escaped += "&amp;";
    const std::string rows[][3] = {
        {"<re/>", "", "<re/>"},
        {"", "", ""},
        {"<re/>", "a <b>", "<re><ERROR>a &lt;b&gt;</ERROR></re>"},
        {"", "<re><error>no</error></re>", "<re><error>no</error></re>"},
        {"", "<ERROR>no</ERROR>", "<ERROR>no</ERROR>"},
        {"", std::string(1023, '&'), "<re><ERROR>" + all_escaped + "</ERROR></re>"},
    };
    for (const auto& [output, message, expected] : rows) {
        fake_helper helper;
        helper.answer(wire_reply(output, message));
        EXPECT_EQ(respond(&request, "show%20clock"), expected);
    }
}

}  // namespace

// Conversions between text and markup.
#include <functional>
#include <random>

#include "runtime/sgml_text.h"
#include "runtime/strbuf.h"

#include "input_support.h"

namespace {

using conversion = std::function<int(char*, std::int32_t, const char*, std::int32_t)>;

conversion escape(bool newline, bool control) {
    return [=](char* out, std::int32_t size, const char* text, std::int32_t length) {
        return sgml_tokenizer_escape(out, size, text, length, newline, control);
    };
}

conversion trim(const char* set) {
    return [=](char* out, std::int32_t size, const char* text, std::int32_t length) {
        return sgml_tokenizer_trim(out, size, text, length, set);
    };
}

std::string converted(const conversion& convert, const std::string& text) {
    const exact_copy input{text};
    const int measured = -convert(nullptr, 0, input.data(), input.size);
    const exact_copy out{std::string(std::size_t(measured), '#'), 1};
    EXPECT_EQ(convert(out.data(), measured + 1, input.data(), input.size), measured);
    return std::string(out.view());
}

// Random text made of what the conversions look at.
std::string random_text(std::mt19937& random) {
    static const std::string pieces[] = {
        "&", "&lt;", "&amp;", "&#65;", "&#",  ";",    "\"",   "'",        "\\", "<",
        ">", "\r\n", "\n",    "\r",    " \t", "\x01", "\x7F", "\xC3\xA9", "9",  std::string(1, 0)};
    std::string text;
    for (auto count = random() % 12; count > 0; --count)
        text += pieces[random() % std::size(pieces)];
    return text;
}

TEST(conversions, of_known_texts) {
    const std::string all = std::string("<a b='c' d=\"e\">&\t\v\f\r\n\r\x01\x7F\xC3", 25);
    const std::string head = "&lt;a b=&#39;c&#39; d=&quot;e&quot;&gt;&amp;\t\v\f";
    const conversion references = sgml_tokenizer_unescape;
    const conversion attribute = sgml_tokenizer_compact;
    const struct {
        conversion convert;
        std::string text, expected;
    } rows[] = {
        {references, "", ""},
        {references, "a&lt;b&gt;c&amp;d&quot;e&#65;&#065;", "a<b>c&d\"eAA"},
        {references, "&apos;&#x41;&LT;&lt &;&", "&apos;&#x41;&LT;&lt &;&"},
        {references, "&amp;lt;&&lt;", "&lt;&<"},
        {references, "&#;&#256;&#321;", std::string("\0\0A", 3)},
        {references, "&#2147483647;&#2147483648;&#99999999999999999999;", "\xFF\xFF\xFF"},
        {references, "&#0000000000000000000000000000065;", "A"},      // 31 digits
        {references, "&#00000000000000000000000000000065;", "\x06"},  // the 32nd does not count
        {references, "&#-1;&#6 5;&#65", "&#-1;&#6 5;&#65"},
        {attribute, R"("1>2"'a"b'"c'd")", R"(1>2a"bc'd)"},
        {attribute, R"(a\"b\\c\d\)", R"(a"b\cd)"},
        {attribute, R"("a\"b" "a&quot;b" '&amp;')", R"(a"b a"b &)"},
        {attribute, R"(\&lt;"x\&y")", R"(<x&y)"},
        {attribute, R"("\&amp;"z')", "&z"},
        {attribute, R"("open)", "open"},
        {trim(nullptr), "  a b\t\r\n", "a b"},
        {trim(nullptr), " \t ", ""},
        {trim(nullptr), std::string(3, '\0'), std::string(3, '\0')},
        {trim("-"), "-- a-b--", " a-b"},
        {escape(false, false), all, head + "\r\n\r&#1;&#127;&#195;"},
        {escape(false, true), all, head + "\r\n\r??&#195;"},
        {escape(true, false), all, head + "&#10;&#10;&#1;&#127;&#195;"},
        {escape(true, true), "a\r\nb\r\r\n\n", "a&#10;b&#10;&#10;&#10;"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(converted(row.convert, row.text), row.expected);
    }
}

// Quadratic work would run into the time limit of the tests.
TEST(references, hostile_text_is_read_in_linear_time) {
    for (const char* const piece : {"&", "&#1", "&l", "&&&&#", "\\&"}) {
        std::string text;
        while (text.size() < 300000)
            text += piece;
        text += "&#" + std::string(100000, '1');
        EXPECT_EQ(converted(sgml_tokenizer_unescape, text), text) << piece;
    }
}

TEST(escaping_for_markup, a_cut_never_splits_a_reference) {
    const std::string text = "a<b\"c\xC3\r\n&";
    const std::string whole = converted(escape(true, true), text);
    for (std::int32_t size = 1; size <= std::int32_t(whole.size()); ++size) {
        std::string stored(std::size_t(size), 'x');
        escape(true, true)(stored.data(), size, text.data(), std::int32_t(text.size()));
        stored = stored.c_str();
        EXPECT_TRUE(whole.starts_with(stored)) << stored;
        EXPECT_TRUE(stored.find('&') == std::string::npos || stored.rfind(';') > stored.rfind('&'))
            << stored;
        EXPECT_GT(stored.size() + 6, std::size_t(size));
    }
}

TEST(conversions, of_random_text_in_any_room_and_in_place) {
    const struct {
        conversion convert;
        bool in_place;
    } all[] = {{sgml_tokenizer_unescape, true},
               {sgml_tokenizer_compact, true},
               {trim(nullptr), true},
               {escape(true, false), false}};
    std::mt19937 random(2);
    for (int round = 0; round < 2000; ++round) {
        const std::string text = random_text(random);
        const std::string escaped = converted(escape(false, false), text);
        ASSERT_EQ(escaped.find_first_of("<>\"'"), std::string::npos) << escaped;
        ASSERT_EQ(converted(sgml_tokenizer_unescape, escaped), text);
        for (const auto& [convert, in_place] : all) {
            SCOPED_TRACE(testing::Message() << text);
            const exact_copy own{text};
            const std::string whole = converted(convert, text);
            const auto total = int(whole.size());
            const auto size = std::int32_t(random() % (whole.size() + 3));
            const exact_copy out{std::string(std::size_t(size), '#')};
            ASSERT_EQ(convert(out.data(), size, own.data(), own.size),
                      total < size ? total : -total);
            if (!in_place) continue;
            ASSERT_EQ(std::abs(convert(own.data(), own.size, own.data(), own.size)), total);
            ASSERT_EQ(own.view().substr(0, whole.size()), whole);
        }
    }
}

TEST(conversions, bad_arguments_are_refused) {
    char out[4] = "abc";
    const conversion all[] = {sgml_tokenizer_unescape, sgml_tokenizer_compact, trim(nullptr),
                              escape(true, true)};
    for (const conversion& convert : all) {
        EXPECT_EQ(convert(out, 4, "x", -1), -1);
        EXPECT_EQ(convert(out, 4, nullptr, 1), -1);
        EXPECT_EQ(convert(out, -1, "x", 1), -1);
        EXPECT_STREQ(out, "abc");
    }
}

TEST(markup_writers, build_elements_and_attributes) {
    scoped_strbuf buf;
    st_prnv(buf, "n", "<&\n\x02", true);
    st_prnv(buf, "r", "<raw/>", false);
    st_prnv(buf, "e", nullptr, true);
    st_pratt(buf, "a", "\"x\"");
    st_pratt(buf, "b", nullptr);
    EXPECT_STREQ(buf.buf.data,
                 "<n>&lt;&amp;\n?</n>\n<r><raw/></r>\n<e></e>\n a=\"&quot;x&quot;\" b=\"\"");
}

}  // namespace

// Conversions between text and markup.
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "runtime/sgml_text.h"
#include "runtime/strbuf.h"

namespace {

using conversion = std::function<int(char*, std::int32_t, const char*, std::int32_t)>;

// A copy in a block of its exact size: what is read beyond it is reported by the sanitizer.
std::unique_ptr<char[]> exact(const std::string& text) {
    auto block = std::make_unique<char[]>(text.size());
    std::memcpy(block.get(), text.data(), text.size());
    return block;
}

std::string converted(const conversion& convert, const std::string& text) {
    const auto input = exact(text);
    const auto length = std::int32_t(text.size());
    const int measured = -convert(nullptr, 0, input.get(), length);
    const auto out = std::make_unique<char[]>(size_t(measured) + 1);
    EXPECT_EQ(convert(out.get(), measured + 1, input.get(), length), measured);
    return {out.get(), size_t(measured)};
}

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

struct row {
    std::string text, expected;
};

template <std::size_t n>
void expect_all(const conversion& convert, const row (&rows)[n]) {
    for (const row& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(converted(convert, row.text), row.expected);
    }
}

// Random text made of what the conversions look at.
std::string random_text(std::mt19937& random) {
    static const std::string pieces[] = {"&",     "&lt;",
                                         "&amp;", "&#65;",
                                         "&#",    ";",
                                         "\"",    "'",
                                         "\\",    "<",
                                         ">",     "\r\n",
                                         "\n",    "\r",
                                         " ",     "\t",
                                         "abc",   "\x01",
                                         "\x7F",  "\xC3\xA9",
                                         "9",     std::string(1, '\0')};
    std::string text;
    for (auto count = random() % 12; count > 0; --count)
        text += pieces[random() % std::size(pieces)];
    return text;
}

TEST(references, known_ones_are_decoded_and_all_else_is_copied) {
    expect_all(sgml_tokenizer_unescape,
               {{"", ""},
                {"a&lt;b&gt;c&amp;d&quot;e", "a<b>c&d\"e"},
                {"&#65;&#065;", "AA"},
                {"&apos;&#x41;&LT;&lt &;&", "&apos;&#x41;&LT;&lt &;&"},
                {"&amp;lt;", "&lt;"},
                {"&&lt;", "&<"},
                {"&#;&#256;", std::string(2, '\0')},
                {"&#321;", "A"},
                {"&#2147483647;&#2147483648;&#99999999999999999999;", "\xFF\xFF\xFF"},
                {"&#0000000000000000000000000000065;", "A"},      // 31 digits
                {"&#00000000000000000000000000000065;", "\x06"},  // the 32nd does not count
                {"&#-1;&#6 5;&#65", "&#-1;&#6 5;&#65"}});
}

TEST(references, hostile_text_is_read_in_linear_time) {
    for (const char* const piece : {"&", "&#1", "&l", "&&&&#", "\\&"}) {
        std::string text;
        while (text.size() < 300000)
            text += piece;
        text += "&#" + std::string(100000, '1');
        EXPECT_EQ(converted(sgml_tokenizer_unescape, text), text) << piece;
    }
}

TEST(attribute_values, become_plain_text) {
    expect_all(sgml_tokenizer_compact, {{R"("1>2")", "1>2"},
                                        {R"('a"b'"c'd")", R"(a"bc'd)"},
                                        {R"(a\"b\\c\d\)", R"(a"b\cd)"},
                                        {R"("a\"b")", R"(a"b)"},
                                        {R"("a&quot;b" '&amp;')", R"(a"b &)"},
                                        {R"(\&lt;"x\&y")", R"(<x&y)"},
                                        {R"("\&amp;"z')", "&z"},
                                        {R"("open)", "open"},
                                        {"\"\"", ""}});
}

TEST(trimming, drops_both_ends_only) {
    expect_all(trim(nullptr), {{"  a b\t\r\n", "a b"}, {"x", "x"}, {" x", "x"}, {"x ", "x"}});
    expect_all(trim("-"), {{"--a-b--", "a-b"}, {" a", " a"}});
    char out[2] = {'?', '?'};
    EXPECT_EQ(sgml_tokenizer_trim(out, 2, "   ", 3, nullptr), 0);
    EXPECT_EQ(out[0], '\0');
    EXPECT_EQ(sgml_tokenizer_trim(nullptr, 0, "   ", 3, nullptr), 0);
    const std::string nuls(3, '\0');
    EXPECT_EQ(converted(trim(nullptr), nuls), nuls);
}

TEST(escaping_for_markup, follows_the_flags) {
    const std::string all = std::string("<a b='c' d=\"e\">&\t\v\f\r\n\r\x01\x7F\xC3", 25);
    const std::string head = "&lt;a b=&#39;c&#39; d=&quot;e&quot;&gt;&amp;\t\v\f";
    EXPECT_EQ(converted(escape(false, false), all), head + "\r\n\r&#1;&#127;&#195;");
    EXPECT_EQ(converted(escape(false, true), all), head + "\r\n\r??&#195;");
    EXPECT_EQ(converted(escape(true, false), all), head + "&#10;&#10;&#1;&#127;&#195;");
    EXPECT_EQ(converted(escape(true, true), "a\r\nb\r\r\n\n"), "a&#10;b&#10;&#10;&#10;");
}

TEST(escaping_for_markup, holds_no_raw_markup_and_reads_back_as_the_text) {
    std::mt19937 random(1);
    for (int round = 0; round < 2000; ++round) {
        const std::string text = random_text(random);
        const std::string escaped = converted(escape(false, false), text);
        ASSERT_EQ(escaped.find_first_of("<>\"'"), std::string::npos) << escaped;
        ASSERT_EQ(converted(sgml_tokenizer_unescape, escaped), text);
    }
}

TEST(escaping_for_markup, a_cut_never_splits_a_reference) {
    const std::string text = "a<b\"c\xC3\r\n&";
    const std::string whole = converted(escape(true, true), text);
    for (std::int32_t size = 1; size <= std::int32_t(whole.size()); ++size) {
        const auto out = std::make_unique<char[]>(size_t(size) + 1);
        std::memset(out.get(), 'x', size_t(size));
        ASSERT_EQ(escape(true, true)(out.get(), size, text.data(), std::int32_t(text.size())),
                  -int(whole.size()));
        const std::string stored = out.get();
        EXPECT_TRUE(whole.starts_with(stored)) << stored;
        EXPECT_TRUE(stored.find('&') == std::string::npos || stored.rfind(';') > stored.rfind('&'))
            << stored;
        EXPECT_GT(stored.size() + 6, size_t(size));
    }
}

TEST(conversions, measuring_equals_writing_in_any_room_and_in_place) {
    const struct {
        const char* name;
        conversion convert;
        bool in_place;
    } all[] = {{"unescape", sgml_tokenizer_unescape, true},
               {"compact", sgml_tokenizer_compact, true},
               {"trim", trim(nullptr), true},
               {"escape", escape(true, false), false}};
    std::mt19937 random(2);
    for (int round = 0; round < 2000; ++round) {
        const std::string text = random_text(random);
        const auto length = std::int32_t(text.size());
        for (const auto& [name, convert, in_place] : all) {
            SCOPED_TRACE(testing::Message() << name << ": " << text);
            const std::string whole = converted(convert, text);
            const auto total = int(whole.size());
            const auto size = std::int32_t(random() % (whole.size() + 3));
            const auto out = std::make_unique<char[]>(size_t(size));
            ASSERT_EQ(convert(out.get(), size, text.data(), length), total < size ? total : -total);
            if (!in_place) continue;
            const auto own = exact(text);
            ASSERT_EQ(std::abs(convert(own.get(), length, own.get(), length)), total);
            ASSERT_EQ(std::string(own.get(), whole.size()), whole);
        }
    }
}

TEST(conversions, bad_arguments_are_refused) {
    char out[4] = "abc";
    for (const conversion& convert : {conversion(sgml_tokenizer_unescape), trim(nullptr),
                                      conversion(sgml_tokenizer_compact), escape(true, true)}) {
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
    EXPECT_EQ(st_esc2(buf, nullptr, 5, false, false), 0);
    EXPECT_EQ(st_esc2(buf, "", 0, false, false), 0);
    EXPECT_STREQ(buf.buf.data,
                 "<n>&lt;&amp;\n?</n>\n<r><raw/></r>\n<e></e>\n a=\"&quot;x&quot;\" b=\"\"");
}

}  // namespace

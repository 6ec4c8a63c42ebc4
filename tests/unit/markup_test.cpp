// Conversions between text and markup.
#include <functional>

#include "runtime/sgml_text.h"
#include "runtime/strbuf.h"

#include "input_support.h"

using namespace std::string_literals;

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

TEST(conversions, of_known_texts) {
    const struct {
        conversion convert;
        text_pairs texts;
    } rows[] = {
        {sgml_tokenizer_unescape,
         {{"a&lt;b&gt;c&amp;d&quot;e&#65;&#065;", "a<b>c&d\"eAA"},
          {"&apos;&#x41;&LT;&lt &;&&#-1;&#6 5;&#65", "&apos;&#x41;&LT;&lt &;&&#-1;&#6 5;&#65"},
          {"&amp;lt;&&lt;&#;&#256;&#321;", "&lt;&<\0\0A"s},
          {"&#2147483647;&#2147483648;&#99999999999999999999;", "\xFF\xFF\xFF"},
          {"&#0000000000000000000000000000065;", "A"},        // 31 digits
          {"&#00000000000000000000000000000065;", "\x06"}}},  // the 32nd does not count
        {sgml_tokenizer_compact,
         {{R"("1>2"'a"b'"c'd")", R"(1>2a"bc'd)"},
          {R"(a\"b\\c\d\)", R"(a"b\cd)"},
          {R"("a\"b" "a&quot;b" '&amp;')", R"(a"b a"b &)"},
          {R"(\&lt;"x\&y""\&amp;"z')", R"(<x&y&z)"},
          {R"("open)", "open"}}},
        {trim(nullptr), {{"  a b\t\r\n", "a b"}, {" \t ", ""}, {"\0\0"s, "\0\0"s}}},
        {trim("-"), {{"-- a-b--", " a-b"}}},
        {escape(false, false),
         {{"<a b='c'>\t\r\n\x7F\xC3", "&lt;a b=&#39;c&#39;&gt;\t\r\n&#127;&#195;"}}},
        {escape(false, true), {{"\"&\v\f\r\n\x01\xC3", "&quot;&amp;\v\f\r\n?&#195;"}}},
        {escape(true, true), {{"a\r\nb\r\r\n\n", "a&#10;b&#10;&#10;&#10;"}}},
    };
    for (const auto& [convert, texts] : rows) {
        for (const auto& [text, expected] : texts)
            EXPECT_EQ(converted(convert, text), expected) << text;
        EXPECT_EQ(convert(nullptr, 0, "x", -1), -1);
        EXPECT_EQ(convert(nullptr, 0, nullptr, 1), -1);
        EXPECT_EQ(convert(nullptr, -1, "x", 1), -1);
    }
    char blanks[] = "  ";
    EXPECT_EQ(sgml_tokenizer_trim(blanks, 2, blanks, 2, nullptr), 0);
    EXPECT_STREQ(blanks, "");
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

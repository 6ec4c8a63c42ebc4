// Escaping for SQL, JavaScript, markup and location names; error documents; random identifiers.
#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "runtime/error_response.h"
#include "runtime/escape.h"
#include "runtime/strbuf.h"

namespace {

int length_of(const std::string& text) {
    return int(text.size());
}

TEST(sql_escaping, quotes_and_backslashes_and_percent_on_demand) {
    const struct {
        std::string text, literal, pattern;
    } rows[] = {
        {"", "", ""},
        {"O'Brien", R"(O\'Brien)", R"(O\'Brien)"},
        {R"(x' OR '1'='1)", R"(x\' OR \'1\'=\'1)", R"(x\' OR \'1\'=\'1)"},
        {R"(\')", R"(\\\')", R"(\\\')"},
        {"50%", "50%", R"(50\%)"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        char out[64];
        EXPECT_EQ(wuic_escape_sql(out, 64, row.text.data(), length_of(row.text), false),
                  length_of(row.literal));
        EXPECT_EQ(out, row.literal);
        EXPECT_EQ(wuic_escape_sql(out, 64, row.text.data(), length_of(row.text), true),
                  length_of(row.pattern));
        EXPECT_EQ(out, row.pattern);
    }
}

TEST(sql_escaping, what_is_not_whole_is_a_failure_and_leaves_nothing) {
    const std::string with_nul("admin\0x", 7);
    const struct {
        std::int32_t size;
        const char* text;
        std::int32_t length;
        int expected;
    } rows[] = {
        {5, "a'b", 3, 4},
        {4, "a'b", 3, -4},
        {1, "", 0, 0},
        {1, "x", 1, -1},
        {16, with_nul.data(), 7, -7},
        {16, nullptr, 3, -1},
        {16, "abc", -1, -1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.size << " " << row.length);
        const auto out = std::make_unique<char[]>(size_t(row.size));
        std::memset(out.get(), 'x', size_t(row.size));
        EXPECT_EQ(wuic_escape_sql(out.get(), row.size, row.text, row.length, false), row.expected);
        if (row.expected >= 0) continue;
        EXPECT_EQ(std::string(out.get(), size_t(row.size)), std::string(size_t(row.size), '\0'));
    }
}

TEST(javascript_escaping, lets_no_closing_tag_form) {
    const struct {
        std::string text, expected;
    } rows[] = {
        {"a\r\n\"\\'", R"(a\r\n\"\\')"},
        {"</script>", R"(<"+"/script"+">)"},
        {"", ""},
    };
    for (const auto& row : rows) {
        char out[64];
        EXPECT_EQ(wuic_jsesc(out, 64, row.text.c_str(), 0), row.expected);
        scoped_strbuf buf;
        EXPECT_EQ(wuic_jsesc_ii(buf, row.text.c_str(), -1), row.expected);
    }
    char out[8];
    EXPECT_STREQ(wuic_jsesc(out, sizeof out, "abcdefg", 3), "abc");
}

// A backslash left alone at the end would take the closing quote of the literal with it.
TEST(cut_text, ends_before_the_replacement_that_did_not_fit) {
    char out[5];
    EXPECT_STREQ(wuic_jsesc(out, sizeof out, "abc\"", 0), "abc");
    EXPECT_STREQ(wuic_jsesc(out, sizeof out, "abcd\"", 0), "abcd");
    EXPECT_STREQ(wuic_sgmlesc(out, sizeof out, "ab<", 3), "ab");
    EXPECT_STREQ(wuic_sgmlesc(out, sizeof out, "<b", 2), "&lt;");
    EXPECT_STREQ(error_text_escape(out, sizeof out, "a&b<"), "a");
    EXPECT_STREQ(error_text_escape(out, sizeof out, "<>"), "&lt;");
    EXPECT_EQ(wuic_escape_fqln_part(out, sizeof out, "abc.", 4), -5);
    EXPECT_STREQ(out, "abc");
}

TEST(size_zero, is_safe_in_every_escaper) {
    wuic_jsesc(nullptr, 0, "<", 1);
    wuic_sgmlesc(nullptr, 0, "<", 1);
    wuic_get_uuid(nullptr, 0);
    error_text_escape(nullptr, 0, "<");
    EXPECT_EQ(wuic_escape_sql(nullptr, 0, "'", 1, false), -2);
    EXPECT_LT(wuic_escape_sql(nullptr, 0, "", 0, false), 0);
    EXPECT_EQ(wuic_escape_fqln_part(nullptr, 0, ".", 1), -2);
    EXPECT_EQ(wuic_build_fqln(nullptr, 0, "a", "b", "c", "d"), -7);
    EXPECT_EQ(wuic_crack_fqln("a.b.c.d", nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0), 0);
}

TEST(location_names, are_built_and_cracked) {
    const struct {
        const char *name, *a, *b, *c, *d;
        bool reversible;
    } rows[] = {
        {R"(a\.b.c.d.e)", "a.b", "c", "d", "e", true},
        {R"(a\\.b.\\\..)", R"(a\)", "b", R"(\.)", "", true},
        {"...", "", "", "", "", true},
        {"one", "one", "", "", "", false},
        {"a.b.c.d.e.f", "a", "b", "c", "d", false},
        {R"(\a.b\)", "a", "b", "", "", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        char a[8] = "old";
        char b[8] = "old";
        char c[8] = "old";
        char d[8] = "old";
        EXPECT_EQ(wuic_crack_fqln(row.name, a, 8, b, 8, c, 8, d, 8), 0);
        EXPECT_STREQ(a, row.a);
        EXPECT_STREQ(b, row.b);
        EXPECT_STREQ(c, row.c);
        EXPECT_STREQ(d, row.d);
        if (!row.reversible) continue;
        char name[32];
        EXPECT_EQ(wuic_build_fqln(name, sizeof name, a, b, c, d), int(std::strlen(row.name)));
        EXPECT_STREQ(name, row.name);
    }
}

TEST(location_names, parts_are_bounded) {
    const std::string dots(300, '.');
    char name[2048];
    EXPECT_EQ(wuic_build_fqln(name, sizeof name, dots.c_str(), "b", nullptr, "d"), 254 + 5);
    char small[4];
    EXPECT_EQ(wuic_crack_fqln(dots.c_str() + 298, small, 4, small, 4, small, 4, small, 4), 0);
    EXPECT_EQ(wuic_crack_fqln("abcdefgh", small, 4, name, 9, name, 9, name, 9), 0);
    EXPECT_STREQ(small, "abc");
    EXPECT_EQ(wuic_build_fqln(small, 4, "a", "b", "c", "d"), -7);
    EXPECT_STREQ(small, "a.b");
}

TEST(random_identifiers, are_whole_or_nothing_and_differ) {
    char first[37];
    char second[64];
    char small[36] = "old";
    wuic_get_uuid(first, sizeof first);
    wuic_get_uuid(second, sizeof second);
    wuic_get_uuid(small, sizeof small);
    EXPECT_EQ(std::strspn(first, "0123456789abcdef-"), 36U);
    EXPECT_EQ(std::strlen(second), 36U);
    EXPECT_STRNE(first, second);
    EXPECT_STREQ(small, "");
}

TEST(error_documents, a_long_reason_is_cut_at_a_whole_character) {
    const struct {
        std::size_t plain;  // characters before the tail
        const char *tail, *expected;
    } rows[] = {{1023, "x", ""},
                {1018, "&amp;x", "&amp;"},
                {1019, "&amp;x", ""},
                {1016, "&lt;abcd", "&lt;abc"},
                {1010, "&bare text here", "&bare text he"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.tail);
        const std::string plain(row.plain, '.');
        scoped_strbuf buf;
        wuic_generic_error_ii(buf, "%s%s", plain.c_str(), row.tail);
        EXPECT_NE(
            std::strstr(buf.buf.data, ("<ERROR>" + plain + row.expected + "</ERROR>").c_str()),
            nullptr);
    }
}

}  // namespace

// Escaping for SQL, JavaScript, markup and location names; error documents; random identifiers.
#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "runtime/error_response.h"
#include "runtime/escape.h"
#include "runtime/strbuf.h"

namespace {

TEST(sql_escaping, gives_the_whole_text_or_a_failure_and_nothing) {
    const std::string injection = "x' OR '1'='1";
    const struct {
        std::int32_t size;
        const char* text;
        std::int32_t length;
        bool percent;
        int result;
        const char* stored;
    } rows[] = {
        {64, injection.data(), 12, false, 16, R"(x\' OR \'1\'=\'1)"},
        {64, R"(\'")", 3, true, 6, R"(\\\'\")"},
        {64, "5%", 2, false, 2, "5%"},
        {64, "5%", 2, true, 3, R"(5\%)"},
        {5, "a'b", 3, false, 4, R"(a\'b)"},
        {4, "a'b", 3, false, -4, ""},
        {1, "", 0, false, 0, ""},
        {1, "x", 1, false, -1, ""},
        {16, "admin\0x", 7, false, -7, ""},
        {16, nullptr, 3, false, -1, ""},
        {16, "abc", -1, false, -1, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.size << " " << row.result << row.stored);
        const auto out = std::make_unique<char[]>(size_t(row.size));
        std::memset(out.get(), 'x', size_t(row.size));
        EXPECT_EQ(wuic_escape_sql(out.get(), row.size, row.text, row.length, row.percent),
                  row.result);
        EXPECT_STREQ(out.get(), row.stored);
        EXPECT_TRUE(row.result >= 0 || out[size_t(row.size) - 1] == '\0');
    }
}

TEST(javascript_escaping, lets_no_closing_tag_form) {
    const char text[] = "a\r\n\"\\'</script>";
    const char expected[] = R"(a\r\n\"\\'<"+"/script"+">)";
    char out[64];
    EXPECT_STREQ(wuic_jsesc(out, sizeof out, text, 0), expected);
    EXPECT_STREQ(wuic_jsesc(out, sizeof out, "abcdefg", 3), "abc");
    scoped_strbuf buf;
    EXPECT_STREQ(wuic_jsesc_ii(buf, text, -1), expected);
}

// A backslash left alone at the end would take the closing quote of the literal with it.
TEST(cut_text, ends_before_the_replacement_that_did_not_fit) {
    char out[5];
    EXPECT_STREQ(wuic_jsesc(out, sizeof out, "abc\"", 0), "abc");
    EXPECT_STREQ(wuic_sgmlesc(out, sizeof out, "ab<", 3), "ab");
    EXPECT_STREQ(wuic_sgmlesc(out, sizeof out, "<b", 2), "&lt;");
    EXPECT_STREQ(error_text_escape(out, sizeof out, "a&b<"), "a");
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
    } rows[] = {
        {R"(a\.b.c.d.e)", "a.b", "c", "d", "e"},
        {R"(a\\.b.\\\..)", R"(a\)", "b", R"(\.)", ""},
        {"one...", "one", "", "", ""},
        {R"(\a.abcdefgh.c.d.e\)", "a", "abcdefg", "c", "d"},
    };
    for (const auto& row : rows) {
        char parts[4][8] = {"old", "old", "old", "old"};
        auto& [a, b, c, d] = parts;
        EXPECT_EQ(wuic_crack_fqln(row.name, a, 8, b, 8, c, 8, d, 8), 0);
        for (const auto& [part, expected] :
             {std::pair{a, row.a}, {b, row.b}, {c, row.c}, {d, row.d}})
            EXPECT_STREQ(part, expected) << row.name;
        char name[32];
        wuic_build_fqln(name, sizeof name, a, b, c, d);
        EXPECT_TRUE(row.name[0] == '\\' || std::string(name) == row.name) << name;
    }
    char name[2048];
    const std::string dots(300, '.');
    EXPECT_EQ(wuic_build_fqln(name, sizeof name, dots.c_str(), "b", nullptr, "d"), 254 + 5);
    EXPECT_EQ(wuic_build_fqln(name, 4, "a", "b", "c", "d"), -7);
    EXPECT_STREQ(name, "a.b");
}

TEST(random_identifiers, are_whole_or_nothing_and_differ) {
    char first[37];
    char second[37];
    wuic_get_uuid(first, 37);
    wuic_get_uuid(second, 37);
    EXPECT_EQ(std::strspn(first, "0123456789abcdef-"), 36U);
    EXPECT_STRNE(first, second);
    wuic_get_uuid(first, 36);
    EXPECT_STREQ(first, "");
}

TEST(error_documents, a_long_reason_is_cut_at_a_whole_character) {
    const struct {
        std::size_t plain;  // characters before the tail
        const char *tail, *expected;
    } rows[] = {{1018, "&amp;x", "&amp;"},
                {1019, "&amp;x", ""},
                {1010, "&bare text here", "&bare text he"}};
    for (const auto& row : rows) {
        const std::string plain(row.plain, '.');
        scoped_strbuf buf;
        wuic_generic_error_ii(buf, "%s%s", plain.c_str(), row.tail);
        const std::string expected = "<ERROR>" + plain + row.expected + "</ERROR>";
        EXPECT_NE(std::strstr(buf.buf.data, expected.c_str()), nullptr) << row.tail;
    }
}

}  // namespace

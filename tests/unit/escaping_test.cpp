// Escaping for SQL, JavaScript, markup and location names; error documents; random identifiers.
#include "runtime/error_response.h"
#include "runtime/escape.h"
#include "runtime/result_builder.h"
#include "runtime/sanitise.h"
#include "runtime/strbuf.h"

#include "input_support.h"

using namespace std::string_literals;

namespace {

TEST(javascript_escaping, lets_no_closing_tag_form) {
    scoped_strbuf buf;
    EXPECT_STREQ(wuic_jsesc_ii(buf, "a\r\n\"\\'</script>", -1), R"(a\r\n\"\\'<"+"/script"+">)");
}

TEST(result_escaping, needs_exactly_the_size_that_it_tells) {
    for (const auto& [text, escaped] : text_pairs{{"", ""},
                                                  {"a\"b\xC3\xA4\n", "a\"b\xC3\xA4\n"},
                                                  {"<'&'>", "&lt;&#39;&amp;&#39;&gt;"}}) {
        const exact_copy out{std::string(xml_escape_the_string_len(text.c_str()), 'x')};
        xml_escape_the_string(text.c_str(), out.data());
        EXPECT_EQ(out.view(), escaped + '\0');
    }
}

TEST(quoted_words, lose_their_quotes_and_escapes) {
    for (const auto& [text, word] : text_pairs{{R"("a b")", "a b"},
                                               {R"(a\\b\"c\d\)", R"(a\b"cd)"},
                                               {R"("\"\\"x")", R"("\x)"},
                                               {"abcdefghijkl", "abcdefg"},
                                               {R"(""abcdefghi)", "abcdefg"}}) {
        const exact_copy out{std::string(8, 'x')};
        EXPECT_STREQ(__strip_escape_and_quotes(text.c_str(), out.data(), 8), word.c_str());
    }
    EXPECT_EQ(__strip_escape_and_quotes("x", nullptr, 0), nullptr);
}

TEST(result_documents, are_built_in_order_in_a_fixed_buffer) {
    char storage[128] = "old";
    fsb buf;
    fsb_new(&buf, storage, sizeof storage);
    fsb_fmt(&buf, "leftover");
    obs_start_result(&buf);
    obs_start_table(&buf, "T");
    obs_add_data(&buf, "n", "v<");
    obs_end_table(&buf);
    EXPECT_EQ(obs_end_result(&buf), 49);
    EXPECT_STREQ(storage, "<re><t name='T'><data name='n'>v<</data></t></re>");
    EXPECT_EQ(obs_strdup(nullptr), nullptr);
}

TEST(file_names, that_could_leave_their_folder_are_told) {
    for (const auto& [name, told] :
         {std::pair{"a/b", 1}, {"..", 1}, {"x..y", 1}, {"a.b", 0}, {"", 0}})
        EXPECT_EQ(isDirectoryFormat(name), told) << name;
}

// A backslash left alone at the end would take the closing quote of the literal with it.
TEST(cut_text, ends_before_the_replacement_that_did_not_fit) {
    char out[5];
    EXPECT_STREQ(wuic_jsesc(out, sizeof out, "abc\"", 0), "abc");
    EXPECT_STREQ(wuic_jsesc(out, sizeof out, "abcd", 3), "abc");
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
    for (const auto& [name, parts] : text_pairs{{R"(a\.b.c.d.e)", "a.b|c|d|e"},
                                                {R"(a\\.b.\\\..)", R"(a\|b|\.|)"},
                                                {"one...", "one|||"},
                                                {R"(\a.abcdefgh.c.d.e\)", "a|abcdefg|c|d"}}) {
        char a[8], b[8], c[8], d[8], whole[32];
        EXPECT_EQ(wuic_crack_fqln(name.c_str(), a, 8, b, 8, c, 8, d, 8), 0);
        EXPECT_EQ(std::string(a) + "|" + b + "|" + c + "|" + d, parts);
        wuic_build_fqln(whole, sizeof whole, a, b, c, d);
        EXPECT_TRUE(name.starts_with('\\') || whole == name) << whole;
    }
    char name[2048];
    const std::string dots(300, '.');
    EXPECT_EQ(wuic_build_fqln(name, sizeof name, dots.c_str(), "b", nullptr, "d"), 254 + 5);
    EXPECT_EQ(wuic_build_fqln(name, 4, "a", "b", "c", "d"), -7);
    EXPECT_STREQ(name, "a.b");
}

TEST(random_identifiers, are_whole_or_nothing_and_differ) {
    char ids[2][37];
    wuic_get_uuid(ids[0], 37);
    wuic_get_uuid(ids[1], 37);
    EXPECT_EQ(std::strspn(ids[0], "0123456789abcdef-"), 36U);
    EXPECT_STRNE(ids[0], ids[1]);
    wuic_get_uuid(ids[0], 36);
    EXPECT_STREQ(ids[0], "");
}

TEST(error_documents, a_long_reason_is_cut_at_a_whole_character) {
    const auto document = [](std::size_t plain, const char* tail) {
        scoped_strbuf buf;
        wuic_generic_error_ii(buf, "%s%s", std::string(plain, '.').c_str(), tail);
        return std::string(std::strrchr(buf.buf.data, '.'));
    };
    EXPECT_EQ(document(1018, "&amp;x"), ".&amp;</ERROR></re>\n");
    EXPECT_EQ(document(1019, "&amp;x"), ".</ERROR></re>\n");
    EXPECT_EQ(document(1010, "&bare text here"), ".&bare text he</ERROR></re>\n");
}

}  // namespace

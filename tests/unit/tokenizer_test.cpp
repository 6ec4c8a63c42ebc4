// The tokenizer on known documents.
#include "runtime/strbuf.h"

#include "backend/sgml_tokenizer.h"

#include "input_support.h"

using namespace std::string_literals;

namespace {

using std::string;

// ---- what the tokenizer reports

using reader = int(sgml_tokenizer*);

string report_of(const sgml_tokenizer& t) {
    const exact_copy out{string(std::size_t(-sgml_tokenizer_strerror(nullptr, 0, &t)), '#'), 1};
    EXPECT_EQ(sgml_tokenizer_strerror(out.data(), out.size + 1, &t), out.size);
    return string(out.view());
}

string shown(const sgml_token& token, const string& text) {
    if (sgml_tokenizer_is_text(&token))
        return "[" + text.substr(std::size_t(token.start), std::size_t(token.size)) + "]";
    string out = token.closing != 0 ? "</" : "<";
    out.append(token.name, std::size_t(token.name_length));
    for (int i = 0; i < token.attribute_count; ++i) {
        const auto& [name, value, name_length, value_length] = token.attributes[std::size_t(i)];
        out += " " + string(name, std::size_t(name_length));
        if (value != nullptr) out += "=" + string(value, std::size_t(value_length));
    }
    return out + (token.self_closing != 0 ? "/>" : ">");
}

// "[text]", "<name a=1 b>", "</name>", then "." or the first line of the error.
string shown(const string& text, reader* next = sgml_tokenizer_next) {
    const exact_copy input{text};
    sgml_tokenizer t;
    sgml_tokenizer_init(&t, input.data(), input.size);
    string out;
    int result = 0;
    while ((result = next(&t)) > 0)
        out += shown(t.token, text);
    EXPECT_EQ(next(&t), result);  // finished
    const string report = result == sgml_error ? report_of(t) : ".";
    return out + report.substr(0, report.find('\n'));
}

TEST(tokenizer, reads_known_documents) {
    string many = "<t";
    for (std::size_t length = 1; length <= 30; ++length)
        many += " " + string(length, 'n') + "=1";
    const string nested = "<a><b><c><d><e><f><g><h><i><j><k><l><m><n><o><p><q><r><s><t><u>";
    const text_pairs rows = {
        {"", "."},
        {"a\n<a><b></a>", "[a\n]<a><b>2, 7: mismatched tag"},
        {"<a>x</a></a>", "<a>[x]</a>1, 9: mismatched tag"},
        {R"(<a x="1>2" y='"' z=\>/>)", R"(<a x="1>2" y='"' z=\>/>.)"},
        {"x\n <", "[x\n ]2, 2: mismatched bracket"},
        {"<a b\\/>", "1, 4: unterminated string"},
        {"<t\na= >", "2, 4: mismatched bracket"},
        {"<t a b c/><t b c/><t b/>", "<t a a a/><t b b/><t b/>."},
        {"<t x=1 y=3 X = 2 y/>", "<t x=2 y=3 y/>."},
        {"<?xml v='?>'?><!-- ' -> --><!DOCTYPE a><1>.", "<?xml v='?>'><!--><!DOCTYPE a><1>[.]."},
        {"<![CDATA[a]]>b]]><![CDATA[]]>", "[a]]>b][]."},
        {"<![CDATA[abcd", "[a]."},
        {"<![CDATA[a", "[]."},
        {"<![CDATA[", "1, 1: mismatched bracket"},
        {many + " x=1 n=2/>", many + "/>."},
        {nested + "</x></y></x>", nested + "</x></y>1, 72: mismatched tag"},
    };
    for (const auto& [text, expected] : rows)
        EXPECT_EQ(shown(text), expected) << text;
    EXPECT_EQ(shown("<a>x<![cdata[</a>]]>y<b/><![CDATA[z", sgml_tokenizer_next_cdata),
              "<a>[x<![cdata[</a>]]>y]<b/>[<![CDATA[z]1, 1: mismatched tag");
}

// A tokenizer over a copy of the text, after some calls of next.
struct tokenizer_at {
    exact_copy input;
    sgml_tokenizer t = {};
    tokenizer_at(const string& text, int calls) : input(text) {
        sgml_tokenizer_init(&t, input.data(), input.size);
        for (int i = 0; i < calls; ++i)
            EXPECT_GT(sgml_tokenizer_next(&t), 0);
    }
};

TEST(tokenizer, shows_the_place_of_an_error) {
    tokenizer_at at("a\n\tab\t</b>\r\nz", 1);
    const string place = "\n\tab\t</b>\n................^\n";
    EXPECT_EQ(sgml_tokenizer_next(&at.t), sgml_error);
    EXPECT_EQ(report_of(at.t), "2, 5: mismatched tag" + place);
    for (const auto& [code, message] : {std::pair{0, "no error"},
                                        {4, "unknown entity"},
                                        {5, "symantic error"},
                                        {6, "unknown error"},
                                        {-1, "unknown error"}}) {
        sgml_tokenizer_set_error(&at.t, 6, code);
        EXPECT_EQ(report_of(at.t), "2, 5: "s + message + place);
    }
}

TEST(tokenizer, answers_what_is_current_and_open) {
    string text;
    for (char name = 'a'; name <= 't'; ++name)
        text += "<"s + name + ">";
    tokenizer_at at(text + "<U X=1>text", 21);
    EXPECT_TRUE(sgml_tokenizer_has_attribute(&at.t, "x", 1));
    EXPECT_TRUE(sgml_tokenizer_is_tag(&at.t.token, "U", false));
    EXPECT_FALSE(sgml_tokenizer_is_tag(&at.t.token, "U", true));
    EXPECT_FALSE(sgml_tokenizer_is_tag(&at.t.token, "u", false));
    EXPECT_FALSE(sgml_tokenizer_is_text(&at.t.token));
    EXPECT_EQ(sgml_tokenizer_next(&at.t), sgml_text);
    EXPECT_TRUE(sgml_tokenizer_is_text(&at.t.token));
    const std::tuple<const char*, int, bool> rows[] = {
        {"U", 0, false}, {"t", 1, true},   {"a", 20, true},         {"a", 21, false},
        {"a", -1, true}, {"t", -20, true}, {"U", -21, false},       {"b", -1, false},
        {"T", 1, false}, {"tt", 1, false}, {"a", INT32_MAX, false}, {"a", INT32_MIN, false}};
    for (const auto& [name, index, expected] : rows)
        EXPECT_EQ(sgml_tokenizer_stack_is_tag(&at.t, name, index), expected) << name << index;

    tokenizer_at path("<a><b><c></c>", 3);
    EXPECT_TRUE(st_is(&path.t, "a", "b", "c", nullptr));
    EXPECT_FALSE(st_is(&path.t, "a", "b", nullptr));
    EXPECT_FALSE(st_is(&path.t, "a", "b", "c", "d", nullptr));
    EXPECT_FALSE(st_is(&path.t, "a", "B", "c", nullptr));
    EXPECT_GT(sgml_tokenizer_next(&path.t), 0);
    EXPECT_FALSE(st_is(&path.t, "a", "b", "c", "c", nullptr));
}

TEST(tokenizer, collects_the_text_of_an_element) {
    const struct {
        int calls;
        bool unescape, clear, trim;
        const char* expected;
    } rows[] = {{1, true, true, true, "a<x>"},      {1, false, true, false, " a&lt;x&gt;\n "},
                {2, true, false, true, "old a<x>"}, {3, true, true, true, "x"},
                {5, true, false, true, " old"},     {6, true, false, false, " old"}};
    for (const auto& [calls, unescape, clear, trim, expected] : rows) {
        tokenizer_at at("<r> a&lt;<b>x<r/></b><!-- no --><![CDATA[&gt;]]><i>\n </i></r>no", calls);
        scoped_strbuf buf;
        wms_strbuf_fmt(buf, " old");
        EXPECT_EQ(st_to_str(&at.t, buf, unescape, clear, trim), 0);
        EXPECT_STREQ(buf.buf.data, expected);
    }
}

TEST(tokenizer, hands_out_attribute_values) {
    const string text =
        R"(<a x="&lt; '\"" h=0x1F o='010' j=" -42px" n=99999999999 m=-99999999999 z=)";
    tokenizer_at at(text + string(127, '0') + "7 y>", 1);
    scoped_strbuf buf;
    EXPECT_EQ(st_get_attr(buf, &at.t, "X", true, true), 0);
    EXPECT_EQ(st_get_attr(buf, &at.t, "y", true, false), 0);
    EXPECT_EQ(sgml_get_all_attr(buf, &at.t, "x", false, false), 0);
    EXPECT_EQ(st_get_attr(buf, &at.t, "none", true, false), 0);
    EXPECT_STREQ(buf.buf.data, R"(< '""&lt; '\"")");
    const std::pair<const char*, int> rows[] = {{"h", 31},        {"o", 8},         {"j", -42},
                                                {"n", INT32_MAX}, {"m", INT32_MIN}, {"z", 0},
                                                {"y", 0},         {"none", 5}};
    for (const auto& [name, expected] : rows)
        EXPECT_EQ(st_attr_to_int(&at.t, name, 5), expected) << name;
}

TEST(byte_ranges, compare_as_signed_characters) {
    const std::tuple<string, string, int, int> rows[] = {{"ab", "aB", 'b' - 'B', 0},
                                                         {"ab", "a", 1, 1},
                                                         {"", "A", -1, -1},
                                                         {"\xFF", "A", -1 - 'A', -1 - 'a'},
                                                         {"a\0b"s, "a\0b"s, 0, 0}};
    for (const auto& [a, b, exact, any_case] : rows) {
        const exact_copy x{a};
        const exact_copy y{b};
        EXPECT_EQ(st_strcmp(x.data(), x.size, y.data(), y.size), exact) << a;
        EXPECT_EQ(st_strcmpi(x.data(), x.size, y.data(), y.size), any_case) << a;
    }
}

}  // namespace

// A request as a client sends it becomes variables and form fields, or is refused.
#include <algorithm>
#include <array>
#include <random>
#include <regex.h>

#include "runtime/multipart.h"
#include "runtime/screening.h"

#include "input_support.h"

using namespace std::string_literals;

namespace {

struct request_input : request_fixture {
    int get(const char* query) const {
        set("REQUEST_METHOD", "GET");
        set("QUERY_STRING", query);
        return cgi_parse(input);
    }
    int post(std::string_view body, const std::string& length) const {
        const body_on_stdin on_stdin{body};
        set("REQUEST_METHOD", "POST");
        set("CONTENT_LENGTH", length.c_str());
        return cgi_parse(input);
    }
    int post(std::string_view body) const { return post(body, std::to_string(body.size())); }
    // All fields in their order; what a part of an upload adds stands in brackets.
    std::string fields() const {
        std::string all;
        for (int i = 0; i < input->pairs.count; ++i) {
            const cgi_pair& pair = input->pairs.entries[i];
            all += pair.name;
            if (pair.value != nullptr) {
                all += "="s + std::string(pair.value, std::size_t(pair.value_len));
                EXPECT_EQ(pair.value[pair.value_len], '\0');
            }
            if (pair.filename != nullptr) all += "["s + pair.filename + "]";
            if (pair.content_type != nullptr) all += "("s + pair.content_type + ")";
            all += "|";
        }
        return all;
    }
};

TEST_F(request_input, overrides_stand_before_the_environment) {
    setenv("REMOTE_ADDR", "10.0.0.1", 1);
    EXPECT_STREQ(cgi_get_var(input, "REMOTE_ADDR"), "10.0.0.1");
    set("REMOTE_ADDR", "10.0.0.2");
    request_record other;
    ASSERT_EQ(cgi_copy_vars(&other.input, input), 0);
    set("REMOTE_ADDR", nullptr);  // hides the environment's
    EXPECT_EQ(cgi_get_var(input, "REMOTE_ADDR"), nullptr);
    EXPECT_STREQ(cgi_get_var(&other.input, "REMOTE_ADDR"), "10.0.0.2");
}

TEST_F(request_input, a_query_becomes_sorted_fields) {
    for (const auto& [query, expected] :
         text_pairs{{"b&a=1", "a=1|b|"},
                    {"&a=b=c&=x&", "|=x||a=b=c|"},
                    {"%61+%62=c+%26d", "a b=c &d|"},
                    {"a=1%00%00b", "a=1\0\0b|"s},
                    {"z%C3=1&z=2", "z=2|z\xC3=1|"},            // bytewise, unsigned
                    {"a=%4&b=%&c%4", "a=\x10|b=\xD0|c\x10|"},  // what follows reads as NUL
                    {"", ""}}) {
        EXPECT_EQ(get(query.c_str()), 0);
        EXPECT_EQ(fields(), expected);
    }
    EXPECT_EQ(get(nullptr), 0);
    EXPECT_EQ(cgi_named_pair(input, ""), nullptr);
    ASSERT_EQ(get("b&a=1&B=2"), 0);
    EXPECT_STREQ(cgi_named_value(input, "a"), "1");
    EXPECT_STREQ(cgi_named_value(input, "b"), "");
    EXPECT_EQ(cgi_named_value(input, "c"), nullptr);
    EXPECT_STREQ(cgi_query_string(input), "b&a=1&B=2");
}

TEST_F(request_input, a_query_that_carries_markup_is_refused) {
    for (const char* query :
         {"a=%3Cscript%3E", "a=<IMG ", "a=%3cStYlE%3d", "a=%3Eiframe%20", "a=<br>", "a=<a%20href",
          "a=<<td ", "a='onload=(1)", "a=%22+on+%3D%28x%29", "a=%00'on%00=(%00)"})
        EXPECT_EQ(get(query), -1) << query;
    for (const char* query :
         {"a=%3Cb%3E", "a=<br", "a=<abc", "a=%3C", "a=%253Cscript%253E", "a='ON=()", "a='on= ()"})
        EXPECT_EQ(get(query), 0) << query;
    EXPECT_EQ(post("a=%3Cscript%3E"), 0);  // bodies are not screened
}

// Four searches in a row decide the same as the expression that they stand for.
TEST(screening, the_event_handler_search_agrees_with_its_expression) {
    regex_t expression;
    ASSERT_EQ(regcomp(&expression, "(.*)[\"'](.*)on(.*)=[(](.*)[)]", REG_EXTENDED | REG_NOSUB), 0);
    std::mt19937 random{20};
    int matches = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        for (auto pieces = random() % 9; pieces > 0; --pieces)
            text += std::array{"\"", "'", "on", "o", "n", "=(", "=", "(", ")"}[random() % 9];
        const bool expected = regexec(&expression, text.c_str(), 0, nullptr, 0) == 0;
        ASSERT_EQ(screening_finds_event_handler(exact_copy{text}.view()), expected) << text;
        matches += expected;
    }
    EXPECT_GT(matches, 50);
    regfree(&expression);
}

TEST_F(request_input, a_body_and_its_fields_are_bounded) {
    const std::string longest(cgi_raw_max, '+');
    const auto raw_of = [&](std::string_view body, const char* length, int result) {
        EXPECT_EQ(post(body, length), result) << length;
        return cgi_query_string(input);
    };
    EXPECT_STREQ(raw_of("a=1&b", " 3x", 0), "a=1");
    EXPECT_EQ(raw_of(longest, "102399", 0), longest);
    EXPECT_EQ(raw_of(longest + "x", "102400", 0), nullptr);
    EXPECT_EQ(raw_of("a=1", "4294967299", -3), nullptr);
    EXPECT_EQ(post(std::string(83886080, 'x')), 0);
    const body_on_stdin replaced{""};
    dup2(unique_fd{open("/", O_RDONLY)}.get(), STDIN_FILENO);
    set("CONTENT_LENGTH", "3");
    EXPECT_EQ(cgi_parse(input), -5);
    for (const std::size_t delimiters : {1048575U, 1048576U}) {
        const exact_copy form{std::string(delimiters, '&'), 1};
        const bool fits = delimiters == 1048575;
        EXPECT_EQ(cgi_parse_iii(input, form.data(), form.size, 0), fits ? 0 : -1);
        EXPECT_EQ(input->pairs.count, fits ? 1048576 : 0);
    }
}

constexpr char boundary_type[] = "multipart/form-data; boundary=XyZ";
const std::string end = "--XyZ--\r\n";

std::string part(const std::string& name, const std::string& data) {
    return "--XyZ\r\nContent-Disposition: form-data; name=\"" + name + "\r\n\r\n" + data + "\r\n";
}

TEST_F(request_input, a_buffer_is_parsed_as_its_mode_says) {
    const std::string form = part("a\"", "1") + end;
    const exact_copy borrowed{form};
    EXPECT_EQ(cgi_parse_ii(input, borrowed.data(), borrowed.size, 1), -1);  // no boundary known
    set("CONTENT_TYPE", boundary_type);
    EXPECT_EQ(cgi_parse_ii(input, borrowed.data(), borrowed.size, -1), 0);
    EXPECT_EQ(fields(), "a=1|");
    EXPECT_EQ(borrowed.view(), form);
    const exact_copy in_place{"b=2&a", 1};
    EXPECT_EQ(cgi_parse_iii(input, in_place.data(), in_place.size, 0), 0);
    EXPECT_EQ(cgi_named_value(input, "b"), in_place.data() + 2);
}

TEST_F(request_input, parts_of_a_form_become_fields) {
    set("CONTENT_TYPE", boundary_type);
    const std::string file = "f\"; filename=\"";
    const std::string type = "\"\r\nContent-Type: t/p";
    for (const auto& [parts, expected] :
         text_pairs{{"preamble--XyZ\r\n" + part("b\"", "2") + part("a\"", ""), "a=|b=2|"},
                    {part("semi\";", "\r\n\r\n--XyY\r\n--Xy\r\n\0"s),
                     "semi=\r\n\r\n--XyY\r\n--Xy\r\n\0|"s},
                    {part(";", "x"), "=x|"},
                    {part("f\"; filename=\"d/e.txt" + type, "data"), "f=data[d/e.txt](t/p)|"},
                    {part(file + type, ""), "f=[](t/p)|"},
                    {part(file, "data"), "f=data[]|"},
                    {part(file + "c:\\dir\\e.txt\"", ""), "f=[c:\\dir\\e.txt]|"},
                    {"--XyZ\r\nshort\r\n\r\nx\r\n" + part("b\"", "2"), "b=2|"},
                    {"--XyZ\r\n" + std::string(60, 'x') + "\r\n" + part("b\"", "2"), "b=2|"},
                    {part("a\"", "1") + "--XyZ" + part("b\"", "2"), "a=1|"}}) {
        EXPECT_EQ(post(parts + end), 0);
        EXPECT_EQ(fields(), expected);
    }
    EXPECT_EQ(post(part("a\"", "1") + part(file + "x/..\"", "data") + end), -6);
    EXPECT_EQ(fields(), "");
    EXPECT_EQ(post(part(file + "a\0b\""s, "") + end), -6);
    set("CONTENT_TYPE", ("multipart/form-data; boundary=" + std::string(255, 'x')).c_str());
    EXPECT_EQ(post(end), -1);
}

TEST_F(request_input, a_form_may_end_or_be_damaged_at_any_byte) {
    set("CONTENT_TYPE", boundary_type);
    const std::string body = part("a\"", "v") + part("b\"", "v") +
                             part("f\"; filename=\"e\"\r\nContent-Type: t/p", "data") + "--XyZ--";
    int delimiters = 0;
    for (std::size_t at = 0; at < body.size(); ++at) {
        const exact_copy cut{body.substr(0, at), 1};
        delimiters += body.substr(0, at).ends_with("--XyZ");
        ASSERT_EQ(cgi_parse_iii(input, cut.data(), cut.size, 1), 0) << at;
        ASSERT_EQ(input->pairs.count, std::max(0, delimiters - 1)) << at;
        fields();  // reads every byte that the fields claim
        const exact_copy damaged{body, 1};
        damaged.data()[at] = '"';
        ASSERT_GE(cgi_parse_iii(input, damaged.data(), damaged.size, 1), -6);
        fields();
    }
}

TEST(multipart, a_delimiter_is_found_where_a_plain_search_finds_it) {
    std::mt19937 random{7};
    const auto letters = [&random](std::size_t length) {
        std::string text(length, '-');
        std::ranges::generate(text, [&] { return "-a"[random() % 2]; });
        return text;
    };
    for (int round = 0; round < 5000; ++round) {
        const std::string name = letters(1 + random() % 6);
        const std::string text = letters(random() % 60);
        boundary delimiter;
        ASSERT_TRUE(boundary_prepare(&delimiter, ("boundary=" + name).c_str()));
        ASSERT_EQ(boundary_find(delimiter, exact_copy{text}.view()), text.find("--" + name))
            << name << " in " << text;
    }
}

}  // namespace

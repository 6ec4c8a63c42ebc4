// A request as a client sends it becomes variables and form fields, or is refused.
#include <array>
#include <cstdlib>
#include <random>
#include <regex.h>
#include <vector>

#include "runtime/cgi.h"
#include "runtime/multipart.h"
#include "runtime/request.h"
#include "runtime/screening.h"

#include "input_support.h"

using namespace std::string_literals;

namespace {

struct request_input : testing::Test {
    request_record request;
    cgi* const input = &request.input;

    void set(const char* name, const char* value) const {
        ASSERT_EQ(cgi_set_var(input, name, value), 0);
    }
    int get(const char* query) const {
        set("REQUEST_METHOD", "GET");
        set("QUERY_STRING", query);
        return cgi_parse(input);
    }
    int post(const char* length, std::string_view body) const {
        const body_on_stdin on_stdin{body};
        set("REQUEST_METHOD", "POST");
        set("CONTENT_LENGTH", length);
        return cgi_parse(input);
    }
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
    set("REMOTE_ADDR", "10.0.0.3");
    EXPECT_STREQ(cgi_get_var(input, "REMOTE_ADDR"), "10.0.0.3");
    EXPECT_EQ(cgi_get_var(input, "remote_addr"), nullptr);
    for (int i = 0; i < 40; ++i)
        set(("V" + std::to_string(i)).c_str(), "x");

    request_record other;
    ASSERT_EQ(cgi_copy_vars(&other.input, input), 0);
    set("REMOTE_ADDR", nullptr);  // hides the environment's
    EXPECT_EQ(cgi_get_var(input, "REMOTE_ADDR"), nullptr);
    EXPECT_STREQ(cgi_get_var(&other.input, "REMOTE_ADDR"), "10.0.0.3");
    EXPECT_STREQ(cgi_get_var(&other.input, "V39"), "x");
    EXPECT_EQ(input->vars.count, 41);
    EXPECT_EQ(input->vars.capacity, 48);
}

TEST_F(request_input, a_query_becomes_sorted_fields) {
    const struct {
        const char* query;
        std::string fields;
    } rows[] = {
        {"", ""},
        {"b&a=1", "a=1|b|"},
        {"a=1&&b", "|a=1|b|"},
        {"&", "||"},
        {"=x", "=x|"},
        {"a=b=c", "a=b=c|"},
        {"%61+%62=c+%26d", "a b=c &d|"},
        {"a=1%00%00b", "a=1\0\0b|"s},
        {"z%C3=1&z=2", "z=2|z\xC3=1|"},  // bytewise, unsigned
        {"a=%4&b=%", "a=\x10|b=\xD0|"},  // what follows the field reads as NUL
        {"a%4=1", "a\x10=1|"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.query);
        EXPECT_EQ(get(row.query), 0);
        EXPECT_EQ(fields(), row.fields);
    }
    ASSERT_EQ(get("b&a=1&B=2"), 0);
    EXPECT_STREQ(cgi_named_value(input, "a"), "1");
    EXPECT_STREQ(cgi_named_value(input, "B"), "2");
    EXPECT_STREQ(cgi_named_value(input, "b"), "");
    EXPECT_EQ(cgi_named_value(input, "c"), nullptr);
    EXPECT_STREQ(cgi_query_string(input), "b&a=1&B=2");
    EXPECT_EQ(get(nullptr), 0);
    EXPECT_EQ(fields(), "");
    EXPECT_EQ(cgi_query_string(input), nullptr);
    EXPECT_EQ(cgi_named_pair(input, ""), nullptr);
}

TEST_F(request_input, a_query_that_carries_markup_is_refused) {
    const char* const refused[] = {
        "a=%3Cscript%3E", "a=<IMG ", "a=%3cStYlE%3d", "a=%3Eiframe%20",      "a=<br>",
        "a=<a%20href",    "a=<<td ", "a='onload=(1)", "a=%22+on+%3D%28x%29", "a=%00'on%00=(%00)"};
    const char* const accepted[] = {"a=%3Cb%3E",          "a=<br",    "a=<abc",   "a=%3", "a=%3C",
                                    "a=%253Cscript%253E", "a='ON=()", "a='on= ()"};
    for (const char* query : refused)
        EXPECT_EQ(get(query), -1) << query;
    EXPECT_EQ(input->pairs.count, 0);
    for (const char* query : accepted)
        EXPECT_EQ(get(query), 0) << query;
    EXPECT_EQ(input->pairs.count, 1);
    EXPECT_EQ(post("14", "a=%3Cscript%3E"), 0);  // bodies are not screened
}

// Four searches in a row decide the same as the expression that they stand for.
TEST(screening, the_event_handler_search_agrees_with_its_expression) {
    regex_t expression;
    ASSERT_EQ(regcomp(&expression, "(.*)[\"'](.*)on(.*)=[(](.*)[)]", REG_EXTENDED | REG_NOSUB), 0);
    std::mt19937 random{20};
    int matches = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        for (auto pieces = random() % 9; pieces > 0; --pieces) {
            text += std::array{"\"", "'", "on", "o", "n", "=(", "=", "(", ")"}[random() % 9];
        }
        const bool expected = regexec(&expression, text.c_str(), 0, nullptr, 0) == 0;
        exact_copy copy{text};
        ASSERT_EQ(screening_finds_event_handler({copy.data(), copy.size}), expected) << text;
        matches += expected;
    }
    EXPECT_GT(matches, 50);
    regfree(&expression);
}

TEST_F(request_input, the_length_of_a_body_decides_what_is_read) {
    const struct {
        const char* length;
        const char* body;
        int result;
        const char* log;
    } rows[] = {
        {nullptr, "a=1", -2, "Unable to obtain content length from POST operation"},
        {"", "a=1", 0, ""},
        {"abc", "a=1", 0, ""},
        {"-1", "a=1", -2, "Unable to obtain content length from POST operation"},
        {"-99999999999999999999", "", -2, "Unable to obtain content length"},
        {"3", "a=1&b", 0, ""},
        {" 3x", "a=1", 0, ""},
        {"4", "a=1", -5, "EOF rached in reading stdin."},
        {"83886081", "", -3, "Current content length 83886081 exceed max content length 83886080"},
        {"4294967299", "a=1", -3, "Current content length 4294967299 exceed"},
        {"99999999999999999999", "", -3, "exceed max content length 83886080"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.length != nullptr ? row.length : "none");
        logged();
        EXPECT_EQ(post(row.length, row.body), row.result);
        const std::string log = logged();
        EXPECT_NE(log.find(row.log), std::string::npos) << log;
        EXPECT_EQ(log.empty(), *row.log == '\0');
    }
    EXPECT_EQ(post("3", "a=1&b"), 0);
    EXPECT_EQ(fields(), "a=1|");
    set("REQUEST_METHOD", "PUT");
    EXPECT_EQ(cgi_parse(input), -1);
    set("REQUEST_METHOD", "get");
    EXPECT_EQ(cgi_parse(input), -1);
}

TEST_F(request_input, a_body_that_cannot_be_read_is_an_error) {
    const unique_fd saved{dup(STDIN_FILENO)};
    const unique_fd folder{open("/", O_RDONLY)};
    set("REQUEST_METHOD", "POST");
    set("CONTENT_LENGTH", "3");
    logged();
    dup2(folder.get(), STDIN_FILENO);
    EXPECT_EQ(cgi_parse(input), -5);
    dup2(saved.get(), STDIN_FILENO);
    EXPECT_NE(logged().find("fread error in reading from stdin."), std::string::npos);
}

TEST_F(request_input, the_largest_body_is_accepted_and_a_small_one_is_kept_raw) {
    EXPECT_EQ(post("83886080", std::string(83886080, 'x')), 0);
    EXPECT_EQ(input->pairs.count, 1);
    const std::string longest(cgi_raw_max, '+');
    EXPECT_EQ(post("102399", longest), 0);
    EXPECT_STREQ(cgi_query_string(input), longest.c_str());
    EXPECT_EQ(post("102400", longest + "x"), 0);
    EXPECT_EQ(cgi_query_string(input), nullptr);
}

TEST_F(request_input, the_number_of_fields_is_bounded) {
    exact_copy most{std::string(1048575, '&'), 1};
    EXPECT_EQ(cgi_parse_iii(input, most.data(), most.length(), 0), 0);
    EXPECT_EQ(input->pairs.count, 1048576);
    exact_copy more{std::string(1048576, '&'), 1};
    EXPECT_EQ(cgi_parse_iii(input, more.data(), more.length(), 0), -1);
    EXPECT_EQ(input->pairs.count, 0);
}

constexpr char boundary_type[] = "multipart/form-data; boundary=XyZ";

std::string part(const std::string& name, const std::string& data) {
    return "--XyZ\r\nContent-Disposition: form-data; name=\"" + name + "\r\n\r\n" + data + "\r\n";
}

TEST_F(request_input, a_buffer_is_parsed_as_its_mode_says) {
    const std::string form = part("a\"", "1") + "--XyZ--";
    exact_copy borrowed{form};
    EXPECT_EQ(cgi_parse_ii(input, borrowed.data(), borrowed.length(), 1), -1);  // no boundary known
    set("CONTENT_TYPE", boundary_type);
    EXPECT_EQ(cgi_parse_ii(input, borrowed.data(), borrowed.length(), -1), 0);
    EXPECT_EQ(fields(), "a=1|");
    EXPECT_EQ(cgi_query_string(input), borrowed.data());
    EXPECT_EQ(std::string(borrowed.data(), borrowed.size), form);

    exact_copy in_place{"b=2&a", 1};
    EXPECT_EQ(cgi_parse_iii(input, in_place.data(), in_place.length(), 0), 0);
    EXPECT_EQ(fields(), "a|b=2|");
    EXPECT_EQ(cgi_named_value(input, "b"), in_place.data() + 2);
    EXPECT_EQ(cgi_parse_iii(input, in_place.data(), 0, 0), 0);
}

TEST_F(request_input, parts_of_a_form_become_fields) {
    set("CONTENT_TYPE", boundary_type);
    const std::string file = "f\"; filename=\"";
    const std::string type = "\"\r\nContent-Type: ";
    const std::string end = "--XyZ--\r\n";
    const struct {
        std::string body;
        int result;
        std::string fields;
    } rows[] = {
        {"", 0, ""},
        {"preamble" + part("b\"", "2") + part("a\"", "") + end, 0, "a=|b=2|"},
        {part("semi\";", "x") + end, 0, "semi=x|"},
        {part("a\"", "l1\r\n\r\n--XyY\r\n--Xy\r\n\0z"s) + end, 0,
         "a=l1\r\n\r\n--XyY\r\n--Xy\r\n\0z|"s},
        {part(file + "d/e.txt" + type + "text/plain", "data") + end, 0,
         "f=data[d/e.txt](text/plain)|"},
        {part(file + "e.txt\"", "data") + end, 0, "f=data[e.txt]|"},
        {part(file + type + "text/plain", "") + end, 0, "f=[](text/plain)|"},
        {part(file, "data") + end, 0, "f=data[]|"},
        {part(file + "c:\\dir\\e.txt\"", "") + end, 0, "f=[c:\\dir\\e.txt]|"},
        {part(file + "../../e.txt\"", "") + end, 0, "f=[../../e.txt]|"},
        {part("a\"", "1") + part(file + "x/..\"", "data") + end, -6, ""},
        {part(file + "a/b\\c\"", "") + end, -6, ""},
        {part(file + "dir\\.hidden\"", "") + end, -6, ""},
        {part(file + "a\0b\""s, "") + end, -6, ""},
        {part(file + std::string(256, 'x') + "\"", "") + end, -6, ""},
        {part("a\"", "1") + "--XyZ\r\nshort\r\n\r\n--XyZ\r\n" + part("b\"", "2") + end, 0,
         "a=1|b=2|"},
        {"--XyZ\r\nContent-Disposition: form-data; name=\"no end\"\r\n" + part("b\"", "2") + end, 0,
         "b=2|"},
        {part("a\"", "1") + "--XyZ" + part("b\"", "2") + end, 0, "a=1|"},
        {part("a\"", "1") + part("cut\"", "2"), 0, "a=1|"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.body);
        EXPECT_EQ(post(std::to_string(row.body.size()).c_str(), row.body), row.result);
        EXPECT_EQ(fields(), row.fields);
    }
    const std::string too_long = "multipart/form-data; boundary=" + std::string(255, 'x');
    for (const char* bad : {"multipart/form-data; boundary=", too_long.c_str()}) {
        set("CONTENT_TYPE", bad);
        EXPECT_EQ(post("9", "--XyZ\r\n\r\n"), -1);
    }
}

TEST_F(request_input, a_form_may_end_or_be_damaged_at_any_byte) {
    set("CONTENT_TYPE", boundary_type);
    std::string body;
    for (int i = 0; i < 20; ++i)
        body += part("n" + std::to_string(i) + "\"", "v");
    body +=
        part("f\"; filename=\"e\"\r\nContent-Type: t/p", "data") + part("last\"", "") + "--XyZ--";
    int delimiters = 0;
    for (std::size_t at = 0; at <= body.size(); ++at) {
        exact_copy cut{body.substr(0, at), 1};
        delimiters += body.substr(0, at).ends_with("--XyZ");
        ASSERT_EQ(cgi_parse_iii(input, cut.data(), cut.length(), 1), 0) << at;
        ASSERT_EQ(input->pairs.count, std::max(0, delimiters - 1)) << at;
        fields();  // reads every byte that the fields claim
        exact_copy damaged{body, 1};
        if (at < body.size()) damaged.data()[at] = '"';
        ASSERT_GE(cgi_parse_iii(input, damaged.data(), damaged.length(), 1), -6);
        fields();
    }
    EXPECT_EQ(input->pairs.count, 22);  // the last round damages nothing
}

TEST(multipart, a_delimiter_is_found_where_a_plain_search_finds_it) {
    std::mt19937 random{7};
    int found = 0;
    for (int round = 0; round < 5000; ++round) {
        std::string name(1 + random() % 6, '-');
        for (char& c : name)
            c = "-a"[random() % 2];
        std::string text(random() % 60, '-');
        for (char& c : text)
            c = "-a"[random() % 2];
        boundary delimiter;
        ASSERT_TRUE(boundary_prepare(&delimiter, ("boundary=" + name).c_str()));
        exact_copy copy{text};
        const std::size_t at = boundary_find(delimiter, {copy.data(), copy.size});
        ASSERT_EQ(at, text.find("--" + name)) << name << " in " << text;
        found += at != std::string::npos;
    }
    EXPECT_GT(found, 500);
}

}  // namespace

// A request as a client sends it becomes variables and form fields, or is refused.
#include "input_support.h"

using namespace std::string_literals;

namespace {

struct request_input : request_fixture {
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

}  // namespace

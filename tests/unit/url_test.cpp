// URL text and the checks on names and arguments that come with it.
#include "runtime/url.h"

#include "runtime/sanitise.h"

#include "input_support.h"

using namespace std::string_literals;

namespace {

std::string escaped(bool ex, const std::string& text) {
    const exact_copy in{text};
    const exact_copy out{std::string(3 * text.size() + 1, '#')};
    auto* const escape = ex ? cgi_escape_url_ex : cgi_escape_url;
    const int length = escape(out.data(), out.size, in.data(), in.size, true);
    EXPECT_EQ(out.data()[length], '\0');
    return std::string(out.view().substr(0, std::size_t(length)));
}

TEST(url, text_is_escaped) {
    const std::string marks = "~!?@#$%&*()-_+=[]{};:',.";
    EXPECT_EQ(escaped(true, marks + "Az b/9"), marks + "Az%20b/9");
    EXPECT_EQ(escaped(false, marks + "Az b/9"),
              "%7E%21%3F%40%23%24%25%26%2A%28%29%2D%5F%2B%3D%5B%5D%7B%7D%3B%3A%27%2C%2EAz%20b%2F9");
    for (const bool ex : {true, false})
        EXPECT_EQ(escaped(ex, "\r\n\n\r\xff\"<\0"s), "%0A%0A%0D%FF%22%3C%00");
    char out[8];
    EXPECT_EQ(cgi_escape_url(out, 8, "\r\n", 2, false), 6);
}

TEST(url, every_size_of_buffer_is_safe) {
    const std::string whole = "a%20b\0"s;
    for (std::size_t size = 0; size <= 6; ++size) {
        SCOPED_TRACE(size);
        const exact_copy out{std::string(size, '#')};
        EXPECT_EQ(cgi_escape_url(out.data(), out.size, "a b", 3, false), size < 5 ? -5 : 5);
        EXPECT_EQ(out.view(), whole.substr(0, size));
        EXPECT_EQ(cgi_escape_url_ex(out.data(), out.size, "a b", 3, false), size < 5 ? -5 : 5);
        EXPECT_STREQ(std::string(out.view()).c_str(),
                     whole.substr(0, size < 5 && size > 0 ? size - 1 : size).c_str());
        EXPECT_EQ(cgi_unescape_url(out.data(), out.size, "a%20b", 5), size < 3 ? -3 : 3);
        EXPECT_EQ(out.view().substr(0, 4), "a b\0"s.substr(0, size));
    }
    char untouched = '#';
    EXPECT_EQ(cgi_escape_url(&untouched, 1, "a", -1, false), -1);
    EXPECT_EQ(cgi_unescape_url(&untouched, 1, "a", -1), -1);
    EXPECT_EQ(untouched, '#');
}

TEST(names, arguments_of_clients_are_checked) {
    const std::string longest(255, 'x');
    for (const char* text : {"a;b", "\"", "a,", "a%3Bb", "a%2522"})
        EXPECT_TRUE(is_malicious_chars(text) && !is_sanitized(text)) << text;
    for (const char* text : {"a/../b", "%2E%2E%2F", "x%252E%252E%252F"})
        EXPECT_TRUE(is_directory_traversal(text) && !is_sanitized(text)) << text;
    for (const std::string& text :
         {"a;b"s, "."s, ".."s, ".profile"s, "a/b"s, "a\\b"s, "a\nb"s, "a\x7f"s, longest + "x"})
        EXPECT_TRUE(is_restricted_filename(text.c_str())) << text;
    for (const std::string& text : {""s, "a b-c_1.gz"s, "a..b"s, "a%3bb"s, "\xC3\xA4"s, longest})
        EXPECT_TRUE(is_sanitized(text.c_str()) && !is_restricted_filename(text.c_str())) << text;
    EXPECT_TRUE(is_restricted_filename(nullptr));
    EXPECT_FALSE(is_malicious_chars(nullptr) || is_sanitized(nullptr));
}

}  // namespace

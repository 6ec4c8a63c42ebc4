// URL text and the checks on names and arguments that come with it.
#include "runtime/url.h"

#include "runtime/sanitise.h"

#include "input_support.h"

using namespace std::string_literals;

namespace {

using escaper = int(char*, std::int32_t, const char*, std::int32_t, bool);
using unescaper = int(char*, std::int32_t, const char*, std::int32_t);

std::string escaped(escaper* escape, const std::string& text, bool crlf) {
    const exact_copy in{text};
    std::string out(3 * text.size() + 1, '#');
    const int length = escape(out.data(), int(out.size()), in.data(), in.size, crlf);
    EXPECT_EQ(out[std::size_t(length)], '\0');
    return out.substr(0, std::size_t(length));
}

std::string unescaped(unescaper* unescape, const std::string& text) {
    const exact_copy in{text};
    const int length = unescape(in.data(), in.size, in.data(), in.size);
    return {in.data(), std::size_t(length)};
}

TEST(url, text_is_escaped) {
    const struct {
        std::string text;
        bool crlf;
        std::string plain, ex;
    } rows[] = {
        {"Az b/9", false, "Az%20b%2F9", "Az%20b/9"},
        {"~!?@#$%&*()-_+=[]{};:',.", false,
         "%7E%21%3F%40%23%24%25%26%2A%28%29%2D%5F%2B%3D%5B%5D%7B%7D%3B%3A%27%2C%2E",
         "~!?@#$%&*()-_+=[]{};:',."},
        {"\r\n\n\r", true, "%0A%0A%0D", "%0A%0A%0D"},
        {"\xff\"<\0"s, false, "%FF%22%3C%00", "%FF%22%3C%00"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.plain);
        EXPECT_EQ(escaped(cgi_escape_url, row.text, row.crlf), row.plain);
        EXPECT_EQ(escaped(cgi_escape_url_ex, row.text, row.crlf), row.ex);
    }
}

TEST(url, text_is_unescaped_without_reading_past_its_end) {
    const struct {
        std::string text, form, plus_kept;
    } rows[] = {
        {"", "", ""},
        {"a+b%41%6a%6A%00x", "a bAjj\0x"s, "a+bAjj\0x"s},
        {"%G0", "\x70", "\x70"},  // 23 * 16, cut to a byte
        {"%", "\xd0", "\xd0"},    // two NULs: -48 * 16 - 48
        {"%4", "\x10", "\x10"},   // one NUL: 4 * 16 - 48
        {"%%41", "T1", "T1"},     // -11 * 16 + 4, cut to a byte
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(unescaped(cgi_unescape_url, row.text), row.form);
        EXPECT_EQ(unescaped(cgi_unescape_url2, row.text), row.plus_kept);
    }
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
    for (const char* text : {"a;b", "\"", "a,", "a%3Bb", "a%2522"}) {
        EXPECT_TRUE(is_malicious_chars(text) && !is_directory_traversal(text)) << text;
        EXPECT_TRUE(!is_sanitized(text) && is_restricted_filename(text)) << text;
    }
    for (const char* text : {"a/../b", "%2E%2E%2F", "x%252E%252E%252F"}) {
        EXPECT_TRUE(!is_malicious_chars(text) && is_directory_traversal(text)) << text;
        EXPECT_TRUE(!is_sanitized(text) && is_restricted_filename(text)) << text;
    }
    for (const std::string& text :
         {"."s, ".."s, ".profile"s, "a/b"s, "a\\b"s, "a\nb"s, "a\x7f"s, longest + "x"})
        EXPECT_TRUE(is_sanitized(text.c_str()) && is_restricted_filename(text.c_str())) << text;
    for (const std::string& text : {""s, "a b-c_1.gz"s, "a..b"s, "a%3bb"s, "\xC3\xA4"s, longest})
        EXPECT_TRUE(is_sanitized(text.c_str()) && !is_restricted_filename(text.c_str())) << text;
    EXPECT_TRUE(is_restricted_filename(nullptr));
    EXPECT_FALSE(is_malicious_chars(nullptr) || is_sanitized(nullptr));
}

}  // namespace

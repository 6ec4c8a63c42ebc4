// URL text and the checks on names and arguments that come with it.
#include "runtime/url.h"

#include <string>

#include "runtime/sanitise.h"

#include "input_support.h"

using namespace std::string_literals;

namespace {

using escaper = int(char*, std::int32_t, const char*, std::int32_t, bool);
using unescaper = int(char*, std::int32_t, const char*, std::int32_t);

// Escapes into a buffer that is one byte too large.
std::string escaped(escaper* escape, const std::string& text, bool crlf) {
    exact_copy in{text};
    std::string out(3 * text.size() + 1, '#');
    const int length = escape(out.data(), int(out.size()), in.data(), in.length(), crlf);
    EXPECT_EQ(out[std::size_t(length)], '\0');
    return out.substr(0, std::size_t(length));
}

std::string unescaped(unescaper* unescape, const std::string& text) {
    exact_copy in{text};
    const int length = unescape(in.data(), in.length(), in.data(), in.length());
    EXPECT_GE(length, 0);
    return {in.data(), std::size_t(length)};
}

TEST(url, text_is_escaped) {
    const struct {
        std::string text;
        bool crlf;
        std::string plain, ex;
    } rows[] = {
        {"", false, "", ""},
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
        EXPECT_EQ(unescaped(cgi_unescape_url2, escaped(cgi_escape_url, row.text, false)), row.text);
    }
}

TEST(url, text_is_unescaped_without_reading_past_its_end) {
    const struct {
        std::string text, form, plus_kept;
    } rows[] = {
        {"", "", ""},
        {"a+b%41%6a%6A", "a bAjj", "a+bAjj"},
        {"%00x", "\0x"s, "\0x"s},
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

// What a buffer of each size holds: "a b" is "a%20b" when escaped.
TEST(url, every_size_of_buffer_is_safe) {
    const struct {
        int size, result;
        std::string stored, stored_by_ex;
    } rows[] = {
        {0, -5, "", ""},
        {1, -5, "a", "\0"s},
        {4, -5, "a%20", "a%2\0"s},
        {5, 5, "a%20b", "a%20b"},
        {6, 5, "a%20b\0"s, "a%20b\0"s},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.size);
        exact_copy out{std::string(std::size_t(row.size), '#')};
        EXPECT_EQ(cgi_escape_url(out.data(), row.size, "a b", 3, false), row.result);
        EXPECT_EQ(std::string(out.data(), out.size), row.stored);
        EXPECT_EQ(cgi_escape_url_ex(out.data(), row.size, "a b", 3, false), row.result);
        EXPECT_EQ(std::string(out.data(), out.size), row.stored_by_ex);
    }
    for (int size = 0; size <= 4; ++size) {
        exact_copy out{std::string(std::size_t(size), '#')};
        EXPECT_EQ(cgi_unescape_url(out.data(), size, "a%20b", 5), size < 3 ? -3 : 3);
        EXPECT_EQ(std::string(out.data(), out.size), "a b\0"s.substr(0, std::size_t(size)));
    }
    char untouched = '#';
    EXPECT_EQ(cgi_escape_url(&untouched, 1, "a", -1, false), -1);
    EXPECT_EQ(cgi_unescape_url(&untouched, 1, "a", -1), -1);
    EXPECT_EQ(untouched, '#');
}

TEST(names, arguments_of_clients_are_checked) {
    const char* const malicious[] = {"a;b", "\"", "a,", "<", "a%3Bb", "%22", "a%2522", "%253E"};
    const char* const traversing[] = {"a/../b", "../", "%2E%2E%2F", "x%252E%252E%252F"};
    const char* const restricted[] = {".", "..", ".profile", "a/b", "a\\b", "a\nb", "a\x7f"};
    const char* const good[] = {"image.swi", "a b-c_1.tar.gz", "a..b", "a%3bb", "\xC3\xA4"};
    for (const char* text : malicious) {
        EXPECT_TRUE(is_malicious_chars(text) && !is_directory_traversal(text)) << text;
        EXPECT_TRUE(!is_sanitized(text) && is_restricted_filename(text)) << text;
    }
    for (const char* text : traversing) {
        EXPECT_TRUE(!is_malicious_chars(text) && is_directory_traversal(text)) << text;
        EXPECT_TRUE(!is_sanitized(text) && is_restricted_filename(text)) << text;
    }
    for (const char* text : restricted) {
        EXPECT_TRUE(is_sanitized(text) && is_restricted_filename(text)) << text;
    }
    for (const char* text : good) {
        EXPECT_TRUE(is_sanitized(text) && !is_restricted_filename(text)) << text;
    }
    EXPECT_FALSE(is_restricted_filename(""));
    EXPECT_FALSE(is_restricted_filename(std::string(255, 'x').c_str()));
    EXPECT_TRUE(is_restricted_filename(std::string(256, 'x').c_str()));
    EXPECT_TRUE(is_restricted_filename(nullptr));
    EXPECT_FALSE(is_malicious_chars(nullptr) || is_directory_traversal(nullptr) ||
                 is_sanitized(nullptr));
}

}  // namespace

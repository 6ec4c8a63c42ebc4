// Cookie headers: the value is what a plain reading cuts out, and nothing of the next cookie.
//
// An input: a line with the cookie's name, then the header.
#include "auth/cookie.h"

#include <optional>

#include "fuzz_server.h"

namespace {

using std::string_view;

std::optional<std::string> plain_value(const std::string& header, const std::string& name,
                                       bool unescape) {
    const std::size_t at = header.find(name + "=");
    if (at == std::string::npos) return {};
    const string_view rest = string_view{header}.substr(at + name.size() + 1);
    const string_view value = rest.substr(0, rest.find(';'));
    const std::string text = unescape ? plain_url_decode(value) : std::string(value);
    return until_nul(string_view{text}.substr(0, cookie_buffer_size - 1));
}

void check(const exact_text& header, const exact_text& name, bool unescape) {
    const char* const value = cp_get_cookie(header.data(), name.data(), unescape);
    const auto expected =
        plain_value(std::string(header.view()), std::string(name.view()), unescape);
    expect((value != nullptr) == expected.has_value(), "both readings find a cookie");
    if (value == nullptr) return;
    const auto& buffer = request_current().cookie_buffer;
    expect(value == buffer && *expected == value, "both readings find the same value");
    expect(buffer[cookie_buffer_size - 1] == '\0', "a value is terminated");
    expect(unescape || string_view{value}.find(';') == string_view::npos,
           "a value ends before the next cookie");
}

}  // namespace

void fuzz_one(string_view data) {
    const quiet_request request;
    fuzz_fields fields{data};
    const exact_text name(fields.field());
    const exact_text header(fields.rest);
    // What an earlier, longer value left must not show behind a shorter one.
    std::ranges::fill(request_current().cookie_buffer, 'x');
    check(header, name, true);
    check(header, name, false);
    expect(cp_get_cookie(nullptr, name.data(), true) == nullptr &&
               cp_get_cookie(header.data(), nullptr, true) == nullptr,
           "no header and no name have no value");
}

#include "auth/cookie.h"

#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>

#include "runtime/request.h"
#include "runtime/url.h"

namespace {

// What follows "name=", to the end of the header; null when it is nowhere.
const char* find_value(const char* header, const char* name) {
    const std::size_t length = std::strlen(name);
    for (const char* at = std::strstr(header, name); at != nullptr;
         at = *at != '\0' ? std::strstr(at + 1, name) : nullptr) {
        if (at[length] == '=') return at + length + 1;
    }
    return nullptr;
}

}  // namespace

const char* cp_get_cookie(const char* cookie_header, const char* name, bool unescape) {
    if (cookie_header == nullptr || name == nullptr) return nullptr;
    const char* const value = find_value(cookie_header, name);
    if (value == nullptr) return nullptr;

    // Cut first: an escape may not reach over the ";" into the next cookie.
    const std::string_view in{value, std::strcspn(value, ";")};
    auto& out = request_current().cookie_buffer;
    const std::size_t room = std::size(out) - 1;
    std::memset(out, 0, std::size(out));
    if (unescape) {
        cgi_unescape_url(out, static_cast<std::int32_t>(room), in.data(),
                         static_cast<std::int32_t>(in.size()));
    } else {
        in.copy(out, room);
    }
    out[room] = '\0';
    return out;
}

#include "auth/field.h"

#include <charconv>
#include <string_view>

namespace {

std::string_view view_of(const char* text) {
    return text != nullptr ? std::string_view{text} : std::string_view{};
}

}  // namespace

bool field_copy(std::span<char> out, const char* text) {
    const std::string_view in = view_of(text);
    const std::size_t stored = in.copy(out.data(), out.size() - 1);
    out[stored] = '\0';
    return stored == in.size();
}

std::int32_t field_int32(const char* text) {
    const std::string_view in = view_of(text);
    std::int32_t value = 0;
    std::from_chars(in.data(), in.data() + in.size(), value);
    return value;
}

std::uint64_t field_uint64(const char* text) {
    const std::string_view in = view_of(text);
    std::uint64_t value = 0;
    std::from_chars(in.data(), in.data() + in.size(), value);
    return value;
}

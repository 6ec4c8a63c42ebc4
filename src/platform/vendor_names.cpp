#include "platform/vendor_names.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <optional>
#include <span>

namespace {

using std::string_view;

struct packed_range {
    std::array<char, 6> first;
    std::array<char, 2> name_length;
    std::array<char, 4> name_offset;
};
static_assert(sizeof(packed_range) == 12 && alignof(packed_range) == 1);

constexpr string_view magic = "WMSVEND1";
constexpr std::size_t count_size = 4;
constexpr std::size_t head_size = magic.size() + count_size;
constexpr std::size_t address_digits = 12;
constexpr string_view hexadecimal = "0123456789ABCDEF";

std::optional<std::uint64_t> parse_address(string_view text) {
    std::uint64_t address = 0;
    std::size_t digits = 0;
    for (const char byte : text) {
        if (byte == ':' || byte == '-' || byte == '.') continue;
        const char upper = byte >= 'a' && byte <= 'f' ? static_cast<char>(byte - 'a' + 'A') : byte;
        const std::size_t digit = hexadecimal.find(upper);
        if (digit == hexadecimal.npos || ++digits > address_digits) return {};
        address = address << 4 | digit;
    }
    if (digits != address_digits) return {};
    return address;
}

std::uint64_t number_of(std::span<const char> bytes) {
    std::uint64_t number = 0;
    for (const char byte : bytes)
        number = number << 8 | static_cast<unsigned char>(byte);
    return number;
}

std::uint64_t first_address(const packed_range& range) {
    return number_of(range.first);
}

}  // namespace

string_view vendor_name_find(string_view table, const char* mac) {
    const auto address = parse_address(mac != nullptr ? mac : "");
    if (!address || !table.starts_with(magic) || table.size() < head_size) return {};
    const std::uint64_t count = number_of(table.substr(magic.size(), count_size));
    const string_view rest = table.substr(head_size);
    if (count > rest.size() / sizeof(packed_range)) return {};

    const std::span ranges(reinterpret_cast<const packed_range*>(rest.data()), count);
    const auto behind = std::ranges::upper_bound(ranges, *address, {}, first_address);
    if (behind == ranges.begin()) return {};
    const packed_range& range = *std::prev(behind);
    const string_view names = rest.substr(ranges.size_bytes());
    const std::uint64_t length = number_of(range.name_length);
    const std::uint64_t offset = number_of(range.name_offset);
    if (offset > names.size() || length > names.size() - offset) return {};
    return names.substr(offset, length);
}

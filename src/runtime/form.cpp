#include "runtime/form.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "runtime/url.h"

namespace {

// Decodes `length` bytes in place and terminates them. The byte behind them is a separator that is
// no longer needed, or the spare one behind the text, so there is always room for the NUL.
std::int32_t decode_in_place(char* text, std::size_t length) {
    const auto size = static_cast<std::int32_t>(length);
    const int decoded = cgi_unescape_url(text, size, text, size);
    text[decoded] = '\0';
    return decoded;
}

cgi_pair read_field(char* field, std::size_t length) {
    cgi_pair pair{};
    pair.name = field;
    std::size_t name_length = length;
    char* const equals = length > 0 ? static_cast<char*>(std::memchr(field, '=', length)) : nullptr;
    if (equals != nullptr) {
        name_length = static_cast<std::size_t>(equals - field);
        pair.value = equals + 1;
        pair.value_len = decode_in_place(pair.value, length - name_length - 1);
    }
    decode_in_place(field, name_length);
    return pair;
}

// Counted by searching: most fields are longer than the call that finds their end.
std::int64_t count_fields(std::string_view text) {
    std::int64_t fields = 1;
    for (std::size_t at = text.find('&'); at != std::string_view::npos; at = text.find('&', at + 1))
        ++fields;
    return fields;
}

}  // namespace

int cgi_entries_reserve(cgi_pair** entries, std::int32_t* capacity, std::int64_t need) {
    constexpr std::int64_t step = 16;
    static_assert(cgi_pairs_max % step == 0);
    if (need < 0 || need > cgi_pairs_max) return -1;
    if (need <= *capacity && *entries != nullptr) return 0;

    const std::int64_t rounded = std::max(step, (need + step - 1) / step * step);
    void* const grown =
        std::realloc(*entries, static_cast<std::size_t>(rounded) * sizeof(cgi_pair));
    if (grown == nullptr) return -1;
    *entries = static_cast<cgi_pair*>(grown);
    *capacity = static_cast<std::int32_t>(rounded);
    return 0;
}

void form_sort(cgi_pairs* pairs) {
    std::ranges::sort(pairs->entries, pairs->entries + pairs->count,
                      [](const cgi_pair& a, const cgi_pair& b) {
                          if (a.name == nullptr || b.name == nullptr) {
                              return a.name == nullptr && b.name != nullptr;
                          }
                          return std::strcmp(a.name, b.name) < 0;
                      });
}

int form_parse_urlencoded(cgi* input, char* text, std::size_t length) {
    cgi_pairs& pairs = input->pairs;
    char* const end = text + length;
    const std::int64_t fields = count_fields({text, length});
    if (cgi_entries_reserve(&pairs.entries, &pairs.capacity, pairs.count + fields) != 0) return -1;

    for (char* field = text;;) {
        const auto rest = static_cast<std::size_t>(end - field);
        char* const cut = rest > 0 ? static_cast<char*>(std::memchr(field, '&', rest)) : nullptr;
        char* const field_end = cut != nullptr ? cut : end;
        pairs.entries[pairs.count++] =
            read_field(field, static_cast<std::size_t>(field_end - field));
        if (cut == nullptr) break;
        field = cut + 1;
    }
    form_sort(&pairs);
    return 0;
}

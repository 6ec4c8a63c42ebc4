#include "monitor/search_terms.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "runtime/cgi.h"
#include "runtime/escape.h"
#include "runtime/fsb.h"

#include "auth/field.h"

namespace {

constexpr std::size_t criteria_size = 256;
constexpr std::int32_t default_page_size = 10;

struct location_part {
    unsigned shift;
    unsigned mask;
};

constexpr auto location_parts = std::to_array<location_part>({
    {.shift = 24, .mask = 0xFF},
    {.shift = 16, .mask = 0xFF},
    {.shift = 0, .mask = 0xFFFF},
});

}  // namespace

int search_literal(std::span<char, search_literal_size> out, const cgi* vars,
                   const char* variable) {
    const cgi_pair* const pair = cgi_named_pair(vars, variable);
    if (pair == nullptr || pair->value == nullptr || pair->value_len == 0) return 0;
    return wuic_escape_sql(out.data(), search_literal_size, pair->value, pair->value_len, true);
}

std::uint32_t search_location(const cgi* vars) {
    const char* const text = cgi_named_value(vars, "location");
    return text != nullptr ? static_cast<std::uint32_t>(std::strtoul(text, nullptr, 10)) : 0;
}

void search_location_terms(fsb* out, std::uint32_t location, const char* before,
                           const char* after) {
    for (const location_part& part : location_parts) {
        const std::uint32_t value = (location >> part.shift) & part.mask;
        if (value == 0) continue;
        // Kept: no query of ours has a table `p`, so the server refuses every location.
        fsb_fmt(out, "%s((p.location >> %u) & 0x%X) = %u%s", before, part.shift, part.mask, value,
                after);
    }
}

const char* search_criteria(const cgi* vars) {
    return cgi_named_value(vars, "sort-criteria");
}

void search_sort_terms(fsb* out, const char* criteria, std::span<const search_column> columns) {
    char list[criteria_size];
    field_copy(list, criteria);
    char* rest = nullptr;
    const char* separator = "";
    for (const char* word = strtok_r(list, ",", &rest); word != nullptr;
         word = strtok_r(nullptr, ",", &rest)) {
        const char* const direction = strtok_r(nullptr, ",", &rest);
        if (direction == nullptr) return;
        const auto found = std::ranges::find(columns, std::string_view{word}, &search_column::word);
        if (found == columns.end()) continue;
        const bool downward = std::strcmp(direction, "desc") == 0;
        fsb_fmt(out, "%s%s %s", separator, found->column, downward ? "DESC" : "ASC");
        separator = ",";
    }
}

search_page search_page_of(const cgi* vars) {
    const std::int32_t start = std::max(field_int32(cgi_named_value(vars, "start")), 0);
    const std::int32_t asked = field_int32(cgi_named_value(vars, "page-size"));
    const std::int32_t limit = asked > 0 ? asked : default_page_size;
    return {.offset = start / limit * limit, .limit = limit};
}

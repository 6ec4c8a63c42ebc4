#include "runtime/multipart.h"

#include <algorithm>

#include "runtime/form.h"
#include "runtime/sanitise.h"

namespace {

using namespace std::string_view_literals;

constexpr auto none = std::string_view::npos;
constexpr std::string_view line_end = "\r\n"sv;
constexpr std::string_view heading_end = "\r\n\r\n"sv;
constexpr std::string_view filename_mark = "\"; filename=\""sv;
constexpr std::string_view type_mark = "\"\r\nContent-Type: "sv;
constexpr std::size_t name_offset = "Content-Disposition: form-data; name=\""sv.size();

void prepare_fallbacks(boundary* delimiter) {
    delimiter->fallback[0] = delimiter->fallback[1] = 0;
    std::size_t matched = 0;
    for (std::size_t i = 1; i < delimiter->length; ++i) {
        const char c = delimiter->text[i];
        while (matched > 0 && c != delimiter->text[matched])
            matched = delimiter->fallback[matched];
        if (c == delimiter->text[matched]) ++matched;
        delimiter->fallback[i + 1] = static_cast<std::uint16_t>(matched);
    }
}

// Splits "NAME", or "NAME"; filename="FILE" with a type line or without, at fixed marks.
//   headers  everything before the empty line; longer than name_offset
void split_headers(std::string_view headers, part_heading* heading) {
    const std::size_t last = headers.size() - 1;
    heading->name.begin = name_offset;
    const std::size_t mark = headers.find(filename_mark, name_offset);
    if (mark == none) {
        const std::size_t end = headers.back() == ';' ? last - 1 : last;
        heading->name.end = std::max(name_offset, end);
        return;
    }
    heading->name.end = mark;
    heading->has_filename = true;
    const std::size_t begin = mark + filename_mark.size();
    const std::size_t type = headers.find(type_mark, begin);
    if (type == none) {
        heading->filename = {begin, std::max(begin, last)};
        return;
    }
    heading->filename = {begin, type};
    heading->has_content_type = true;
    heading->content_type = {type + type_mark.size(), headers.size()};
}

std::string_view cut(std::string_view text, part_range range) {
    return text.substr(range.begin, range.end - range.begin);
}

char* terminate(char* part, part_range range) {
    part[range.end] = '\0';
    return part + range.begin;
}

// The number of parts is not known beforehand, so the array doubles.
int reserve_one_more(cgi_pairs* pairs) {
    if (pairs->count < pairs->capacity) return 0;
    if (pairs->count >= cgi_pairs_max) return -1;
    const std::int64_t wanted = std::max(std::int64_t{pairs->count} * 2, std::int64_t{1});
    return cgi_entries_reserve(&pairs->entries, &pairs->capacity,
                               std::min(wanted, std::int64_t{cgi_pairs_max}));
}

// Adds one part; what has no readable heading is passed over.
//   part  `length` bytes; the byte behind them is the line end before the next delimiter
int add_part(cgi* input, char* part, std::size_t length) {
    const std::string_view text{part, length};
    part_heading heading;
    if (!part_read_heading(text, &heading)) return 0;
    if (heading.has_filename && part_is_refused_file(cut(text, heading.filename))) {
        return cgi_refused_file;
    }
    cgi_pairs& pairs = input->pairs;
    if (reserve_one_more(&pairs) != 0) return cgi_refused;
    cgi_pair pair{};
    pair.name = terminate(part, heading.name);
    pair.value = terminate(part, {heading.data, length});
    pair.value_len = static_cast<std::int32_t>(length - heading.data);
    if (heading.has_filename) pair.filename = terminate(part, heading.filename);
    if (heading.has_content_type) pair.content_type = terminate(part, heading.content_type);
    pairs.entries[pairs.count++] = pair;
    return 0;
}

}  // namespace

bool boundary_prepare(boundary* delimiter, const char* content_type) {
    constexpr std::string_view mark = "boundary="sv;
    constexpr std::string_view dashes = "--"sv;
    const std::string_view type{content_type != nullptr ? content_type : ""};
    const std::size_t at = type.find(mark);
    if (at == none) return false;
    const std::string_view text = type.substr(at + mark.size());
    if (text.empty() || text.size() > boundary_max - dashes.size()) return false;

    const auto rest = std::ranges::copy(dashes, delimiter->text.begin()).out;
    std::ranges::copy(text, rest);
    delimiter->length = dashes.size() + text.size();
    prepare_fallbacks(delimiter);
    return true;
}

// Knuth, Morris and Pratt: a body full of almost-delimiters costs no more than any other.
std::size_t boundary_find(const boundary& delimiter, std::string_view text) {
    std::size_t matched = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (matched == 0) {
            i = text.find(delimiter.text[0], i);
            if (i == none) return none;
        }
        while (matched > 0 && text[i] != delimiter.text[matched]) {
            matched = delimiter.fallback[matched];
        }
        if (text[i] == delimiter.text[matched]) ++matched;
        if (matched == delimiter.length) return i + 1 - matched;
    }
    return none;
}

bool part_read_heading(std::string_view part, part_heading* heading) {
    *heading = {};
    const std::size_t end = part.find(heading_end);
    if (end == none || end <= name_offset) return false;
    heading->data = end + heading_end.size();
    split_headers(part.substr(0, end), heading);
    return true;
}

bool part_is_refused_file(std::string_view filename) {
    std::size_t separator = filename.rfind('/');
    if (separator == none) separator = filename.rfind('\\');
    const std::string_view element = separator == none ? filename : filename.substr(separator + 1);
    constexpr std::size_t any_name_max = 255;
    if (element.size() > any_name_max || filename.find('\0') != none) return true;
    char name[any_name_max + 1];
    *std::ranges::copy(element, name).out = '\0';
    return is_restricted_filename(name);
}

int multipart_parse(cgi* input, char* body, std::size_t length) {
    boundary delimiter;
    if (!boundary_prepare(&delimiter, cgi_get_var(input, "CONTENT_TYPE"))) return cgi_refused;

    const std::string_view text{body, length};
    std::size_t at = boundary_find(delimiter, text);
    while (at != none) {
        const std::size_t begin = at + delimiter.length + line_end.size();
        if (!text.substr(at + delimiter.length).starts_with(line_end)) break;
        const std::size_t part_length = boundary_find(delimiter, text.substr(begin));
        if (part_length == none) break;
        at = begin + part_length;
        if (part_length < line_end.size()) continue;
        if (const int error = add_part(input, body + begin, part_length - line_end.size())) {
            return error;
        }
    }
    form_sort(&input->pairs);
    return 0;
}

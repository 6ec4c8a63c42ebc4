// A second, plain reading of multipart/form-data: whole copies, plain searches.
#pragma once

#include <optional>

#include "fuzz_server.h"

struct plain_part {
    std::string name;
    std::string data;
    std::optional<std::string> filename;
    std::optional<std::string> content_type;
    bool operator==(const plain_part&) const = default;
};

// What stands between two delimiters, and whether there is a second one.
struct plain_piece {
    std::string_view text;
    bool ended;
};

// The pieces behind each delimiter that ends its line. The line end before a delimiter belongs to
// it.
inline std::vector<plain_piece> plain_pieces(std::string_view body, const std::string& delimiter) {
    std::vector<plain_piece> pieces;
    std::size_t at = body.find(delimiter);
    while (at != std::string_view::npos) {
        body.remove_prefix(at + delimiter.size());
        if (!body.starts_with("\r\n")) break;
        body.remove_prefix(2);
        at = body.find(delimiter);
        const bool ended = at != std::string_view::npos;
        const std::string_view text = body.substr(0, at);
        pieces.push_back(
            {ended ? text.substr(0, text.size() - std::min<std::size_t>(2, text.size())) : text,
             ended});
    }
    return pieces;
}

inline std::string_view without_last(std::string_view text, std::size_t count) {
    return text.substr(0, text.size() - std::min(count, text.size()));
}

// The part that `piece` holds; none when it has no heading within its first `reach` bytes.
inline std::optional<plain_part> plain_read_part(std::string_view piece, std::size_t reach) {
    constexpr std::string_view first_line = "Content-Disposition: form-data; name=\"";
    constexpr std::string_view mark = "\"; filename=\"";
    constexpr std::string_view type_mark = "\"\r\nContent-Type: ";
    const std::size_t end = piece.substr(0, reach).find("\r\n\r\n");
    if (end == std::string_view::npos || end <= first_line.size()) return {};
    plain_part part{
        .name = {}, .data = std::string(piece.substr(end + 4)), .filename = {}, .content_type = {}};
    const std::string_view heading = piece.substr(first_line.size(), end - first_line.size());
    const std::size_t file = heading.find(mark);
    if (file == std::string_view::npos) {
        part.name = without_last(heading, heading.ends_with(';') ? 2 : 1);
        return part;
    }
    part.name = heading.substr(0, file);
    const std::string_view rest = heading.substr(file + mark.size());
    const std::size_t type = rest.find(type_mark);
    part.filename = type == std::string_view::npos ? without_last(rest, 1) : rest.substr(0, type);
    if (type != std::string_view::npos) part.content_type = rest.substr(type + type_mark.size());
    return part;
}

inline bool plain_is_refused_file(std::string_view filename) {
    const bool slashes = filename.find('/') != std::string_view::npos;
    const std::string_view element = plain_split(filename, slashes ? '/' : '\\').back();
    if (element.size() > 255 || filename.find('\0') != std::string_view::npos) return true;
    if (element.starts_with('.')) return true;
    const bool refused = std::ranges::any_of(element, [](char c) {
        return static_cast<unsigned char>(c) < 0x20 ||
               std::string_view{"\x7F\\;\",<>"}.find(c) != std::string_view::npos;
    });
    if (refused) return true;
    for (const std::string sign : {"3B", "22", "2C", "3C", "3E", "2E%2E%2F"}) {
        std::string twice = "%" + sign;
        for (std::size_t at = 0; (at = twice.find('%', at)) != std::string::npos; at += 3)
            twice.insert(at + 1, "25");
        if (element.find("%" + sign) != std::string_view::npos) return true;
        if (element.find(twice) != std::string_view::npos) return true;
    }
    return false;
}

// As it stands in a form, where names end at their first NUL.
inline plain_part plain_as_field(plain_part part) {
    part.name = until_nul(part.name);
    if (part.filename) part.filename = until_nul(*part.filename);
    if (part.content_type) part.content_type = until_nul(*part.content_type);
    return part;
}

// The fields of a parsed form in the order in which they came. Each lies in `body`, and they are
// sorted by name.
inline std::vector<plain_part> parsed_parts(const cgi* input, std::string_view body) {
    const auto inside = [body](const char* text) {
        return text >= body.data() && text <= body.data() + body.size();
    };
    const auto text_of = [&](const char* text) -> std::optional<std::string> {
        if (text == nullptr) return {};
        expect(inside(text) && inside(text + std::string_view{text}.size()),
               "a field lies in the body");
        return text;
    };
    std::vector<cgi_pair> pairs(input->pairs.entries, input->pairs.entries + input->pairs.count);
    for (std::size_t i = 1; i < pairs.size(); ++i)
        expect(std::string_view{pairs[i - 1].name} <= pairs[i].name, "fields are sorted by name");
    std::ranges::sort(pairs, {}, &cgi_pair::name);
    std::vector<plain_part> parts;
    for (const cgi_pair& pair : pairs) {
        expect(pair.value_len >= 0 && inside(pair.value) && inside(pair.value + pair.value_len) &&
                   pair.value[pair.value_len] == '\0',
               "a part's data lies in the body and is terminated");
        parts.push_back({.name = *text_of(pair.name),
                         .data = {pair.value, static_cast<std::size_t>(pair.value_len)},
                         .filename = text_of(pair.filename),
                         .content_type = text_of(pair.content_type)});
    }
    return parts;
}

#include "backend/command_text.h"

#include <cstring>
#include <string_view>

#include "runtime/url.h"

namespace {

using std::string_view;

struct reference {
    string_view name;
    string_view becomes;
};

constexpr string_view ampersand = "&amp;";

// "&pound;" is the number sign on purpose: the keyboard's pound key.
constexpr auto references = std::to_array<reference>({
    {.name = "&plus;", .becomes = "+"},
    {.name = "&quot;", .becomes = "\\\""},
    {.name = "&gt;", .becomes = ">"},
    {.name = "&lt;", .becomes = "<"},
    {.name = ampersand, .becomes = "&"},
    {.name = "&apos;", .becomes = "'"},
    {.name = "&pct;", .becomes = "%"},
    {.name = "&pound;", .becomes = "#"},
});

// The reference that `text` begins with, or null.
const reference* reference_at(string_view text) {
    for (const reference& row : references) {
        if (text.starts_with(row.name)) return &row;
    }
    return nullptr;
}

}  // namespace

// Why one pass is enough. Two references never overlap (each has its only "&" in front and its only
// ";" at its end), so the order in which they are replaced does not change the outcome. What a
// replacement leaves is no letter and no ";", so it cannot complete a reference; only a decoded "&"
// can begin one, and then the rest of it stands untouched to its right. So a decoded "&" is put in
// front of that rest and looked at again; everything else is final.
void command_unencode(char* text, std::int32_t size) {
    if (size <= 0) return;
    const std::size_t length = strnlen(text, static_cast<std::size_t>(size));
    std::size_t in = 0;
    std::size_t out = 0;
    while (in < length) {
        const string_view rest(text + in, length - in);
        const reference* const found = rest.front() == '&' ? reference_at(rest) : nullptr;
        if (found == nullptr) {
            text[out++] = text[in++];
        } else if (found->name == ampersand) {
            in += ampersand.size() - 1;
            text[in] = '&';
        } else {
            std::memcpy(text + out, found->becomes.data(), found->becomes.size());
            out += found->becomes.size();
            in += found->name.size();
        }
    }
    if (out < length) text[out] = '\0';
}

void command_unencode(char* text) {
    command_unencode(text, static_cast<std::int32_t>(std::strlen(text)));
}

void command_url_decode(char* text) {
    const auto length = static_cast<std::int32_t>(std::strlen(text));
    const int decoded = cgi_unescape_url(text, length, text, length);
    if (decoded >= 0 && decoded < length) text[decoded] = '\0';
}

void command_cut_context(char* text) {
    const std::size_t at = string_view(text).rfind("@@");
    if (at != string_view::npos) text[at] = '\0';
}

void command_cut_line(char* text) {
    text[std::strcspn(text, "\r\n")] = '\0';
}

bool command_split(char* text, const char* separators, command_pieces* pieces) {
    char* rest = nullptr;
    pieces->count = 0;
    for (char* piece = strtok_r(text, separators, &rest); piece != nullptr;
         piece = strtok_r(nullptr, separators, &rest)) {
        if (pieces->count == pieces->items.size()) return false;
        pieces->items[pieces->count++] = piece;
    }
    return true;
}

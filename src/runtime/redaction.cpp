#include "runtime/redaction.h"

#include <algorithm>
#include <charconv>
#include <initializer_list>

#include "runtime/text.h"

namespace {

using std::string_view;

constexpr std::size_t name_max = 32;
constexpr std::size_t identifier_shown = 8;
constexpr string_view left_out = "...";
constexpr string_view token_start = "UIDQORIN=";

// Room for what stands for the rest is kept back.
struct redaction {
    redacted out;
    std::size_t used = 0;
    bool full = false;

    static constexpr std::size_t room = redacted_size - 1 - left_out.size();
};

bool fits(const redaction& to, std::size_t size) {
    return !to.full && size <= redaction::room - to.used;
}

void append(redaction* to, string_view text) {
    to->used += text.copy(to->out.text + to->used, text.size());
}

// Appends all of the pieces, or none and nothing from then on.
void append_whole(redaction* to, std::initializer_list<string_view> pieces) {
    std::size_t size = 0;
    for (const string_view piece : pieces)
        size += piece.size();
    if (!fits(*to, size)) {
        to->full = true;
        return;
    }
    for (const string_view piece : pieces)
        append(to, piece);
}

void append_cut(redaction* to, string_view text) {
    if (to->full) return;
    const string_view kept = text.substr(0, redaction::room - to->used);
    append(to, kept);
    to->full = kept.size() < text.size();
}

redacted finish(redaction* to) {
    if (to->full) append(to, left_out);
    to->out.text[to->used] = '\0';
    return to->out;
}

bool is_name_byte(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '.' || c == '-';
}

bool is_name(string_view text) {
    return !text.empty() && text.size() <= name_max && std::ranges::all_of(text, is_name_byte);
}

void append_field(redaction* to, string_view separator, string_view name, std::size_t length) {
    char digits[20];
    const auto* const end = std::to_chars(digits, digits + sizeof digits, length).ptr;
    append_whole(to, {separator, name, name.empty() ? "[" : "=[", {digits, end}, "]"});
}

void append_fields(redaction* to, string_view text) {
    for (string_view separator; !to->full; separator = "&") {
        const string_view field = text.substr(0, text.find('&'));
        const std::size_t equals = std::min(field.find('='), field.size());
        const string_view name = field.substr(0, equals);
        const bool named = equals < field.size() && is_name(name);
        append_field(to, separator, named ? name : "",
                     named ? field.size() - equals - 1 : field.size());
        if (field.size() == text.size()) return;
        text.remove_prefix(field.size() + 1);
    }
}

}  // namespace

redacted redact_fields(const char* text) {
    if (text != nullptr) return redact_fields(string_view{text});
    redaction to;
    append(&to, text_or_null(text));
    return finish(&to);
}

redacted redact_fields(string_view text) {
    redaction to;
    append_fields(&to, text);
    return finish(&to);
}

redacted redact_field(const char* name, const char* value) {
    const string_view shown = name != nullptr ? name : "";
    const string_view hidden = value != nullptr ? value : "";
    redaction to;
    append_field(&to, "", is_name(shown) ? shown : "", hidden.size());
    return finish(&to);
}

redacted redact_uri(const char* uri) {
    return redact_uri(string_view{text_or_null(uri)});
}

redacted redact_uri(string_view uri) {
    const std::size_t end = std::min({uri.find_first_of("?&"), uri.find(token_start), uri.size()});
    redaction to;
    append_cut(&to, uri.substr(0, end));
    string_view fields = uri.substr(end);
    if (fields.empty()) return finish(&to);
    if (!fields.starts_with(token_start)) {
        append_whole(&to, {fields.substr(0, 1)});
        fields.remove_prefix(1);
    }
    append_fields(&to, fields);
    return finish(&to);
}

redacted redact_identifier(string_view identifier) {
    redaction to;
    append_whole(&to, {identifier.substr(0, identifier_shown), left_out});
    return finish(&to);
}

redacted redact_within(string_view message, string_view identifier) {
    redaction to;
    while (!to.full) {
        const std::size_t at = identifier.empty() ? message.npos : message.find(identifier);
        append_cut(&to, message.substr(0, at));
        if (at == message.npos) break;
        append_whole(&to, {identifier.substr(0, identifier_shown), left_out});
        message.remove_prefix(at + identifier.size());
    }
    return finish(&to);
}

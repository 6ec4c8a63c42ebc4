// How PostgreSQL takes a statement apart (its manual, section "Lexical Structure"): enough of it to
// tell whether a value stayed inside its literal.
#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct sql_token {
    enum kind { word, number, symbol, literal } is;
    std::string text;  // of a literal: what the server reads, escapes taken out
};

namespace sql_rules {

inline bool is_space(char c) {
    return std::string_view{" \t\n\r\f\v"}.find(c) != std::string_view::npos;
}

inline bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

inline bool starts_word(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
           static_cast<unsigned char>(c) >= 0x80;
}

inline std::size_t word_length(std::string_view text) {
    std::size_t at = 1;
    while (at < text.size() && (starts_word(text[at]) || is_digit(text[at]) || text[at] == '$'))
        ++at;
    return at;
}

// Whether a backslash in front of this byte stands for something else than the byte.
inline bool is_special_escape(char c) {
    return std::string_view{"bfnrtuUx01234567"}.find(c) != std::string_view::npos;
}

// The literal that the text begins with, which is taken off. None when it does not end, or holds an
// escape that our escaper never writes.
inline std::optional<std::string> take_literal(std::string_view* text, bool reads_backslashes) {
    std::string value;
    for (std::size_t at = 1; at < text->size(); ++at) {
        const char byte = (*text)[at];
        const char next = at + 1 < text->size() ? (*text)[at + 1] : '\0';
        if (byte == '\'' && next != '\'') {
            text->remove_prefix(at + 1);
            return value;
        }
        if (byte == '\\' && reads_backslashes && is_special_escape(next)) return {};
        if (byte == '\'' || (byte == '\\' && reads_backslashes)) ++at;
        if (at >= text->size()) return {};
        value += (*text)[at];
    }
    return {};
}

// Comments, dollar quotes, quoted names and prefixed literals stand in no statement of ours.
inline bool is_foreign(std::string_view text) {
    return text.starts_with("--") || text.starts_with("/*") || text[0] == '"' || text[0] == '$' ||
           text[0] == '\\' || text[0] == '\0';
}

}  // namespace sql_rules

// The tokens of a statement; none when it has something that no statement of ours has.
inline std::optional<std::vector<sql_token>> sql_tokens_of(std::string_view text,
                                                           bool reads_backslashes) {
    using namespace sql_rules;
    std::vector<sql_token> tokens;
    while (!text.empty()) {
        if (is_space(text[0])) {
            text.remove_prefix(1);
            continue;
        }
        if (is_foreign(text)) return {};
        if (text[0] == '\'') {
            auto value = take_literal(&text, reads_backslashes);
            // Two literals in a row can be one to the server.
            if (!value || (!tokens.empty() && tokens.back().is == sql_token::literal)) return {};
            tokens.push_back({sql_token::literal, std::move(*value)});
            continue;
        }
        std::size_t length = 1;
        sql_token::kind is = sql_token::symbol;
        if (starts_word(text[0]) || is_digit(text[0])) {
            is = is_digit(text[0]) ? sql_token::number : sql_token::word;
            length = word_length(text);
            if (length < text.size() && text[length] == '\'') return {};
        }
        tokens.push_back({is, std::string(text.substr(0, length))});
        text.remove_prefix(length);
    }
    return tokens;
}

// Both statements say the same but for the text of their literals.
inline bool same_but_for_literals(const std::vector<sql_token>& a,
                                  const std::vector<sql_token>& b) {
    return std::ranges::equal(a, b, [](const sql_token& one, const sql_token& other) {
        return one.is == other.is && (one.is == sql_token::literal || one.text == other.text);
    });
}

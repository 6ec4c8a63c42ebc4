// The tokenizer's rules, read a second time: plain and slow, to compare with.
#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "backend/sgml_tokenizer.h"

namespace plain {

using std::string;
using std::string_view;

// What one call reports. The views are into the text that was read.
struct event {
    int result = sgml_end;
    std::size_t start = 0;
    std::size_t size = 0;
    string_view name = {};
    bool self_closing = false;
    bool closing = false;
    std::vector<std::pair<string_view, std::optional<string_view>>> attributes = {};
    string report = {};  // of the error
    std::size_t depth = 0;
    std::vector<string_view> path = {};  // the open elements that are remembered
    bool operator==(const event&) const = default;
};

// What a tokenizer reports after a call with this result; `report` is the text of its error.
inline event event_of(const sgml_tokenizer& t, int result, const string& report) {
    const auto view = [](const char* text, std::int32_t length) {
        return string_view(text, std::size_t(length));
    };
    event e{.result = result, .depth = std::size_t(t.depth)};
    for (std::size_t i = 0; i < e.depth && i < t.stack.size(); ++i)
        e.path.push_back(view(t.stack[i].name, t.stack[i].name_length));
    if (result == sgml_error) e.report = report;
    if (result <= 0) return e;
    e.start = std::size_t(t.token.start);
    e.size = std::size_t(t.token.size);
    if (t.token.name != nullptr) e.name = view(t.token.name, t.token.name_length);
    e.self_closing = t.token.self_closing != 0;
    e.closing = t.token.closing != 0;
    for (int i = 0; i < t.token.attribute_count; ++i) {
        const auto& [name, value, name_length, value_length] = t.token.attributes[std::size_t(i)];
        auto& added = e.attributes.emplace_back(view(name, name_length), std::nullopt);
        if (value != nullptr) added.second = view(value, value_length);
    }
    return e;
}

inline bool blank(char c) {
    return string_view(" \t\r\n").find(c) != string_view::npos;
}

inline bool begins_with_letter(string_view name) {
    const char c = name.empty() ? '\0' : name[0];
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

inline bool same_in_any_case(string_view a, string_view b) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c + ('a' - 'A')) : c; };
    return std::ranges::equal(a, b, {}, lower, lower);
}

struct quotes {
    char run = 0;
    bool escaped = false;
    bool outside() const { return run == 0 && !escaped; }
    void pass(char c) {
        const bool quote = !escaped && (c == run || (run == 0 && (c == '\'' || c == '"')));
        escaped = !escaped && c == '\\';
        if (quote) run = run == 0 ? c : '\0';
    }
};

// `text` is read as sgml_tokenizer_next does, or, with `keeps_cdata`, as sgml_tokenizer_next_cdata.
struct rules {
    string text;
    bool keeps_cdata;
    std::size_t at = 0;
    event last = {};
    std::vector<event> open = {};

    string_view part(std::size_t from, std::size_t size) const {
        return string_view(text).substr(from, size);
    }

    bool has(string_view what, std::size_t i) const { return part(i, what.size()) == what; }

    bool section_at(std::size_t i) const { return same_in_any_case(part(i, 9), "<![CDATA["); }

    std::size_t search(string_view what, std::size_t from, bool quote_aware) const {
        quotes state;
        for (std::size_t i = from; i < text.size(); ++i) {
            if ((!quote_aware || state.outside()) && has(what, i)) return i;
            state.pass(text[i]);
        }
        return string::npos;
    }

    event error(std::size_t where, const char* message) const {
        const auto line = std::ranges::count(text.substr(0, where), '\n') + 1;
        const std::size_t from = where > 0 ? text.rfind('\n', where - 1) + 1 : 0;
        string dots;
        for (std::size_t i = from; i < where; ++i)
            dots.append(text[i] == '\t' ? 8 - dots.size() % 8 : 1, '.');
        const std::size_t end = text.find_first_of("\r\n", where);
        return {.result = sgml_error,
                .report = std::to_string(line) + ", " + std::to_string(where - from + 1) + ": " +
                          message + "\n" + text.substr(from, end - from) + "\n" + dots + "^\n"};
    }

    event text_until(std::size_t from, std::size_t end, std::size_t next) {
        at = next;
        return {.result = sgml_text, .start = from, .size = end > from ? end - from : 0};
    }

    static void add(event* tag, string_view name, std::optional<string_view> value) {
        if (tag->attributes.size() == 30) return;
        for (auto& known : tag->attributes) {
            if (!value || !same_in_any_case(known.first, name)) continue;
            known.second = value;
            return;
        }
        tag->attributes.emplace_back(name, value);
    }

    // Skips blanks. Returns "=", the word there, "" at the end, or null for an unfinished word.
    std::optional<string_view> lexeme(std::size_t* i, std::size_t end) const {
        while (*i < end && blank(text[*i]))
            ++*i;
        if (*i < end && text[*i] == '=') return "=";
        quotes state;
        std::size_t to = *i;
        for (; to < end && !(state.outside() && (blank(text[to]) || text[to] == '=')); ++to)
            state.pass(text[to]);
        if (!state.outside()) return {};
        return part(*i, to - *i);
    }

    enum body_state { wants_tag, wants_attribute, after_name, wants_value };

    static bool misplaced(string_view word, body_state state) {
        return word.empty() || (word == "=" && state != after_name);
    }

    // Returns the error, if any.
    std::optional<event> body(event* tag, std::size_t i, std::size_t end) const {
        body_state state = wants_tag;
        string_view pending;
        for (;;) {
            const auto word = lexeme(&i, end);
            if (!word) return error(i, "unterminated string");
            if (state == after_name && word != "=") add(tag, pending, {});
            if (word == "" && (state == after_name || state == wants_attribute)) return {};
            if (misplaced(*word, state)) return error(i, "mismatched bracket");
            if (state == wants_tag) tag->name = *word;
            if (state == wants_attribute) pending = *word;
            if (state == wants_value) add(tag, pending, word);
            const bool complete = state == wants_tag || state == wants_value;
            state = word == "=" ? wants_value : complete ? wants_attribute : after_name;
            i += word->size();
        }
    }

    event tag() {
        static constexpr std::pair<string_view, string_view> kinds[] = {
            {"<?", "?>"}, {"<!--", "-->"}, {"<![CDATA[", "]]>"},
            {"<!", ">"},  {"</", ">"},     {"<", ">"}};
        const auto kind = std::ranges::find_if(kinds, [&](const auto& pair) {
            return has(pair.first, at) && at + pair.first.size() < text.size();
        });
        if (kind == std::end(kinds)) return error(at, "mismatched bracket");
        const auto& [opener, closer] = *kind;
        const bool plain = opener == "<!--" || opener == "<![CDATA[";
        const std::size_t end = search(closer, at + opener.size(), !plain);
        if (end == string::npos) return error(at, "mismatched bracket");
        event e{.result = sgml_tag, .start = at, .size = end + closer.size() - at};
        if (plain) e.name = opener.substr(1);
        e.self_closing = (opener == "<" || opener == "</") && text[end - 1] == '/';
        if (!plain) {
            const auto failed = body(&e, at + 1, end - (e.self_closing ? 1 : 0));
            if (failed) return *failed;
        }
        at += e.size;
        if (opener != "</") return e;
        e.closing = true;
        e.name.remove_prefix(1);
        const bool wrong = open.empty() || (open.size() < 20 && open.back().name != e.name);
        return wrong ? error(e.start, "mismatched tag") : e;
    }

    event text_with_cdata() {
        std::size_t i = at;
        while (i < text.size() && (text[i] != '<' || section_at(i))) {
            const std::size_t end = section_at(i) ? text.find("]]>", i) : i;
            i = end == string::npos ? text.size() : end + (section_at(i) ? 3 : 1);
        }
        return i > at ? text_until(at, i, i) : tag();
    }

    // Goes on by one call, `last` being what the one before reported.
    event next_event() {
        const bool counts = last.result == sgml_tag && !last.self_closing;
        if (counts && last.closing) open.pop_back();
        if (counts && !last.closing && begins_with_letter(last.name)) open.push_back(last);
        if (at >= text.size() && open.empty()) return {};
        if (at >= text.size()) {
            return error(open[std::min(open.size(), std::size_t(20)) - 1].start, "mismatched tag");
        }
        if (keeps_cdata) return text_with_cdata();
        if (has("<![CDATA[", at) && at + 9 < text.size()) {
            const std::size_t closer = text.find("]]><", at + 9);
            if (closer != string::npos) return text_until(at + 9, closer, closer + 3);
            return text_until(at + 9, text.size() - 3, text.size());
        }
        if (text[at] == '<') return tag();
        const std::size_t end = std::min(text.find('<', at), text.size());
        return text_until(at, end, end);
    }

    const event& next() {
        if (last.result == sgml_error) return last;
        last = next_event();
        last.depth = open.size();
        last.path.clear();
        for (std::size_t i = 0; i < open.size() && i < 20; ++i)
            last.path.push_back(open[i].name);
        return last;
    }

    std::vector<event> read() {
        std::vector<event> events;
        do {
            events.push_back(next());
        } while (last.result > 0);
        return events;
    }
};

}  // namespace plain

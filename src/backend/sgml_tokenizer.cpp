#include "backend/sgml_tokenizer.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "runtime/bounded_writer.h"
#include "runtime/quote_scan.h"

namespace {

using std::string_view;

constexpr string_view cdata_opener = "<![CDATA[";
constexpr string_view cdata_closer = "]]>";
constexpr std::int32_t tab_width = 8;

// ---- character classes, ASCII only

enum char_class : std::uint8_t {
    letter = 1,     // may begin the name of an element that is pushed
    blank = 2,      // separates words within a tag
    name_byte = 4,  // within a tag, stands for nothing but itself
};

constexpr std::array<std::uint8_t, 256> classes = [] {
    std::array<std::uint8_t, 256> table{};
    table.fill(name_byte);
    for (unsigned c = 'a'; c <= 'z'; ++c) {
        table[c] |= letter;
        table[c - 'a' + 'A'] |= letter;
    }
    for (const char c : {' ', '\t', '\r', '\n'})
        table[static_cast<unsigned char>(c)] = blank;
    for (const char c : {'=', '>', '\'', '"', '\\'})
        table[static_cast<unsigned char>(c)] = 0;
    return table;
}();

bool is(char_class wanted, char c) {
    return (classes[static_cast<unsigned char>(c)] & wanted) != 0;
}

// ---- views

string_view whole_text(const sgml_tokenizer* t) {
    return {t->text, static_cast<std::size_t>(t->length)};
}

string_view name_of(const sgml_token& token) {
    return {token.name, static_cast<std::size_t>(token.name_length)};
}

std::int32_t offset(std::size_t at) {
    return static_cast<std::int32_t>(at);
}

// Element names are short: a loop is done before a library call has begun.
bool same_name(const sgml_token& a, const sgml_token& b) {
    if (a.name_length != b.name_length) return false;
    for (std::int32_t i = 0; i < a.name_length; ++i) {
        if (a.name[i] != b.name[i]) return false;
    }
    return true;
}

// ---- the stack

// Of the attributes only those that mean something: a token is large, and most have none.
void copy_token(sgml_token* to, const sgml_token& from) {
    to->start = from.start;
    to->size = from.size;
    to->name = from.name;
    to->name_length = from.name_length;
    to->self_closing = from.self_closing;
    to->closing = from.closing;
    to->attribute_count = from.attribute_count;
    std::copy_n(from.attributes.begin(), from.attribute_count, to->attributes.begin());
}

// What the last token did to the stack takes effect when the next one is asked for.
inline void settle_stack(sgml_tokenizer* t) {
    const sgml_token& last = t->token;
    if (last.name == nullptr || last.self_closing != 0) return;
    if (last.closing != 0) {
        if (t->depth > 0) --t->depth;
    } else if (last.name_length > 0 && is(letter, last.name[0])) {
        if (t->depth < sgml_stack_max) copy_token(&t->stack[std::size_t(t->depth)], last);
        ++t->depth;
    }
}

void clear_token(sgml_token* token) {
    token->start = 0;
    token->size = 0;
    token->name = nullptr;
    token->name_length = 0;
    token->self_closing = 0;
    token->closing = 0;
    token->attribute_count = 0;
}

// ---- results other than tags

int fail(sgml_tokenizer* t, std::int32_t at, std::int32_t code) {
    sgml_tokenizer_set_error(t, at, code);
    t->kind = sgml_error;
    return sgml_error;
}

int finish(sgml_tokenizer* t) {
    if (t->depth > 0) {
        const int innermost = std::min(t->depth, sgml_stack_max) - 1;
        return fail(t, t->stack[std::size_t(innermost)].start, sgml_mismatched_tag);
    }
    t->kind = sgml_end;
    return sgml_end;
}

int text_token(sgml_tokenizer* t, std::size_t from, std::size_t to, std::size_t next) {
    t->token.start = offset(from);
    t->token.size = offset(to - from);
    t->position = offset(next);
    t->kind = sgml_text;
    return sgml_text;
}

// A section ends at the first "]]>" that a "<" follows; without one it takes the rest, of which
// the last three bytes are held to be its end.
int cdata_token(sgml_tokenizer* t) {
    const string_view text = whole_text(t);
    const std::size_t from = std::size_t(t->position) + cdata_opener.size();
    const std::size_t closer = text.find("]]><", from);
    if (closer != string_view::npos) {
        return text_token(t, from, closer, closer + cdata_closer.size());
    }
    return text_token(t, from, std::max(from, text.size() - cdata_closer.size()), text.size());
}

// ---- attributes

enum class lexeme : std::uint8_t { end, word, equals, unterminated };

// The text between a tag's brackets, and how far it was read.
struct tag_body {
    std::int32_t end;  // offset behind its last byte
    std::int32_t at;   // of the current lexeme
};

// Steps to the next lexeme; a word's length is left in the tokenizer.
lexeme next_lexeme(sgml_tokenizer* t, tag_body* body) {
    while (body->at < body->end && is(blank, t->text[body->at]))
        ++body->at;
    t->word_length = 0;
    if (body->at >= body->end) return lexeme::end;
    if (t->text[body->at] == '=') return lexeme::equals;
    quote_scan quotes;
    std::int32_t at = body->at;
    for (; at < body->end; ++at) {
        const char c = t->text[at];
        if (is(name_byte, c) && !quotes.escaped) continue;
        if (quotes.is_plain() && (is(blank, c) || c == '=')) break;
        quotes.step(c);
    }
    t->word_length = at - body->at;
    return quotes.is_plain() ? lexeme::word : lexeme::unterminated;
}

bool same_in_any_case(const sgml_attr& a, const sgml_attr& b) {
    return st_strcmpi(a.name, a.name_length, b.name, b.name_length) == 0;
}

void add_attribute(sgml_token* token, const sgml_attr& added) {
    if (token->attribute_count >= sgml_attributes_max) return;
    sgml_attr* const end = token->attributes.data() + token->attribute_count;
    if (added.value_length > 0) {
        sgml_attr* const same = std::find_if(token->attributes.data(), end, [&](const auto& known) {
            return same_in_any_case(known, added);
        });
        if (same != end) {
            same->value = added.value;
            same->value_length = added.value_length;
            return;
        }
    }
    *end = added;
    ++token->attribute_count;
}

enum class tag_state : std::uint8_t { name, attribute, after_name, value };

// Takes one lexeme into the token. Returns false where it may not stand.
bool take_lexeme(sgml_tokenizer* t, lexeme kind, const char* word, tag_state* state,
                 sgml_attr* pending) {
    const bool is_word = kind == lexeme::word;
    if (*state == tag_state::name && is_word) {
        t->token.name = word;
        t->token.name_length = t->word_length;
        *state = tag_state::attribute;
        return true;
    }
    if (*state == tag_state::attribute && is_word) {
        *pending = {
            .name = word, .value = nullptr, .name_length = t->word_length, .value_length = 0};
        *state = tag_state::after_name;
        return true;
    }
    if (*state == tag_state::value && is_word) {
        pending->value = word;
        pending->value_length = t->word_length;
        add_attribute(&t->token, *pending);
        *state = tag_state::attribute;
        return true;
    }
    if (*state == tag_state::after_name) {
        // Kept: a second word adds the pending name once more, and is itself passed over.
        if (kind == lexeme::equals) {
            *state = tag_state::value;
        } else {
            add_attribute(&t->token, *pending);
        }
        return true;
    }
    return *state == tag_state::attribute && kind == lexeme::end;
}

// Reads name and attributes. Returns 0, or sgml_error with the error recorded.
int read_tag_body(sgml_tokenizer* t, tag_body body) {
    tag_state state = tag_state::name;
    sgml_attr pending{};
    for (;;) {
        const lexeme kind = next_lexeme(t, &body);
        if (kind == lexeme::unterminated) return fail(t, body.at, sgml_unterminated_string);
        if (!take_lexeme(t, kind, t->text + body.at, &state, &pending)) {
            return fail(t, body.at, sgml_mismatched_bracket);
        }
        if (kind == lexeme::end) return 0;
        body.at += kind == lexeme::equals ? 1 : t->word_length;
    }
}

// ---- tags

struct bracket {
    string_view opener;
    string_view closer;
    bool is_comment = false;  // quotes mean nothing, and there are no attributes
    bool is_element = false;  // a "/" before the closer counts
};

constexpr auto brackets = std::to_array<bracket>({
    {.opener = "<?", .closer = "?>"},
    {.opener = "<!--", .closer = "-->", .is_comment = true},
    {.opener = "<!", .closer = ">"},
    {.opener = "</", .closer = ">", .is_element = true},
    {.opener = "<", .closer = ">", .is_element = true},
});

const bracket* bracket_at(string_view rest) {
    const auto found = std::ranges::find_if(brackets, [&](const bracket& row) {
        return rest.size() > row.opener.size() && rest.starts_with(row.opener);
    });
    return found == brackets.end() ? nullptr : &*found;
}

// A close tag has to match the innermost open element, as far as that is remembered.
int check_close_tag(sgml_tokenizer* t) {
    const bool matches = t->depth >= sgml_stack_max ||
                         (t->depth > 0 && same_name(t->stack[std::size_t(t->depth) - 1], t->token));
    return matches ? sgml_tag : fail(t, t->token.start, sgml_mismatched_tag);
}

int close_tag(sgml_tokenizer* t) {
    ++t->token.name;  // the slash
    --t->token.name_length;
    t->token.closing = 1;
    return check_close_tag(t);
}

// Any tag, at the "<" at the position.
int read_tag(sgml_tokenizer* t) {
    const std::int32_t start = t->position;
    const string_view rest = whole_text(t).substr(std::size_t(start));
    const bracket* const kind = bracket_at(rest);
    if (kind == nullptr) return fail(t, start, sgml_mismatched_bracket);

    const string_view inside = rest.substr(kind->opener.size());
    const std::int32_t length =
        st_strsearch(inside.data(), offset(inside.size()), kind->closer.data(),
                     offset(kind->closer.size()), !kind->is_comment);
    if (length < 0) return fail(t, start, sgml_mismatched_bracket);
    const std::int32_t closer = start + offset(kind->opener.size()) + length;
    t->token.start = start;
    t->token.size = closer + offset(kind->closer.size()) - start;

    if (kind->is_comment) {
        t->token.name = t->text + start + 1;
        t->token.name_length = offset(kind->opener.size()) - 1;
    } else {
        t->token.self_closing = kind->is_element && t->text[closer - 1] == '/' ? 1 : 0;
        if (read_tag_body(t, {.end = closer - t->token.self_closing, .at = start + 1}) < 0) {
            return sgml_error;
        }
    }
    t->position = start + t->token.size;
    return kind->opener == "</" ? close_tag(t) : sgml_tag;
}

// The tags that replies are made of, <name> and </name>, in one pass. Returns 0, with nothing
// changed, for any other.
int read_plain_tag(sgml_tokenizer* t) {
    const char* const open = t->text + t->position;
    const char* const end = t->text + t->length;
    const bool closing = end - open > 1 && open[1] == '/';
    const char* const name = open + 1 + int{closing};
    const char* at = name;
    while (at < end && is(name_byte, *at))
        ++at;
    // What begins with "!" or "?" has other closers, and a last "/" another meaning.
    if (at == end || *at != '>' || at == name || at[-1] == '/' || !is(letter, *name)) return 0;
    t->token.start = t->position;
    t->token.size = static_cast<std::int32_t>(at + 1 - open);
    t->token.name = name;
    t->token.name_length = static_cast<std::int32_t>(at - name);
    t->token.closing = int{closing};
    t->position += t->token.size;
    return closing ? check_close_tag(t) : sgml_tag;
}

// Where the text that begins at the position ends: at the first "<" that opens no CDATA section.
std::size_t end_of_text_with_cdata(const sgml_tokenizer* t) {
    const string_view text = whole_text(t);
    std::size_t at = std::size_t(t->position);
    for (;;) {
        at = text.find('<', at);
        if (at == string_view::npos) return text.size();
        const string_view opener = text.substr(at, cdata_opener.size());
        if (st_strcmpi(opener.data(), offset(opener.size()), cdata_opener.data(),
                       offset(cdata_opener.size())) != 0) {
            return at;
        }
        at = text.find(cdata_closer, at);
        if (at == string_view::npos) return text.size();
        at += cdata_closer.size();
    }
}

// Common beginning of both ways of reading on. Returns false when the input is at its end.
bool begin_token(sgml_tokenizer* t) {
    settle_stack(t);
    clear_token(&t->token);
    return t->position < t->length;
}

const char* const messages[] = {
    "no error\n",       "unterminated string\n", "mismatched bracket\n",
    "mismatched tag\n", "unknown entity\n",      "symantic error\n",
};

const char* message_of(std::int32_t code) {
    const bool is_known = code >= 0 && code < static_cast<std::int32_t>(std::size(messages));
    return is_known ? messages[code] : "unknown error\n";
}

const sgml_attr* find_attribute(const sgml_token& token, const char* name,
                                std::int32_t name_length) {
    const sgml_attr* const end = token.attributes.data() + token.attribute_count;
    const sgml_attr wanted{
        .name = name, .value = nullptr, .name_length = name_length, .value_length = 0};
    const sgml_attr* const found =
        std::find_if(token.attributes.data(), end,
                     [&](const sgml_attr& known) { return same_in_any_case(known, wanted); });
    return found != end ? found : nullptr;
}

}  // namespace

int sgml_tokenizer_init(sgml_tokenizer* tokenizer, const char* text, std::int32_t length) {
    *tokenizer = {};
    tokenizer->text = text;
    tokenizer->length = text != nullptr ? std::max(length, 0) : 0;
    return 0;
}

int sgml_tokenizer_next(sgml_tokenizer* tokenizer) {
    if (tokenizer->kind == sgml_error) return sgml_error;
    if (!begin_token(tokenizer)) return finish(tokenizer);
    const string_view rest = whole_text(tokenizer).substr(std::size_t(tokenizer->position));
    const auto from = std::size_t(tokenizer->position);
    if (rest.front() != '<') {
        const std::size_t end = std::min(rest.find('<'), rest.size());
        return text_token(tokenizer, from, from + end, from + end);
    }
    const int plain = read_plain_tag(tokenizer);
    if (plain != 0) return plain;
    const bool is_cdata = rest.size() > cdata_opener.size() && rest.starts_with(cdata_opener);
    return is_cdata ? cdata_token(tokenizer) : read_tag(tokenizer);
}

int sgml_tokenizer_next_cdata(sgml_tokenizer* tokenizer) {
    if (tokenizer->kind == sgml_error) return sgml_error;
    if (!begin_token(tokenizer)) return finish(tokenizer);
    const auto from = std::size_t(tokenizer->position);
    const std::size_t end = end_of_text_with_cdata(tokenizer);
    return end > from ? text_token(tokenizer, from, end, end) : read_tag(tokenizer);
}

bool sgml_tokenizer_is_tag(const sgml_token* token, const char* name, bool closing) {
    if (token == nullptr || name == nullptr || token->name == nullptr) return false;
    return (token->closing != 0) == closing && name_of(*token) == name;
}

bool sgml_tokenizer_is_text(const sgml_token* token) {
    return token != nullptr && token->name == nullptr;
}

bool sgml_tokenizer_stack_is_tag(const sgml_tokenizer* tokenizer, const char* name,
                                 std::int32_t index) {
    const std::int64_t from_outermost = -std::int64_t{index} - 1;
    const std::int64_t at = index < 0 ? from_outermost : tokenizer->depth + from_outermost;
    if (at < 0 || at >= tokenizer->depth || at >= sgml_stack_max) return false;
    return sgml_tokenizer_is_tag(&tokenizer->stack[static_cast<std::size_t>(at)], name, false);
}

bool sgml_tokenizer_has_attribute(const sgml_tokenizer* tokenizer, const char* name,
                                  std::int32_t name_length) {
    return find_attribute(tokenizer->token, name, name_length) != nullptr;
}

bool sgml_tokenizer_get_attributes(const sgml_tokenizer* tokenizer, const char* name,
                                   std::int32_t name_length, const char** value,
                                   std::int32_t* value_length) {
    const sgml_attr* const found = find_attribute(tokenizer->token, name, name_length);
    if (found == nullptr) return false;
    *value = found->value;
    *value_length = found->value_length;
    return true;
}

void sgml_tokenizer_set_error(sgml_tokenizer* tokenizer, std::int32_t position, std::int32_t code) {
    const string_view text = whole_text(tokenizer);
    const std::size_t at = std::min(static_cast<std::size_t>(std::max(position, 0)), text.size());
    const string_view before = text.substr(0, at);
    const std::size_t line_feed = before.rfind('\n');
    const std::size_t line_start = line_feed == string_view::npos ? 0 : line_feed + 1;
    const std::size_t line_end = std::min(text.find_first_of("\r\n", at), text.size());
    tokenizer->error_line = 1 + offset(std::size_t(std::ranges::count(before, '\n')));
    tokenizer->error_column = 1 + offset(at - line_start);
    tokenizer->error_line_start = tokenizer->text + line_start;
    tokenizer->error_line_length = offset(line_end - line_start);
    tokenizer->error_code = code;
}

int sgml_tokenizer_strerror(char* out, std::int32_t size, const sgml_tokenizer* tokenizer) {
    bounded_writer to = bounded_writer_new(out, size);
    const string_view line{tokenizer->error_line_start,
                           static_cast<std::size_t>(tokenizer->error_line_length)};
    bounded_writer_fmt(&to, "%d, %d: ", tokenizer->error_line, tokenizer->error_column);
    bounded_writer_append(&to, message_of(tokenizer->error_code));
    bounded_writer_append(&to, line);
    bounded_writer_append(&to, "\n");
    std::int32_t dots = 0;
    for (std::int32_t column = 1; column < tokenizer->error_column; ++column) {
        const bool is_tab = line[std::size_t(column) - 1] == '\t';
        const std::int32_t stop = is_tab ? (dots / tab_width + 1) * tab_width : dots + 1;
        for (; dots < stop; ++dots)
            bounded_writer_append(&to, ".");
    }
    bounded_writer_append(&to, "^\n");
    return bounded_writer_result(&to);
}

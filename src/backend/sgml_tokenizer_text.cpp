// Conveniences on top of the tokenizer: paths, element texts and attribute values.
#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "runtime/strbuf.h"

#include "backend/sgml_tokenizer.h"

namespace {

constexpr std::int32_t number_size = 128;  // of an attribute read as a number, with its NUL

using conversion = int(char* out, std::int32_t size, const char* text, std::int32_t length);

// Appends what `convert` makes of the text, which is never longer than the text. Returns 0 or -1.
int append_converted(wms_strbuf* buf, conversion* convert, const char* text, std::int32_t length) {
    if (wms_strbuf_reserve(buf, length) < 0) return -1;
    buf->length += std::abs(convert(buf->data + buf->length, length, text, length));
    buf->data[buf->length] = '\0';
    return 0;
}

int append_token(wms_strbuf* buf, const sgml_tokenizer* tokenizer, bool unescape) {
    const char* const text = tokenizer->text + tokenizer->token.start;
    const std::int32_t length = tokenizer->token.size;
    if (unescape) return append_converted(buf, sgml_tokenizer_unescape, text, length);
    return wms_strbuf_reserve(buf, length) < 0 ? -1 : wms_strbuf_append(buf, text, length);
}

void trim_buffer(wms_strbuf* buf) {
    buf->length =
        std::abs(sgml_tokenizer_trim(buf->data, buf->length, buf->data, buf->length, nullptr));
    buf->data[buf->length] = '\0';
}

// Enters the current element. Returns the first result within it; sgml_end when there is no inside.
int enter(sgml_tokenizer* tokenizer) {
    const sgml_token& token = tokenizer->token;
    if (token.name == nullptr) return sgml_text;
    if (token.self_closing != 0 || token.closing != 0) return sgml_end;
    return sgml_tokenizer_next(tokenizer);
}

}  // namespace

bool st_is(const sgml_tokenizer* tokenizer, const char* name, ...) {
    const int stored = std::min(tokenizer->depth, sgml_stack_max);
    va_list names;
    va_start(names, name);
    const char* wanted = name;
    bool matches = true;
    for (int i = 0; i <= stored && matches; ++i) {
        const sgml_token* const token =
            i < stored ? &tokenizer->stack[std::size_t(i)] : &tokenizer->token;
        matches = sgml_tokenizer_is_tag(token, wanted, false);
        if (matches) wanted = va_arg(names, const char*);
    }
    va_end(names);
    return matches && wanted == nullptr;
}

int st_to_str(sgml_tokenizer* tokenizer, wms_strbuf* buf, bool unescape, bool clear, bool trim) {
    if (clear) wms_strbuf_clear(buf);
    const std::int32_t before = buf->length;
    int result = enter(tokenizer);
    const std::int32_t depth = tokenizer->depth;
    for (; result > 0; result = sgml_tokenizer_next(tokenizer)) {
        if (result == sgml_tag && tokenizer->token.closing != 0 && tokenizer->depth == depth) break;
        if (result == sgml_text && append_token(buf, tokenizer, unescape) < 0) return -1;
    }
    if (trim && buf->length > before) trim_buffer(buf);
    return 0;
}

int st_get_attr(wms_strbuf* buf, const sgml_tokenizer* tokenizer, const char* name, bool compact,
                bool clear) {
    if (clear) wms_strbuf_clear(buf);
    const char* value = nullptr;
    std::int32_t length = 0;
    const auto name_length = static_cast<std::int32_t>(std::strlen(name));
    if (!sgml_tokenizer_get_attributes(tokenizer, name, name_length, &value, &length)) return 0;
    return compact ? append_converted(buf, sgml_tokenizer_compact, value, length)
                   : wms_strbuf_append(buf, value, length);
}

int sgml_get_all_attr(wms_strbuf* buf, const sgml_tokenizer* tokenizer, const char* name,
                      bool compact, bool clear) {
    return st_get_attr(buf, tokenizer, name, compact, clear);
}

int st_attr_to_int(const sgml_tokenizer* tokenizer, const char* name, int fallback) {
    const char* value = nullptr;
    std::int32_t length = 0;
    const auto name_length = static_cast<std::int32_t>(std::strlen(name));
    if (!sgml_tokenizer_get_attributes(tokenizer, name, name_length, &value, &length)) {
        return fallback;
    }
    char number[number_size];
    const int used = std::abs(sgml_tokenizer_compact(number, number_size - 1, value, length));
    number[std::min(used, number_size - 1)] = '\0';
    return static_cast<int>(std::clamp<long>(std::strtol(number, nullptr, 0), INT_MIN, INT_MAX));
}

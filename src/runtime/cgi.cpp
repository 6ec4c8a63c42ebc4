#include "runtime/cgi.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <span>

#include "platform/ownership.h"

#include "runtime/form.h"
#include "runtime/request.h"
#include "runtime/strbuf.h"
#include "runtime/text.h"

namespace {

std::span<cgi_pair> entries_of(const cgi_vars& vars) {
    return {vars.entries, static_cast<std::size_t>(vars.count)};
}

std::span<cgi_pair> entries_of(const cgi_pairs& pairs) {
    return {pairs.entries, static_cast<std::size_t>(pairs.count)};
}

cgi_pair* find_override(const cgi* input, const char* name) {
    for (cgi_pair& entry : entries_of(input->vars)) {
        if (std::strcmp(entry.name, name) == 0) return &entry;
    }
    return nullptr;
}

std::int32_t text_length(const char* text) {
    return text != nullptr ? static_cast<std::int32_t>(std::strlen(text)) : 0;
}

int append_override(cgi_vars* vars, malloc_text name, malloc_text value) {
    if (cgi_entries_reserve(&vars->entries, &vars->capacity, std::int64_t{vars->count} + 1) != 0) {
        return -1;
    }
    cgi_pair entry{};
    entry.value_len = text_length(value.get());
    entry.name = name.release();
    entry.value = value.release();
    vars->entries[vars->count++] = entry;
    vars->sorted = 0;
    return 0;
}

}  // namespace

int cgi_init(cgi* input) {
    *input = cgi{};
    return 0;
}

void cgi_deinit(cgi* input) {
    if (input == nullptr) return;
    for (const cgi_pair& entry : entries_of(input->vars)) {
        std::free(entry.name);
        std::free(entry.value);
    }
    std::free(input->vars.entries);
    std::free(input->pairs.entries);
    if (input->body_owned != 0) std::free(input->body);
    if (input->raw_owned != 0) std::free(input->raw);
    *input = cgi{};
}

const char* cgi_get_var(const cgi* input, const char* name) {
    const cgi_pair* const entry = find_override(input, name);
    return entry != nullptr ? entry->value : streams_variable(request_current_streams(), name);
}

int cgi_set_var(cgi* input, const char* name, const char* value) {
    malloc_text copy{value != nullptr ? ::strdup(value) : nullptr};
    if (value != nullptr && !copy) return -1;
    if (cgi_pair* const entry = find_override(input, name)) {
        std::free(entry->value);
        entry->value_len = text_length(copy.get());
        entry->value = copy.release();
        return 0;
    }
    malloc_text name_copy{::strdup(name)};
    if (!name_copy) return -1;
    return append_override(&input->vars, std::move(name_copy), std::move(copy));
}

int cgi_copy_vars(cgi* dst, const cgi* src) {
    for (const cgi_pair& entry : entries_of(src->vars)) {
        if (cgi_set_var(dst, entry.name, entry.value) != 0) return -1;
    }
    return 0;
}

char* cgi_query_string(const cgi* input) {
    return input->raw;
}

const cgi_pair* cgi_named_pair(const cgi* input, const char* name) {
    const std::span<cgi_pair> pairs = entries_of(input->pairs);
    const auto found = std::ranges::lower_bound(
        pairs, name,
        [](const char* a, const char* b) { return a == nullptr || std::strcmp(a, b) < 0; },
        &cgi_pair::name);
    return found != pairs.end() && std::strcmp(found->name, name) == 0 ? &*found : nullptr;
}

const char* cgi_named_value(const cgi* input, const char* name) {
    const cgi_pair* const pair = cgi_named_pair(input, name);
    if (pair == nullptr) return nullptr;
    return pair->value != nullptr ? pair->value : "";
}

void cgi_show_allpair(const cgi* input) {
    scoped_strbuf text;
    wms_strbuf_fmt(text, "%d pairs\n", input->pairs.count);
    for (const cgi_pair& pair : entries_of(input->pairs)) {
        wms_strbuf_fmt(text, "%s -> %s\n", text_or_null(pair.name), text_or_null(pair.value));
    }
    const request_streams streams = request_current_streams();
    if (text.buf.length > 0) {
        static_cast<void>(streams.write(streams.context, text.buf.data,
                                        static_cast<std::size_t>(text.buf.length)));
    }
}

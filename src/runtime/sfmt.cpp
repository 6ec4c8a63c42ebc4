#include "runtime/sfmt.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/ownership.h"

#include "runtime/fsb.h"
#include "runtime/text.h"

namespace {

using std::string_view;

constexpr string_view tag_open = "<%";
constexpr string_view tag_close = "%>";
constexpr string_view comment_mark = "--";
constexpr string_view comment_close = "--%>";
constexpr string_view include_mark = "@";

// Exactly one of the two is there.
struct output {
    fsb* fixed;
    wms_strbuf* growing;
    bool failed = false;  // the growing buffer could not grow
};

void put(output* out, string_view text) {
    const auto n = static_cast<std::int32_t>(text.size());
    if (out->fixed != nullptr) {
        fsb_append(out->fixed, text.data(), n);
    } else if (wms_strbuf_reserve(out->growing, n) < 0 ||
               wms_strbuf_append(out->growing, text.data(), n) < 0) {
        out->failed = true;
    }
}

string_view counted_or_whole(const char* text, std::int32_t length) {
    return length < 1 ? string_view{text} : string_view{text, static_cast<std::size_t>(length)};
}

// ---- variables

struct variable {
    std::uint32_t name;  // offsets into the pool
    std::uint32_t value;
};

string_view value_of(const sfmt* vars, string_view name) {
    const std::size_t count = static_cast<std::size_t>(vars->index.length) / sizeof(variable);
    for (std::size_t i = 0; i < count; ++i) {
        variable candidate{};
        std::memcpy(&candidate, vars->index.data + i * sizeof candidate, sizeof candidate);
        if (name == vars->pool.data + candidate.name) return vars->pool.data + candidate.value;
    }
    return {};
}

// REQUIRES: the pool has room.
std::uint32_t add_to_pool(wms_strbuf* pool, string_view text) {
    const auto offset = static_cast<std::uint32_t>(pool->length);
    wms_strbuf_append(pool, text.data(), static_cast<std::int32_t>(text.size()));
    wms_strbuf_append(pool, "", 1);
    return offset;
}

// ---- tags

enum class tag_kind { variable, include, comment };

struct tag {
    tag_kind kind;
    string_view inside;
    string_view rest;  // the template behind the closing marker
};

// `text` begins behind the "<%". False when the tag is not closed.
bool read_tag(string_view text, tag* found) {
    string_view close = tag_close;
    found->kind = tag_kind::variable;
    if (text.starts_with(include_mark)) {
        found->kind = tag_kind::include;
        text.remove_prefix(include_mark.size());
    } else if (text.starts_with(comment_mark)) {
        found->kind = tag_kind::comment;
        text.remove_prefix(comment_mark.size());
        close = comment_close;
    }
    const std::size_t end = text.find(close);
    if (end == string_view::npos) return false;
    found->inside = trimmed(text.substr(0, end));
    found->rest = text.substr(end + close.size());
    return true;
}

void render(const sfmt* vars, output* out, string_view text, int depth);

void include(const sfmt* vars, output* out, string_view name, int depth) {
    char path[sfmt_path_max + 1];
    path[name.copy(path, sfmt_path_max)] = '\0';
    char* data = nullptr;
    std::int32_t size = 0;
    if (sfmt_read_all(&data, &size, path) != 0) return;
    const malloc_text file{data};
    const string_view text{data, static_cast<std::size_t>(size)};
    if (depth < sfmt_depth_max) {
        render(vars, out, text, depth + 1);
    } else {
        put(out, text);
    }
}

// The depth of the recursion is bounded by sfmt_depth_max.
void render(const sfmt* vars, output* out, string_view text, int depth) {
    while (!text.empty() && !out->failed) {
        const std::size_t at = text.find(tag_open);
        tag found{};
        if (at == string_view::npos || !read_tag(text.substr(at + tag_open.size()), &found)) {
            put(out, text);
            return;
        }
        put(out, text.substr(0, at));
        text = found.rest;
        if (found.inside.empty()) continue;
        if (found.kind == tag_kind::variable) put(out, value_of(vars, found.inside));
        if (found.kind == tag_kind::include) include(vars, out, found.inside, depth);
    }
}

string_view template_text(const char* text, std::int32_t length) {
    if (text == nullptr || length < 1) return {};
    return {text, static_cast<std::size_t>(length)};
}

struct template_file {
    malloc_text data;
    std::int32_t size = 0;
};

bool read_template(template_file* file, const char* path) {
    char* data = nullptr;
    const int failed = sfmt_read_all(&data, &file->size, path);
    file->data.reset(data);
    return failed == 0;
}

}  // namespace

int sfmt_init(sfmt* vars) {
    if (vars == nullptr) return -1;
    wms_strbuf_new(&vars->index);
    wms_strbuf_new(&vars->pool);
    return 0;
}

int sfmt_add(sfmt* vars, const char* name, std::int32_t name_len, const char* value,
             std::int32_t value_len) {
    if (vars == nullptr || name == nullptr || value == nullptr) return -1;
    const string_view name_text = counted_or_whole(name, name_len);
    const string_view value_text = counted_or_whole(value, value_len);
    const auto more = static_cast<std::int64_t>(name_text.size() + value_text.size() + 2);
    if (wms_strbuf_reserve(&vars->index, sizeof(variable)) < 0) return -1;
    if (wms_strbuf_reserve(&vars->pool, more) < 0) return -1;
    const variable added{.name = add_to_pool(&vars->pool, name_text),
                         .value = add_to_pool(&vars->pool, value_text)};
    return wms_strbuf_append(&vars->index, reinterpret_cast<const char*>(&added), sizeof added);
}

int sfmt_fmt(const sfmt* vars, char* storage, std::int32_t size, const char* text,
             std::int32_t text_len) {
    fsb fixed;
    fsb_new(&fixed, storage, size);
    output out{.fixed = &fixed, .growing = nullptr};
    render(vars, &out, template_text(text, text_len), 0);
    return fsb_append(&fixed, "", 0);
}

int sfmt_fmt_ii(const sfmt* vars, char** out, std::int32_t* out_len, const char* text,
                std::int32_t text_len) {
    *out = nullptr;
    *out_len = 0;
    const int measured = sfmt_fmt(vars, nullptr, 0, text, text_len);
    if (measured == 0) return 0;
    const int length = -measured;
    auto* const block = static_cast<char*>(std::malloc(static_cast<std::size_t>(length) + 1));
    if (block == nullptr) return measured;
    const int result = sfmt_fmt(vars, block, length + 1, text, text_len);
    *out = block;
    // An included file may have shrunk between the two renderings.
    *out_len = std::min(length, std::abs(result));
    return result;
}

int sfmt_fmt_iii(const sfmt* vars, wms_strbuf* buf, const char* text, std::int32_t text_len) {
    const std::int32_t before = buf->length;
    output out{.fixed = nullptr, .growing = buf};
    render(vars, &out, template_text(text, text_len), 0);
    if (!out.failed) return buf->length;
    buf->length = before;
    if (buf->data != nullptr) buf->data[before] = '\0';
    return -1;
}

int sfmt_fmtf(const sfmt* vars, char* storage, std::int32_t size, const char* path) {
    template_file file;
    if (!read_template(&file, path)) return 0;
    return sfmt_fmt(vars, storage, size, file.data.get(), file.size);
}

int sfmt_fmtf_ii(const sfmt* vars, char** out, std::int32_t* out_len, const char* path) {
    *out = nullptr;
    *out_len = 0;
    template_file file;
    if (!read_template(&file, path)) return 0;
    return sfmt_fmt_ii(vars, out, out_len, file.data.get(), file.size);
}

int sfmt_fmtf_iii(const sfmt* vars, wms_strbuf* buf, const char* path) {
    template_file file;
    if (!read_template(&file, path)) return 0;
    return sfmt_fmt_iii(vars, buf, file.data.get(), file.size);
}

void sfmt_deinit(sfmt* vars) {
    if (vars == nullptr) return;
    wms_strbuf_free(&vars->index);
    wms_strbuf_free(&vars->pool);
}

#include "api/request_line.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <string_view>
#include <strings.h>

#include "platform/ownership.h"

#include "runtime/bounded_writer.h"
#include "runtime/cgi.h"
#include "runtime/log.h"
#include "runtime/redaction.h"
#include "runtime/url.h"

#include "backend/command_text.h"

namespace {

using namespace std::string_view_literals;

constexpr std::size_t line_room = 256;  // bytes that a line may have beyond its payload
constexpr std::string_view path_field = "config_path=";
constexpr std::string_view default_path = "/hq/mynode";

// The variable parts of a line, and how long it gets at most, its NUL included.
struct line_parts {
    std::string_view operation;
    std::string_view kind;
    std::string_view name;
    std::string_view payload;
    std::string_view path;
    std::string_view file_name;
    std::size_t room;
};

// The URI's own query. The fields point into its text.
struct uri_query {
    malloc_text text;
    cgi form{};
    uri_query() = default;
    ~uri_query() { cgi_deinit(&form); }
    uri_query(const uri_query&) = delete;
    uri_query& operator=(const uri_query&) = delete;
};

// The next element of a path, which is cut off; empty behind the last one.
std::string_view next_element(std::string_view* path) {
    path->remove_prefix(std::min(path->find_first_not_of('/'), path->size()));
    const std::string_view element = path->substr(0, path->find('/'));
    path->remove_prefix(element.size());
    return element;
}

bool ends_field(std::string_view value) {
    return value.find_first_of("&\r\n\0"sv) != std::string_view::npos;
}

// Kind and name are taken undecoded, so what is refused here stands in no URI (RFC 3986), but for
// the "&".
bool read_path(line_parts* parts, std::string_view path) {
    static_cast<void>(next_element(&path));  // the version
    static_cast<void>(next_element(&path));  // the area
    parts->kind = next_element(&path);
    parts->name = next_element(&path);
    if (parts->kind.starts_with("object")) parts->kind = "objname";
    if (parts->name.empty()) parts->name = "all";
    for (const std::string_view element : {parts->kind, parts->name}) {
        if (ends_field(element) || element.find_first_of("\"\\") != std::string_view::npos) {
            return false;
        }
    }
    return true;
}

bool parse_query(uri_query* query, const char* text) {
    query->text.reset(::strdup(text));
    const std::size_t length = std::strlen(text);
    if (query->text && length <= std::numeric_limits<std::int32_t>::max() &&
        cgi_parse_iii(&query->form, query->text.get(), static_cast<std::int32_t>(length), 0) == 0) {
        return true;
    }
    wuic_log(log_error, "Could not parse the argument %s", redact_fields(text).text);
    return false;
}

// The form's reader has decoded the field once already; the path is decoded twice.
bool decode_path(line_parts* parts, const cgi_pair& field) {
    if (field.value == nullptr) {
        parts->path = {};
        return true;
    }
    const int length =
        cgi_unescape_url2(field.value, field.value_len, field.value, field.value_len);
    if (std::strlen(field.value) != static_cast<std::size_t>(length)) return false;
    command_unencode(field.value, length);
    parts->path = field.value;
    return !ends_field(parts->path);
}

bool read_query(line_parts* parts, uri_query* query, const char* text) {
    parts->path = default_path;
    if (text == nullptr) return true;
    if (!parse_query(query, text)) return false;
    const cgi_pair* const path = cgi_named_pair(&query->form, "config_path");
    if (path != nullptr && !decode_path(parts, *path)) return false;
    const cgi_pair* const file = cgi_named_pair(&query->form, "file_name");
    if (file == nullptr || file->value == nullptr) return true;
    parts->file_name = {file->value, static_cast<std::size_t>(file->value_len)};
    return !ends_field(parts->file_name);
}

// The line of these pieces, cut at its room; null when memory runs out.
malloc_text join(const line_parts& parts, std::initializer_list<std::string_view> pieces) {
    malloc_text line{static_cast<char*>(std::malloc(parts.room))};
    if (!line) return line;
    bounded_writer to{.out = line.get(), .size = parts.room - 1};
    for (const std::string_view piece : pieces)
        bounded_writer_append(&to, piece);
    line.get()[std::min(to.used, to.size)] = '\0';
    return line;
}

malloc_text read_line(const line_parts& p) {
    if (p.payload.empty()) return nullptr;
    wuic_log(log_debug, "URI is %.*s&%s=%s&%s", static_cast<int>(p.operation.size()),
             p.operation.data(), redact_uri(p.kind).text, redact_uri(p.name).text,
             redact_fields(p.payload).text);
    if (p.payload.starts_with("config_path")) {
        return join(p, {p.operation, "&", p.kind, "=", p.name, "&", p.payload});
    }
    return join(
        p, {p.operation, "&", p.kind, "=", p.name, "&", path_field, default_path, "&", p.payload});
}

bool begins_with_word(std::string_view name, std::string_view word) {
    return name.size() >= word.size() && ::strncasecmp(name.data(), word.data(), word.size()) == 0;
}

malloc_text named_line(const line_parts& p) {
    const std::string_view value = p.payload.empty() ? "{}" : p.payload;
    if (begins_with_word(p.name, "configReplace")) {
        return join(p, {p.operation, "&", path_field, p.path, "&covert_op=", p.name, "&data={",
                        value, "}"});
    }
    if (begins_with_word(p.name, "fileUpload")) {
        return join(p, {p.operation, "&", path_field, p.path, "&covert_op=", p.name,
                        "&file_name=", p.file_name, "&data={", value, "}"});
    }
    return join(p,
                {p.operation, "&", path_field, p.path, "&data={ \"", p.name, "\" : ", value, " }"});
}

malloc_text changing_line(const line_parts& p) {
    if (p.name != "all") return named_line(p);
    if (p.payload.empty()) return nullptr;
    const std::string_view show = p.operation == "json" ? "json=1&" : "";
    return join(p, {p.operation, "&", path_field, p.path, "&data=", show, p.payload});
}

}  // namespace

char* parse_uri(const char* uri, const char* operation, const char* payload,
                std::size_t payload_len) {
    const std::string_view whole = uri;
    const std::size_t mark = whole.find('?');
    line_parts parts{};
    parts.operation = operation;
    if (payload != nullptr) parts.payload = {payload, payload_len};
    parts.room = parts.payload.size() + line_room;
    if (!read_path(&parts, whole.substr(0, mark))) return nullptr;
    if (parts.operation.starts_with("get")) return read_line(parts).release();

    uri_query query;
    const char* const text = mark != std::string_view::npos ? uri + mark + 1 : nullptr;
    if (!read_query(&parts, &query, text)) return nullptr;
    malloc_text line = changing_line(parts);
    if (line) wuic_log(log_debug, "URI is %s", redact_fields(line.get()).text);
    return line.release();
}

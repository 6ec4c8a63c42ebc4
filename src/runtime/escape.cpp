#include "runtime/escape.h"

#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

#include "platform/ownership.h"
#include "platform/paths.h"

#include "runtime/escape_table.h"
#include "runtime/fsb.h"
#include "runtime/sgml_text.h"
#include "runtime/strbuf.h"

namespace {

using std::string_view;

constexpr escape_table sql_table(bool percent) {
    escape_table table;
    table.set('"', "\\\"");
    table.set('\'', "\\'");
    table.set('\\', "\\\\");
    if (percent) table.set('%', "\\%");
    return table;
}
constexpr escape_table sql_literal = sql_table(false);
constexpr escape_table sql_pattern = sql_table(true);

constexpr escape_table javascript = [] {
    escape_table table;
    table.set('\n', "\\n");
    table.set('\r', "\\r");
    table.set('"', "\\\"");
    table.set('\\', "\\\\");
    table.set('<', "<\"+\"");
    table.set('>', "\"+\">");
    return table;
}();

constexpr escape_table result_text = [] {
    escape_table table;
    table.set('\'', "&#39;");
    table.set('<', "&lt;");
    table.set('>', "&gt;");
    table.set('&', "&amp;");
    return table;
}();

constexpr escape_table location_part = [] {
    escape_table table;
    table.set('\\', "\\\\");
    table.set('.', "\\.");
    return table;
}();

string_view counted(const char* in, std::int32_t in_len) {
    if (in == nullptr || in_len < 1) return {};
    return {in, static_cast<std::size_t>(in_len)};
}

// A length below 1 stands for the text's own.
string_view counted_or_whole(const char* in, std::int32_t in_len) {
    if (in == nullptr) return {};
    return in_len < 1 ? string_view{in} : counted(in, in_len);
}

int escape_text(char* out, std::int32_t out_size, string_view in, const escape_table& table) {
    bounded_writer to = bounded_writer_text(out, out_size);
    escape_append(&to, in, table);
    bounded_writer_terminate(&to, out_size);
    return bounded_writer_result(&to);
}

const char* text_of(const wms_strbuf* buf) {
    return buf->data != nullptr ? buf->data : "";
}

}  // namespace

int wuic_escape_sql(char* out, std::int32_t out_size, const char* in, std::int32_t in_len,
                    bool escape_percent) {
    const string_view text = counted(in, in_len);
    bounded_writer to = bounded_writer_new(out, out_size);
    escape_append(&to, text, escape_percent ? sql_pattern : sql_literal);
    // A NUL would end the literal early when the query is put together.
    const bool sound = in_len == 0 || (in_len > 0 && in != nullptr);
    const bool whole = sound && to.used < to.size && text.find('\0') == string_view::npos;
    if (whole) {
        out[to.used] = '\0';
        return static_cast<int>(to.used);
    }
    if (to.size > 0) std::memset(out, 0, to.size);
    return to.used > 0 && to.used <= INT32_MAX ? -static_cast<int>(to.used) : -1;
}

const char* wuic_jsesc(char* out, std::int32_t out_size, const char* in, std::int32_t in_len) {
    escape_text(out, out_size, counted_or_whole(in, in_len), javascript);
    return out;
}

const char* wuic_jsesc_ii(wms_strbuf* buf, const char* in, std::int32_t in_len) {
    escape_to_strbuf(buf, counted_or_whole(in, in_len), javascript);
    return text_of(buf);
}

const char* wuic_sgmlesc(char* out, std::int32_t out_size, const char* in, std::int32_t in_len) {
    escape_text(out, out_size, counted(in, in_len), sgml_escape_table(false, true));
    return out;
}

const char* wuic_sgmlesc_ii(wms_strbuf* buf, const char* in, std::int32_t in_len) {
    escape_to_strbuf(buf, counted(in, in_len), sgml_escape_table(false, true));
    return text_of(buf);
}

std::size_t xml_escape_the_string_len(const char* text) {
    bounded_writer measure = bounded_writer_new(nullptr, 0);
    escape_append(&measure, text, result_text);
    return measure.used + 1;
}

void xml_escape_the_string(const char* text, char* out) {
    const std::size_t size = xml_escape_the_string_len(text) - 1;
    bounded_writer to = bounded_writer_new(out, static_cast<std::int64_t>(size));
    escape_append(&to, text, result_text);
    out[size] = '\0';
}

// NOLINTNEXTLINE(readability-identifier-naming): fixed name
char* __strip_escape_and_quotes(const char* text, char* out, std::int32_t size) {
    if (size < 1) return out;
    std::int32_t used = 0;
    for (; *text != '\0' && used < size - 1; ++text) {
        const bool escaped = text[0] == '\\' && (text[1] == '\\' || text[1] == '"');
        if (escaped) ++text;
        if (escaped || (*text != '\\' && *text != '"')) out[used++] = *text;
    }
    out[used] = '\0';
    return out;
}

int wuic_escape_fqln_part(char* out, std::int32_t out_size, const char* part,
                          std::int32_t part_len) {
    return escape_text(out, out_size, counted(part, part_len), location_part);
}

int wuic_build_fqln(char* out, std::int32_t out_size, const char* a, const char* b, const char* c,
                    const char* d) {
    constexpr int part_size = 256;
    fsb name;
    fsb_new(&name, out, out_size);
    string_view separator;
    for (const char* const part : {a, b, c, d}) {
        char escaped[part_size];
        escape_text(escaped, part_size, counted_or_whole(part, 0), location_part);
        fsb_append(&name, separator.data(), static_cast<std::int32_t>(separator.size()));
        fsb_append(&name, escaped, static_cast<std::int32_t>(std::strlen(escaped)));
        separator = ".";
    }
    return fsb_append(&name, "", 0);
}

// NOLINTNEXTLINE(readability-function-size): fixed interface
int wuic_crack_fqln(const char* name, char* a, std::int32_t a_size, char* b, std::int32_t b_size,
                    char* c, std::int32_t c_size, char* d, std::int32_t d_size) {
    fsb parts[4];
    fsb_new(&parts[0], a, a_size);
    fsb_new(&parts[1], b, b_size);
    fsb_new(&parts[2], c, c_size);
    fsb_new(&parts[3], d, d_size);
    for (fsb& part : parts)
        fsb_clear(&part);
    std::size_t part = 0;
    bool escaped = false;
    for (const char byte : counted_or_whole(name, 0)) {
        if (!escaped && byte == '\\') {
            escaped = true;
            continue;
        }
        if (!escaped && byte == '.') {
            if (++part == std::size(parts)) break;
            continue;
        }
        fsb_append(&parts[part], &byte, 1);
        escaped = false;
    }
    return 0;
}

void wuic_get_uuid(char* out, std::int32_t out_size) {
    constexpr std::int32_t uuid_length = 36;
    if (out == nullptr || out_size < 1) return;
    out[0] = '\0';
    // Part of an identifier would be one that can be guessed.
    if (out_size <= uuid_length) return;
    const unique_fd source{::open(paths::random_uuid, O_RDONLY | O_CLOEXEC)};
    if (!source) return;
    const bool whole = ::read(source.get(), out, uuid_length) == uuid_length;
    out[whole ? uuid_length : 0] = '\0';
}

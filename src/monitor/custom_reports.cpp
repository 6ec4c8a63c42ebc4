#include "monitor/custom_reports.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include "platform/paths.h"

#include "runtime/http_date.h"
#include "runtime/request.h"
#include "runtime/strbuf.h"

#include "backend/cli_reader.h"

#include "monitor/report_store.h"

namespace {

constexpr char table_head[] =
    "<re><t tn='custom-reports'><th><h>name</h><h>type</h><h>url</h><h>time</h></th>";
constexpr char table_tail[] = "</t></re>";
constexpr std::string_view reference_characters =
    "#0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

struct report_field {
    const char* element;
    std::size_t max;  // bytes that are kept of its text
};

constexpr auto report_fields = std::to_array<report_field>({
    {.element = "name", .max = 255},
    {.element = "type", .max = 255},
    {.element = "url", .max = 1023},
    {.element = "t", .max = 127},
});

struct report {
    std::array<scoped_strbuf, report_fields.size()> texts;
    std::array<bool, report_fields.size()> seen{};
};

bool is_continuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;  // UTF-8 (RFC 3629 section 3)
}

// The longest beginning of a text of markup, up to `max` bytes, that may stand alone.
std::string_view cut_markup(std::string_view text, std::size_t max) {
    if (text.size() <= max) return text;
    const std::size_t ampersand = text.rfind('&', max - 1);
    if (ampersand != text.npos) {
        const std::size_t end = text.find_first_not_of(reference_characters, ampersand + 1);
        const bool split = end != text.npos && end >= max && text[end] == ';';
        if (split) return text.substr(0, ampersand);
    }
    while (max > 0 && is_continuation(text[max]))
        --max;
    return text.substr(0, max);
}

void append_row(wms_strbuf* out, const report& complete) {
    wms_strbuf_fmt(out, "<r>");
    for (std::size_t i = 0; i < report_fields.size(); ++i) {
        const wms_strbuf& text = complete.texts[i].buf;
        const std::string_view kept =
            cut_markup({text.data, static_cast<std::size_t>(text.length)}, report_fields[i].max);
        wms_strbuf_fmt(out, "<c>");
        wms_strbuf_append(out, kept.data(), static_cast<std::int32_t>(kept.size()));
        wms_strbuf_fmt(out, "</c>");
    }
    wms_strbuf_fmt(out, "</r>");
}

void append_rows(wms_strbuf* out, const char* text, std::int32_t length) {
    sgml_tokenizer tokenizer;
    sgml_tokenizer_init(&tokenizer, text, length);
    report current;
    while (sgml_tokenizer_next(&tokenizer) > 0) {
        for (std::size_t i = 0; i < report_fields.size(); ++i) {
            if (!st_is(&tokenizer, "qorin", "cr", report_fields[i].element, nullptr)) continue;
            cli_reader_text(&tokenizer, current.texts[i], text_form::markup);
            current.seen[i] = true;
        }
        if (std::ranges::count(current.seen, true) < std::ssize(current.seen)) continue;
        append_row(out, current);
        current.seen = {};
    }
}

void render(wms_strbuf* out) {
    scoped_strbuf file;
    const bool was_read = report_store_read(file) >= 0;
    wms_strbuf_fmt(out, "%s", table_head);
    if (was_read) append_rows(out, file.buf.data, file.buf.length);
    wms_strbuf_fmt(out, "%s%s", table_tail, was_read ? "\n" : "");
}

}  // namespace

int wuic_uih_custom_reports_to_cli(wms_strbuf* out) {
    custom_reports_cache& cache = request_current().custom_reports;
    const std::time_t modified = wuic_get_last_modified_time(paths::custom_reports);
    const bool kept =
        cache.text.buf.length > 0 && (modified == -1 || modified == cache.file_modified);
    if (!kept) {
        scoped_strbuf rendering;
        render(rendering);
        wms_strbuf_clear(cache.text);
        cache.file_modified = modified;
        wms_strbuf_append(cache.text, rendering.buf.data, rendering.buf.length);
    }
    if (cache.text.buf.length == 0) {  // no memory for it
        wms_strbuf_fmt(out, "%s%s", table_head, table_tail);
        return 0;
    }
    wms_strbuf_append(out, cache.text.buf.data, cache.text.buf.length);
    return 0;
}

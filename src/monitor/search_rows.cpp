#include "monitor/search_rows.h"

#include <cstdio>
#include <cstring>

#include "runtime/error_response.h"
#include "runtime/escape.h"
#include "runtime/strbuf.h"

#include "monitor/ap_names.h"

namespace {

constexpr std::int32_t value_size = 1024;  // of an element's text, its NUL included
constexpr std::size_t reason_size = 1024;
constexpr std::size_t counts_size = 256;
// What one field takes at most: an escaped value, and a tag twice with what stands around it.
constexpr std::int64_t field_room = value_size + 128;

void emit_as(wms_strbuf* out, const search_field& field, const char* value) {
    char name[value_size];
    switch (field.as) {
        case shown::value:
            wlm_emit_field(out, field.tag, value);
            break;
        case shown::model:
            wlm_emit_field(out, field.tag, oem_ap_user_visible_model(value, name, sizeof name));
            break;
        case shown::vendor:
            wlm_emit_field(out, field.tag, oui_to_vendor(value, name, sizeof name));
            break;
    }
}

void emit_row(wms_strbuf* out, const PGresult* row, const char* element,
              std::span<const search_field> fields) {
    wms_strbuf_append_all(out, {"<", element, ">\n"});
    for (const search_field& field : fields) {
        emit_as(out, field, PQgetvalue(row, 0, field.column));
    }
    wms_strbuf_append_all(out, {"</", element, ">\n"});
}

// Calls `each` with every row as it arrives; the library never holds more than one. False when the
// server refuses the query or breaks it off. Sent with parameters, even none, it is one statement
// for the server, and never several.
template <class Each>
bool for_each_row(PGconn* db, const char* sql, Each each) {
    if (PQsendQueryParams(db, sql, 0, nullptr, nullptr, nullptr, nullptr, 0) != 1) return false;
    if (PQsetSingleRowMode(db) != 1) return false;
    ExecStatusType last = PGRES_FATAL_ERROR;
    while (const db_result row{PQgetResult(db)}) {
        last = PQresultStatus(row.get());
        if (last == PGRES_SINGLE_TUPLE) each(row.get());
    }
    return last == PGRES_TUPLES_OK;
}

void cut(wms_strbuf* out, std::int32_t length) {
    out->length = length;
    if (out->data != nullptr) out->data[length] = '\0';
}

}  // namespace

bool search_settle_literals(PGconn* db, const char* sql) {
    // An escaped apostrophe is the only way in which this pair gets into a query of ours: a pattern
    // ends in "%", so no literal ends in a backslash.
    if (std::strstr(sql, "\\'") != nullptr) return true;
    const db_result set{PQexec(db, "SET standard_conforming_strings TO on")};
    return PQresultStatus(set.get()) == PGRES_COMMAND_OK;
}

int search_count(PGconn* db, const char* sql) {
    int count = 0;
    const bool whole = for_each_row(db, sql, [&](const PGresult*) { ++count; });
    return whole ? count : -1;
}

int search_fail(wms_strbuf* out, const PGconn* db) {
    return search_refuse(out, PQerrorMessage(db));
}

int search_refuse(wms_strbuf* out, const char* reason) {
    char escaped[reason_size];
    scoped_strbuf document;
    wuic_generic_error(document, "%s", error_text_escape(escaped, sizeof escaped, reason));
    wms_strbuf_append(out, document.buf.data, document.buf.length);
    return -1;
}

int search_emit_rows(wms_strbuf* out, PGconn* db, const char* sql, const char* element,
                     std::span<const search_field> fields) {
    const auto row_room = static_cast<std::int64_t>(fields.size() + 1) * field_room;
    const std::int32_t begin = out->length;
    int count = 0;
    bool has_room = true;
    const bool whole = for_each_row(db, sql, [&](const PGresult* row) {
        has_room = has_room && wms_strbuf_reserve(out, row_room) == 0;
        if (has_room) emit_row(out, row, element, fields);
        ++count;
    });
    if (!has_room) {
        wms_strbuf_clear(out);
        return -1;
    }
    if (whole) return count;
    cut(out, begin);
    return search_fail(out, db);
}

int search_insert_counts(wms_strbuf* out, std::int32_t at, const search_counts& counts) {
    char text[counts_size];
    const int length = std::snprintf(
        text, sizeof text, "%s<start>%d</start>\n<length>%d</length>\n<total>%d</total>\n",
        counts.before, counts.start, counts.length, counts.total);
    const std::int32_t rows = out->length - at;
    if (wms_strbuf_append(out, text, length) < 0) {
        wms_strbuf_clear(out);
        return -1;
    }
    std::memmove(out->data + at + length, out->data + at, static_cast<std::size_t>(rows));
    std::memcpy(out->data + at, text, static_cast<std::size_t>(length));
    return 0;
}

void wlm_emit_field(wms_strbuf* out, std::string_view tag, const char* value) {
    if (value == nullptr || *value == '\0') {
        wms_strbuf_append_all(out, {"<", tag, "></", tag, ">\n"});
        return;
    }
    char escaped[value_size];
    wuic_sgmlesc(escaped, value_size, value, static_cast<std::int32_t>(std::strlen(value)));
    wlm_emit_cdata(out, tag, escaped);
}

void wlm_emit_cdata(wms_strbuf* out, std::string_view tag, const char* escaped) {
    wms_strbuf_append_all(out, {"<", tag, "><![CDATA[", escaped, "]]></", tag, ">\n"});
}

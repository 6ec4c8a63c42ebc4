#include "monitor/search_rows.h"

#include <cstring>
#include <initializer_list>
#include <string_view>

#include "runtime/error_response.h"
#include "runtime/escape.h"
#include "runtime/strbuf.h"

#include "monitor/ap_names.h"

namespace {

constexpr std::int32_t value_size = 1024;  // of an element's text, its NUL included
constexpr std::size_t reason_size = 1024;
// What one field takes at most: an escaped value, and a tag twice with what stands around it.
constexpr std::int64_t field_room = value_size + 128;

void append(wms_strbuf* out, std::initializer_list<std::string_view> pieces) {
    for (const std::string_view piece : pieces) {
        wms_strbuf_append(out, piece.data(), static_cast<std::int32_t>(piece.size()));
    }
}

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

// With parameters, even none, the server takes one statement and no more.
bool send_query(PGconn* db, const char* sql) {
    return PQsendQueryParams(db, sql, 0, nullptr, nullptr, nullptr, nullptr, 0) == 1;
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
    if (!send_query(db, sql)) return -1;
    static_cast<void>(PQsetSingleRowMode(db));
    int count = 0;
    ExecStatusType last = PGRES_FATAL_ERROR;
    while (const db_result row{PQgetResult(db)}) {
        last = PQresultStatus(row.get());
        if (last == PGRES_SINGLE_TUPLE) ++count;
    }
    return last == PGRES_TUPLES_OK ? count : -1;
}

db_result search_run(PGconn* db, const char* sql) {
    db_result rows{PQexecParams(db, sql, 0, nullptr, nullptr, nullptr, nullptr, 0)};
    if (PQresultStatus(rows.get()) != PGRES_TUPLES_OK) return nullptr;
    return rows;
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

void search_emit_counts(wms_strbuf* out, std::int32_t offset, std::int32_t length,
                        std::int32_t total) {
    wms_strbuf_fmt(out, "<start>%d</start>\n<length>%d</length>\n<total>%d</total>\n", offset,
                   length, total);
}

int search_emit_rows(wms_strbuf* out, const PGresult* rows, const char* element,
                     std::span<const search_field> fields) {
    const auto row_room = static_cast<std::int64_t>(fields.size() + 1) * field_room;
    for (int row = 0; row < PQntuples(rows); ++row) {
        if (wms_strbuf_reserve(out, row_room) < 0) {
            wms_strbuf_clear(out);
            return -1;
        }
        append(out, {"<", element, ">\n"});
        for (const search_field& field : fields) {
            emit_as(out, field, PQgetvalue(rows, row, field.column));
        }
        append(out, {"</", element, ">\n"});
    }
    return 0;
}

void wlm_emit_field(wms_strbuf* out, const char* tag, const char* value) {
    if (value == nullptr || *value == '\0') {
        append(out, {"<", tag, "></", tag, ">\n"});
        return;
    }
    char escaped[value_size];
    wuic_sgmlesc(escaped, value_size, value, static_cast<std::int32_t>(std::strlen(value)));
    wlm_emit_cdata(out, tag, escaped);
}

void wlm_emit_cdata(wms_strbuf* out, const char* tag, const char* escaped) {
    append(out, {"<", tag, "><![CDATA[", escaped, "]]></", tag, ">\n"});
}

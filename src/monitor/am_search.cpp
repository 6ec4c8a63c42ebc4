#include "monitor/am_search.h"

#include <array>
#include <string_view>

#include "runtime/cgi.h"
#include "runtime/fsb.h"
#include "runtime/strbuf.h"

#include "monitor/search_rows.h"
#include "monitor/search_terms.h"

namespace {

constexpr int query_size = 1024;

constexpr char query_head[] =
    "SELECT DISTINCT ON (g.wired_mac) g.location AS location, g.name AS name, g.ip AS ip,"
    " g.status AS status, g.ap_type AS ap_type, g.lms_ip AS lmsip, g.strap AS strap,"
    " g.wired_mac AS wired_mac, g.ap_group AS apgroup,  extract(epoch"
    " FROM r.last_update) AS modified_time, r.bssid AS mac, r.phy_type AS phy_type"
    " FROM gapdb.public.global_ap_table AS g  LEFT JOIN gapdb.public.global_radio_table AS r"
    " ON (g.wired_mac = r.wired_mac) WHERE ";

constexpr char monitors_only[] = "(r.type = 'air-monitor' OR r.type = 'sap-monitor') ";

constexpr auto filters = std::to_array<search_column>({
    {.word = "apgroup", .column = "g.ap_group"},
    {.word = "name", .column = "g.name"},
    {.word = "ip", .column = "g.ip"},
    {.word = "status", .column = "g.status"},
});

// Kept: there is no column r.mac, so the server refuses to sort by it.
constexpr auto sort_columns = std::to_array<search_column>({
    {.word = "modified-time", .column = "modified_time"},
    {.word = "apgroup", .column = "g.ap_group"},
    {.word = "name", .column = "g.name"},
    {.word = "ip", .column = "g.ip"},
    {.word = "type", .column = "r.type"},
    {.word = "ap_type", .column = "g.ap_type"},
    {.word = "status", .column = "g.status"},
    {.word = "lmsip", .column = "g.lms_ip"},
    {.word = "mac", .column = "r.mac"},
    {.word = "strap", .column = "g.strap"},
});

constexpr int mac_column = 10;

constexpr auto fields = std::to_array<search_field>({
    {.tag = "loc", .column = 0},
    {.tag = "name", .column = 1},
    {.tag = "ip", .column = 2},
    {.tag = "st", .column = 3},
    {.tag = "ap_type", .column = 4, .as = shown::model},
    {.tag = "lms", .column = 5},
    {.tag = "strap", .column = 6},
    {.tag = "wired-mac", .column = 7},
    {.tag = "apgroup", .column = 8},
    {.tag = "mt", .column = 9},
    {.tag = "mac", .column = mac_column},
    {.tag = "phy", .column = 11},
    {.tag = "oui", .column = mac_column, .as = shown::vendor},
});

bool is_whole(fsb* text) {
    return fsb_append(text, "", 0) > 0;
}

// False when a filter or the text does not fit.
bool append_filters(fsb* text, const cgi* vars) {
    for (const search_column& filter : filters) {
        char literal[search_literal_size];
        const int length = search_literal(literal, vars, filter.word);
        if (length < 0) return false;
        if (length > 0) fsb_fmt(text, "%s LIKE '%%%s%%' AND ", filter.column, literal);
    }
    return is_whole(text);
}

bool append_selection(fsb* text, const cgi* vars) {
    fsb_fmt(text, "%s", query_head);
    search_location_terms(text, search_location(vars), "", " AND ");
    const char* const type = cgi_named_value(vars, "type");
    if (type != nullptr && std::string_view{type} == "strams") fsb_fmt(text, "g.strap = 1 AND ");
    if (!append_filters(text, vars)) return false;
    fsb_fmt(text, "%s", monitors_only);
    return is_whole(text);
}

bool append_order_and_page(fsb* text, const cgi* vars, const search_page& page) {
    if (const char* const criteria = search_criteria(vars)) {
        fsb_fmt(text, " ORDER BY  g.wired_mac ASC, ");
        search_sort_terms(text, criteria, sort_columns);
    }
    fsb_fmt(text, " OFFSET %d LIMIT %d ", page.offset, page.limit);
    return is_whole(text);
}

}  // namespace

int am_search(pg_conn* db, wms_strbuf* out, const cgi* vars) {
    char storage[query_size];
    fsb text;
    fsb_new(&text, storage, query_size);
    if (!append_selection(&text, vars)) return search_refuse(out, search_too_long);
    if (!search_settle_literals(db, storage)) return search_fail(out, db);
    const int total = search_count(db, storage);
    if (total < 0) return search_fail(out, db);
    const std::int32_t begin = out->length;
    if (total == 0) return search_insert_counts(out, begin, {});

    const search_page page = search_page_of(vars);
    if (!append_order_and_page(&text, vars, page)) return search_refuse(out, search_too_long);
    const int length = search_emit_rows(out, db, storage, "am", fields);
    if (length < 0) return -1;
    // Kept: the screens count on this search to report no total.
    search_counts counts = {.length = length};
    if (length > 0) counts.start = page.offset;
    return search_insert_counts(out, begin, counts);
}

#include "monitor/ap_search.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

#include "platform/paths.h"

#include "runtime/cgi.h"
#include "runtime/database.h"
#include "runtime/error_response.h"
#include "runtime/fsb.h"
#include "runtime/log.h"
#include "runtime/strbuf.h"

#include "monitor/am_search.h"
#include "monitor/monitor_handlers.h"
#include "monitor/search_rows.h"
#include "monitor/search_terms.h"

namespace {

constexpr char handler_name[] = "wlmng_search";

struct class_row {
    std::string_view name;
    int code;
    const char* condition;
    const char* narrowed;
};

constexpr char any_managed[] =
    " WHERE (r.type = 'soft-ap' OR r.type = 'disabled' OR r.type = 'mesh-portal'"
    " OR r.type = 'mesh-point' OR g.cpsec_denied = '1' OR r.type IS NULL)";

constexpr auto classes = std::to_array<class_row>({
    {.name = "probes", .code = ap_class_probes, .condition = any_managed, .narrowed = ""},
    {.name = "straps",
     .code = ap_class_straps,
     .condition = any_managed,
     .narrowed = " AND g.strap = 1"},
    {.name = "allmesh",
     .code = ap_class_allmesh,
     .condition = " WHERE (r.type = 'mesh-portal' OR r.type = 'mesh-point')",
     .narrowed = ""},
});

constexpr char tables[] =
    " FROM global_ap_table as g   LEFT JOIN global_radio_table as r      "
    " ON (g.wired_mac = r.wired_mac)";

constexpr char count_columns[] = "g.ip AS ip";
constexpr char count_tail[] = ", g.ip";

// Kept, here and in the tail below: every blank, tab and comma. A radio's time and a value of its
// are glued together, so that the greatest text has the value of the radio that was heard last.
constexpr char data_columns[] =
    "g.name AS name, g.fqln AS fqln, g.ap_group AS apgroup,"
    "  SUBSTRING(MAX( \tCASE WHEN r.phy_type::text = '80211a' THEN \t\t\tCONCAT(r.last_update,"
    " r.type) ELSE '' END), 15) AS aradiotype,"
    " SUBSTRING(MAX( \tCASE WHEN r.phy_type::text = '80211a' THEN  \t\tCONCAT(r.last_update,"
    " r.ht_type) ELSE '' END), 15) AS ahttype,"
    "SUBSTRING(MAX( \tCASE WHEN r.phy_type::text = '80211a' THEN  \t\tCONCAT(r.last_update,"
    " r.bssid) ELSE '' END), 15) AS amac,"
    "SUBSTRING(MAX( \tCASE WHEN r.phy_type::text = '80211a' THEN  \t\tCONCAT(r.last_update,"
    " r.channel) ELSE '' END), 15) AS ach,"
    "SUBSTRING(MAX( \tCASE WHEN r.phy_type::text = '80211a' THEN  \t\tCONCAT(r.last_update,"
    " r.clients) ELSE '' END), 15) AS acl,"
    "SUBSTRING(MAX( \tCASE WHEN r.phy_type::text != '80211a' THEN  \t\tCONCAT(r.last_update,"
    " r.type) ELSE '' END), 15) AS bgradiotype,"
    "  SUBSTRING(MAX( \tCASE WHEN r.phy_type::text != '80211a' THEN  \t\tCONCAT(r.last_update,"
    " r.ht_type) ELSE '' END), 15) AS bghttype,"
    " SUBSTRING(MAX( \tCASE WHEN r.phy_type::text != '80211a' THEN  \t\tCONCAT(r.last_update,"
    " r.bssid) ELSE '' END), 15) AS bgmac,"
    " SUBSTRING(MAX( \tCASE WHEN r.phy_type::text != '80211a' THEN  \t\tCONCAT(r.last_update,"
    " r.channel) ELSE '' END), 15) AS gch,"
    " SUBSTRING(MAX( \tCASE WHEN r.phy_type::text != '80211a' THEN   \t\tCONCAT(r.last_update,"
    " r.clients) ELSE '' END), 15) AS gcl, g.ap_type AS ap_type, g.lms_ip AS lms_ip,"
    "  CASE WHEN r.type IS NULL THEN 'soft-ap' ELSE r.type END AS ap_role,"
    " g.wired_mac AS wired_mac,"
    "  CASE WHEN g.cpsec_denied = '1' THEN  'down(denied)' ELSE g.status::text END AS status,"
    " g.ip AS ip,  g.outer_ip AS outerip, g.strap AS strap, g.mesh AS mesh, g.pppoe AS pppoe,"
    "  g.sensor AS sensor";

constexpr char data_tail[] =
    ", g.name, g.fqln, g.ap_group, g.ap_type, g.lms_ip, r.type, g.cpsec_denied, g,status,g.ip,"
    " g.outer_ip, g.strap, g.mesh, g.pppoe, g.sensor";

constexpr auto filters = std::to_array<search_column>({
    {.word = "name", .column = "g.name"},
    {.word = "role", .column = "r.type"},
    {.word = "apgroup", .column = "g.ap_group"},
    {.word = "ip", .column = "g.ip"},
    {.word = "status", .column = "g.status"},
});

constexpr auto sort_columns = std::to_array<search_column>({
    {.word = "name", .column = "name"},
    {.word = "fqln", .column = "fqln"},
    {.word = "apgroup", .column = "apgroup"},
    {.word = "amac", .column = "amac"},
    {.word = "bgmac", .column = "bgmac"},
    {.word = "wired_mac", .column = "wired_mac"},
    {.word = "loc", .column = "location"},
    {.word = "status", .column = "status"},
    {.word = "apip", .column = "ip"},
    {.word = "type", .column = "ap_type"},
    {.word = "lmsip", .column = "lms_ip"},
    {.word = "bgcpow", .column = "gch"},
    {.word = "acpow", .column = "ach"},
    {.word = "strap", .column = "strap"},
});

// Kept: the element `ipsec` shows the remote-access flag, and the screens read it so.
constexpr auto fields = std::to_array<search_field>({
    {.tag = "name", .column = 0},        {.tag = "fqln", .column = 1},
    {.tag = "apgroup", .column = 2},     {.tag = "aradiotype", .column = 3},
    {.tag = "ahttype", .column = 4},     {.tag = "amac", .column = 5},
    {.tag = "ach", .column = 6},         {.tag = "acl", .column = 7},
    {.tag = "bgradiotype", .column = 8}, {.tag = "bghttype", .column = 9},
    {.tag = "bgmac", .column = 10},      {.tag = "gch", .column = 11},
    {.tag = "gcl", .column = 12},        {.tag = "type", .column = 13, .as = shown::model},
    {.tag = "lms", .column = 14},        {.tag = "role", .column = 15},
    {.tag = "wired_mac", .column = 16},  {.tag = "status", .column = 17},
    {.tag = "ip", .column = 18},         {.tag = "outerip", .column = 19},
    {.tag = "ipsec", .column = 20},      {.tag = "mesh", .column = 21},
    {.tag = "pppoe", .column = 22},      {.tag = "sensor", .column = 23},
});

constexpr auto count_steps = std::to_array({ap_step_count, ap_step_filters, ap_step_grouping});
constexpr auto data_steps = std::to_array(
    {ap_step_data, ap_step_filters, ap_step_grouping, ap_step_ordering, ap_step_paging});

void append_selection(wms_strbuf* text, int ap_class, const char* columns) {
    wms_strbuf_fmt(text, "SELECT ");
    const auto* const row = std::ranges::find(classes, ap_class, &class_row::code);
    if (row == classes.end()) return;
    wms_strbuf_fmt(text, "%s%s%s%s", columns, tables, row->condition, row->narrowed);
}

int append_filters(wms_strbuf* text, const cgi* vars, std::uint32_t location) {
    constexpr int terms_size = 256;
    char terms[terms_size] = "";
    fsb buffer;
    search_location_terms(fsb_new(&buffer, terms, terms_size), location, " AND ", "");
    wms_strbuf_fmt(text, "%s", terms);
    for (const search_column& filter : filters) {
        char literal[search_literal_size];
        const int length = search_literal(literal, vars, filter.word);
        if (length < 0) return -1;
        if (length == 0) continue;
        wms_strbuf_fmt(text, " AND upper(%s) LIKE upper('%%%s%%')", filter.column, literal);
    }
    return 0;
}

void append_order(wms_strbuf* text, const cgi* vars) {
    const char* const criteria = search_criteria(vars);
    if (criteria == nullptr) return;
    char terms[search_sort_size] = "";
    fsb buffer;
    search_sort_terms(fsb_new(&buffer, terms, search_sort_size), criteria, sort_columns);
    wms_strbuf_fmt(text, " ORDER BY %s", terms);
}

// False when a filter does not fit.
bool build_query(wms_strbuf* text, const cgi* vars, int ap_class, std::uint32_t location,
                 std::span<const ap_query_step> steps, const char* tail) {
    wms_strbuf_clear(text);
    return std::ranges::all_of(steps, [&](ap_query_step step) {
        return wlm_ap_query_step(text, vars, ap_class, location, step, tail) == 0;
    });
}

// The search that the request's class names; without one there is nothing to find.
int search_by_class(pg_conn* db, wms_strbuf* out, const cgi* vars) {
    const char* const name = cgi_named_value(vars, "class");
    if (name == nullptr) return 0;
    if (std::string_view{name} == "amii") return am_search(db, out, vars);
    const auto* const row = std::ranges::find(classes, std::string_view{name}, &class_row::name);
    if (row == classes.end()) return 0;
    return wlm_search_aps(db, out, vars, row->code, search_location(vars));
}

}  // namespace

int wlm_ap_query_step(wms_strbuf* text, const cgi* vars, int ap_class, std::uint32_t location,
                      ap_query_step step, const char* tail) {
    switch (step) {
        case ap_step_count:
            append_selection(text, ap_class, count_columns);
            break;
        case ap_step_data:
            append_selection(text, ap_class, data_columns);
            break;
        case ap_step_filters:
            return append_filters(text, vars, location);
        case ap_step_grouping:
            wms_strbuf_fmt(text, " GROUP BY g.wired_mac%s", tail);
            break;
        case ap_step_ordering:
            append_order(text, vars);
            break;
        case ap_step_paging: {
            const search_page page = search_page_of(vars);
            wms_strbuf_fmt(text, " OFFSET %d LIMIT %d", page.offset, page.limit);
            break;
        }
    }
    return 0;
}

int wlm_search_aps(pg_conn* db, wms_strbuf* out, const cgi* vars, int ap_class,
                   std::uint32_t location) {
    // The room for every query there can be, so that no part of one can be missing.
    constexpr std::int64_t query_room = 8192;
    scoped_strbuf text;
    if (wms_strbuf_reserve(text, query_room) < 0) {
        wms_strbuf_clear(out);
        return -1;
    }
    if (!build_query(text, vars, ap_class, location, count_steps, count_tail)) {
        return search_refuse(out, search_too_long);
    }
    if (!search_settle_literals(db, text.buf.data)) return search_fail(out, db);
    // Kept: a count that the server refuses is a count of none.
    const int total = search_count(db, text.buf.data);
    const std::int32_t begin = out->length;
    search_counts counts = {.before = "<status>OK</status>\n"};
    if (total <= 0) return search_insert_counts(out, begin, counts);

    if (!build_query(text, vars, ap_class, location, data_steps, data_tail)) {
        return search_refuse(out, search_too_long);
    }
    counts.length = search_emit_rows(out, db, text.buf.data, "ap", fields);
    if (counts.length < 0) return -1;
    if (counts.length > 0) {
        counts.start = search_page_of(vars).offset;
        counts.total = total;
    }
    return search_insert_counts(out, begin, counts);
}

int wlmng_search(const char* /*key*/, wms_strbuf* response, session_record* /*session*/,
                 pg_conn* /*db*/, cgi* input) {
    const db_conn gapdb = database_connect(paths::db_gap);
    if (!database_is_open(gapdb)) {
        controller_log(log_error, "%s(): can't connect to GAP db:%s\n", handler_name,
                       database_error(gapdb.get()));
        return -1;
    }
    controller_log(log_debug, "%s(): PQconnectdb() for GAP database RETURNED:%d\n", handler_name,
                   static_cast<int>(PQstatus(gapdb.get())));
    wms_strbuf_fmt(response, "%s<qorin>\n<status>OK</status>\n", xml_header);
    if (search_by_class(gapdb.get(), response, input) < 0) return -1;
    wms_strbuf_fmt(response, "</qorin>\n");
    return 0;
}

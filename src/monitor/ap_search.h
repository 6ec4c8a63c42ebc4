// The search for access points that serve clients or form a mesh, and the steps of its queries.
#pragma once

#include <cstdint>

struct cgi;
struct pg_conn;
struct wms_strbuf;

// What is searched for, as the query steps know it.
enum ap_search_class : int { ap_class_probes = 2, ap_class_straps = 3, ap_class_allmesh = 6 };

// The parts of a query, in the order in which they are appended; it begins with one of the first
// two.
enum ap_query_step : int {
    ap_step_count = 1,  // selection of a row per access point
    ap_step_data,       // selection of all that is shown
    ap_step_filters,
    ap_step_grouping,
    ap_step_ordering,  // empty unless the request has sort criteria
    ap_step_paging,
};

// Appends the page of access points of a class (ap_search_class) that the request asks for, or the
// error; a count that the server refuses is a page of none.
//   db        as for am_search
//   location  see search_location
// Returns 0 or -1.
[[nodiscard]] int wlm_search_aps(pg_conn* db, wms_strbuf* out, const cgi* vars, int ap_class,
                                 std::uint32_t location);

// Appends one part of a query; of a class that is none, a selection of nothing, which no server
// takes.
//   tail   what else ap_step_grouping groups by
// Returns 0; -1 when a filter does not fit a literal, `text` then being of no use.
[[nodiscard]] int wlm_ap_query_step(wms_strbuf* text, const cgi* vars, int ap_class,
                                    std::uint32_t location, ap_query_step step, const char* tail);

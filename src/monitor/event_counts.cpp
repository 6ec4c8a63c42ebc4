#include "monitor/event_counts.h"

#include <cstdio>

#include "platform/paths.h"

#include "runtime/database.h"
#include "runtime/log.h"
#include "runtime/strbuf.h"

#include "backend/markup.h"

namespace {

constexpr char log_name[] = "wuic_get_monitor_summary_data";
constexpr std::size_t query_size = 256;
constexpr long long last_minutes = 300;
constexpr long long last_hour = 3600;

enum column { column_type, column_age, column_count, columns };

db_result run_query(PGconn* db, long long now) {
    char query[query_size];
    std::snprintf(query, sizeof query,
                  " SELECT event_type, CASE WHEN extract(epoch from modified_time) >= %lld THEN "
                  "'m'\t\t   WHEN extract(epoch from modified_time) >= %lld THEN 'h'\t\t\t ELSE "
                  "'a'\tEND AS t,\tcount(event_type)\tFROM event_table\tGROUP BY event_type, t",
                  now - last_minutes, now - last_hour);
    controller_log(log_debug, "Wuic_Monitoring_Query is %s", query);
    return db_result(PQexec(db, query));
}

void append_row(wms_strbuf* out, const PGresult* rows, int row) {
    wms_strbuf_fmt(out, "<r>");
    for (int column = 0; column < columns; ++column) {
        wms_strbuf_fmt(out, "<c>");
        markup_append(out, PQgetvalue(rows, row, column));
        wms_strbuf_fmt(out, "</c>");
    }
    wms_strbuf_fmt(out, "</r>\n");
}

}  // namespace

void event_counts_append(wms_strbuf* out, PGconn* db, std::time_t now) {
    const db_result rows = run_query(db, now);
    const bool answered = PQresultStatus(rows.get()) == PGRES_TUPLES_OK;
    if (!answered) controller_log(log_error, "%s: Error in executing the query.", log_name);
    wms_strbuf_fmt(out, "<re><t tn='events'><th><h>type</h><h>time</h><h>count</h></th>");
    for (int row = 0; answered && row < PQntuples(rows.get()); ++row)
        append_row(out, rows.get(), row);
    wms_strbuf_fmt(out, "</t>\n</re>\n");
}

int event_counts_text(wms_strbuf* out) {
    const db_conn db = database_connect(paths::db_wms);
    if (!database_is_open(db)) {
        controller_log(log_error, "%s(): can't connect to WMS db:%s\n", log_name,
                       database_error(db.get()));
        return -1;
    }
    controller_log(log_debug, "%s(): PQconnectdb() for WMS database RETURNED:%d\n", log_name,
                   static_cast<int>(PQstatus(db.get())));
    event_counts_append(out, db.get(), std::time(nullptr));
    return 0;
}

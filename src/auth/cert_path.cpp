#include "auth/cert_path.h"

#include "platform/ownership.h"
#include "platform/paths.h"

#include "runtime/database.h"
#include "runtime/log.h"
#include "runtime/strbuf.h"

#include "auth/field.h"
#include "auth/session_log.h"

namespace {

// The columns are taken by position, as the table has them.
enum column { column_id, column_name, column_path, column_count };

int read_row(const PGresult* rows, std::int32_t after_id, cert_path_record* record) {
    if (PQntuples(rows) < 1 || PQnfields(rows) < column_count) return -1;
    const std::int32_t id = field_int32(PQgetvalue(rows, 0, column_id));
    // An id that cannot be read would let a caller's walk start anew for ever.
    if (id <= after_id) return -1;
    record->id = id;
    field_copy(record->name, PQgetvalue(rows, 0, column_name));
    field_copy(record->path, PQgetvalue(rows, 0, column_path));
    return 0;
}

}  // namespace

int retrive_ca_cert_name(std::int32_t after_id, cert_path_record* record) {
    if (after_id < 0) return -1;
    const db_conn db = database_connect(paths::db_user);
    if (!database_is_open(db)) {
        controller_log(session_log_error, "can't connect to userdbv3 : %s",
                       database_error(db.get()));
        return -1;
    }
    scoped_strbuf text;
    wms_strbuf_fmt(text, "SELECT * FROM cert_path WHERE id > %d order by id limit 1", after_id);
    const db_result rows{PQexec(db.get(), text.buf.data)};
    if (PQresultStatus(rows.get()) != PGRES_TUPLES_OK) {
        controller_log(session_log_error, "%s(%d): Internal Error occurred : %s",
                       session_log_source, __LINE__, database_error(db.get()));
        return -1;
    }
    return read_row(rows.get(), after_id, record);
}

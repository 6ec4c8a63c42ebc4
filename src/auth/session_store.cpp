#include "auth/session_store.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>

#include "platform/ownership.h"

#include "runtime/cgi.h"
#include "runtime/escape.h"
#include "runtime/log.h"
#include "runtime/redaction.h"
#include "runtime/request.h"
#include "runtime/strbuf.h"
#include "runtime/wait.h"

#include "auth/field.h"
#include "auth/session_log.h"

namespace {

// One row in the form in which its values enter a statement.
struct row_literals {
    char sid[128];
    char ip[128];
    char user[512];
    char role[512];
    char path[256];
    int admin;
};

// False when the literal does not fit; `out` is then empty, and no statement may be built from it.
bool escape_literal(std::span<char> out, const char* text) {
    const std::string_view in = text != nullptr ? text : "";
    return wuic_escape_sql(out.data(), static_cast<std::int32_t>(out.size()), in.data(),
                           static_cast<std::int32_t>(in.size()), false) >= 0;
}

// Runs the statement in `text`; null unless it ended with `wanted`. A statement for which memory
// ran out is empty and never ends so.
db_result run(pg_conn* db, const wms_strbuf* text, ExecStatusType wanted) {
    if (text->data == nullptr) return nullptr;
    db_result result{PQexec(db, text->data)};
    if (PQresultStatus(result.get()) != wanted) return nullptr;
    return result;
}

// A statement that writes; none for a client that has left, for whom the one before it may have
// waited.
bool write(pg_conn* db, const wms_strbuf* text) {
    return !client_has_left() && run(db, text, PGRES_COMMAND_OK) != nullptr;
}

// The first row as a record; none when the user or the role is longer than a record holds: a
// command must never run under a part of a name.
std::optional<session_record> read_row(const PGresult* rows, const char* sid) {
    enum column { ip, user, role, modified_time, created_time, admin, path };
    const auto value = [rows](column c) { return PQgetvalue(rows, 0, c); };
    session_record record{};
    field_copy(record.sid, sid);
    field_copy(record.ip, value(ip));
    if (!field_copy(record.user, value(user))) return std::nullopt;
    if (!field_copy(record.role, value(role))) return std::nullopt;
    record.modified_time = field_uint64(value(modified_time));
    record.created_time = field_uint64(value(created_time));
    record.admin = field_int32(value(admin));
    field_copy(record.path, value(path));
    record.found = true;
    return record;
}

std::optional<session_record> find_session(pg_conn* db, const char* sid) {
    char literal[sizeof(row_literals::sid)];
    if (!escape_literal(literal, sid)) return std::nullopt;
    scoped_strbuf text;
    // Every request with a session asks this; putting it together costs less than formatting.
    wms_strbuf_append_all(text, {"SELECT ip, _user, role, extract(epoch FROM modified_time), "
                                 "extract(epoch FROM created_time), admin, path FROM "
                                 "http_session WHERE sid = '",
                                 literal, "'"});
    const db_result rows = run(db, &text.buf, PGRES_TUPLES_OK);
    if (!rows) {
        controller_log(session_log_error, "%s(%d):Can't retrieve session %s: %s",
                       session_log_source, __LINE__, redact_identifier(sid).text,
                       redact_within(PQerrorMessage(db), sid).text);
        return std::nullopt;
    }
    if (PQntuples(rows.get()) < 1) return std::nullopt;
    return read_row(rows.get(), sid);
}

// A session that no lookup would return must not be made either, so user and role must fit a
// session record. A path may become empty.
bool escape_row(row_literals& row, const char* sid, const char* ip, const char* user,
                const char* role, const char* path) {
    session_record limits;
    if (!field_copy(limits.user, user) || !field_copy(limits.role, role)) return false;
    static_cast<void>(escape_literal(row.path, path));
    return escape_literal(row.sid, sid) && escape_literal(row.ip, ip) &&
           escape_literal(row.user, user) && escape_literal(row.role, role);
}

// Older sessions of the same remote-access client. Kept: `user` is written without an underscore
// here, which names the database user and not the column.
bool delete_older_rac_sessions(pg_conn* db, wms_strbuf* text, const row_literals& row) {
    wms_strbuf_clear(text);
    wms_strbuf_fmt(text, "DELETE FROM http_session WHERE ip='%s' AND user='%s' AND role='%s'",
                   row.ip, row.user, row.role);
    return write(db, text);
}

bool delete_same_session(pg_conn* db, wms_strbuf* text, const row_literals& row) {
    wms_strbuf_clear(text);
    wms_strbuf_fmt(text,
                   "DELETE FROM http_session WHERE sid='%s' AND ip='%s' AND _user='%s' AND "
                   "role='%s' AND admin=%d",
                   row.sid, row.ip, row.user, row.role, row.admin);
    return write(db, text);
}

bool insert_session(pg_conn* db, wms_strbuf* text, const row_literals& row) {
    wms_strbuf_clear(text);
    wms_strbuf_fmt(text,
                   "INSERT INTO http_session  values ('%s', '%s', '%s', '%s', '', NOW(), NOW(), "
                   "%d, '%s')",
                   row.sid, row.ip, row.user, row.role, row.admin, row.path);
    return write(db, text);
}

// Counting and inserting are two statements, and other requests count in between unless they wait.
// Every maker of a session takes this lock first; the transaction's end gives it back, as does that
// of the process. The level is stated: a stricter one would count what was there before the wait.
constexpr char begin_creation[] =
    "BEGIN ISOLATION LEVEL READ COMMITTED; SELECT pg_advisory_xact_lock(4343)";

// Undoes at the end of its scope what was not committed.
struct creation_transaction {
    explicit creation_transaction(pg_conn* connection) noexcept : db(connection) {}
    ~creation_transaction() {
        // For a client that has left nothing more is asked: the worker closes the connection.
        const bool is_open = PQtransactionStatus(db) != PQTRANS_IDLE;
        if (is_open && !client_has_left()) PQclear(PQexec(db, "ROLLBACK"));
    }
    creation_transaction(const creation_transaction&) = delete;
    creation_transaction& operator=(const creation_transaction&) = delete;

    [[nodiscard]] bool begin() const {
        return !client_has_left() && ended_with(begin_creation, PGRES_TUPLES_OK);
    }
    [[nodiscard]] bool commit() const {
        return !client_has_left() && ended_with("COMMIT", PGRES_COMMAND_OK);
    }

  private:
    [[nodiscard]] bool ended_with(const char* statement, ExecStatusType wanted) const {
        const db_result result{PQexec(db, statement)};
        return PQresultStatus(result.get()) == wanted;
    }
    pg_conn* db;
};

// Leaves the reason in `text`, whatever stood there.
void keep_reason(wms_strbuf* text, const char* reason) {
    wms_strbuf_clear(text);
    wms_strbuf_append(text, reason, static_cast<std::int32_t>(std::strlen(reason)));
}

int not_created(wms_strbuf* text, const char* sid, const char* reason) {
    controller_log(session_log_error, "%s(%d):Can't update a new session: %s, %s",
                   session_log_source, __LINE__, redact_identifier(sid).text,
                   redact_within(reason, sid).text);
    keep_reason(text, reason);
    return -1;
}

int limit_reached(wms_strbuf* text) {
    wuic_log(session_log_error, "Reached session limit: %d", session_limit);
    controller_log(session_log_error, "%s(%d): Reached session limit %d", session_log_source,
                   __LINE__, session_limit);
    keep_reason(text, "");
    return -2;
}

int older_not_deleted(wms_strbuf* text, const char* reason) {
    controller_log(session_log_error, "%s(%d): RAC: Can't delete old session: %s",
                   session_log_source, __LINE__, reason);
    keep_reason(text, reason);
    return -1;
}

}  // namespace

int wuic_session_retrieve(pg_conn* db, const cgi* vars, session_record* record, const char* sid) {
    *record = {};
    if (sid == nullptr) sid = cgi_get_var(vars, "QORIN_AUTH_SESSION_ID");
    if (sid == nullptr || *sid == '\0') return -1;

    // An identifier that the record cannot hold is none of ours: a part of it is not looked up.
    const bool whole = field_copy(record->sid, sid);
    const auto row = whole ? find_session(db, sid) : std::nullopt;
    if (row) *record = *row;
    if (request_is_factory_default()) {
        field_copy(record->role, "root");
        record->found = true;
    }
    return record->found ? 0 : -1;
}

int get_session_count(pg_conn* db) {
    const db_result rows{PQexec(db, "SELECT COUNT(*) FROM http_session")};
    if (PQresultStatus(rows.get()) != PGRES_TUPLES_OK || PQntuples(rows.get()) < 1) {
        controller_log(session_log_error, "%s(%d):Can't retrieve session count: %s",
                       session_log_source, __LINE__, PQerrorMessage(db));
        return -1;
    }
    const std::string_view text = PQgetvalue(rows.get(), 0, 0);
    int count = -1;
    std::from_chars(text.data(), text.data() + text.size(), count);
    return count;
}

// NOLINTNEXTLINE(readability-function-size): fixed interface
int wuic_session_create(pg_conn* db, wms_strbuf* text, char* sid_out, const char* ip,
                        const char* user, const char* role, bool rac, const char* path) {
    wuic_get_uuid(sid_out, session_sid_size);
    row_literals row{};
    row.admin = rac ? 0 : 1;
    if (sid_out[0] == '\0' || !escape_row(row, sid_out, ip, user, role, path)) {
        return not_created(text, sid_out, "no identifier, or a value is too long");
    }
    const creation_transaction transaction(db);
    const int count = transaction.begin() ? get_session_count(db) : -1;
    if (count >= session_limit) return limit_reached(text);
    // Without a count the limit cannot be kept, so nothing is stored.
    if (count < 0) return not_created(text, sid_out, PQerrorMessage(db));
    if (rac && !delete_older_rac_sessions(db, text, row)) {
        return older_not_deleted(text, PQerrorMessage(db));
    }
    if (!delete_same_session(db, text, row) || !insert_session(db, text, row) ||
        !transaction.commit()) {
        return not_created(text, sid_out, PQerrorMessage(db));
    }
    return 0;
}

int wuic_session_delete(pg_conn* db, const char* sid) {
    char literal[sizeof(row_literals::sid)];
    if (sid == nullptr || *sid == '\0' || !escape_literal(literal, sid)) return -1;
    if (client_has_left()) return -1;
    // No buffer that grows: a session must go even where memory ran out.
    char text[sizeof literal + 64];
    std::snprintf(text, sizeof text, "DELETE FROM http_session WHERE sid = '%s'", literal);
    const db_result result{PQexec(db, text)};
    if (PQresultStatus(result.get()) == PGRES_COMMAND_OK) return 0;
    controller_log(session_log_error, "%s(%d):Can't delete session %s: %s", session_log_source,
                   __LINE__, redact_identifier(sid).text,
                   redact_within(PQerrorMessage(db), sid).text);
    return -1;
}

#include "runtime/database.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <span>
#include <utility>

#include "platform/paths.h"

#include "runtime/error_response.h"
#include "runtime/log.h"
#include "runtime/wait.h"

namespace {

constexpr std::size_t reason_size = 1024;
constexpr char literals_setting[] = "standard_conforming_strings";
constexpr char set_options[] =
    "SET standard_conforming_strings TO off; SET escape_string_warning TO off";
constexpr char server_options[] = "-c standard_conforming_strings=off -c escape_string_warning=off";

struct database_row {
    const char* conninfo;
    const char* name;   // as the error line writes it
    const char* label;  // as the debug line writes it
    db_conn controller_databases::*slot;
};

constexpr auto databases_table = std::to_array<database_row>({
    {.conninfo = paths::db_wms,
     .name = "WMS db",
     .label = "WMS",
     .slot = &controller_databases::wms},
    {.conninfo = paths::db_gap,
     .name = "GAP db",
     .label = "GAP",
     .slot = &controller_databases::gapdb},
    {.conninfo = paths::db_cfgm,
     .name = "CFGM db",
     .label = "CFGM",
     .slot = &controller_databases::cfgmdb},
    {.conninfo = paths::db_user,
     .name = "userdbv3 ",
     .label = "USER",
     .slot = &controller_databases::userdb},
});

// A connection in the making. It waits for its socket in the direction that `wants` names until it
// is open or failed.
struct pending_connection {
    db_conn conn;
    PostgresPollingStatusType wants = PGRES_POLLING_FAILED;
};

using pending_connections = std::array<pending_connection, databases_table.size()>;

bool reads_backslashes(const PGconn* conn) {
    const char* const value = PQparameterStatus(conn, literals_setting);
    return value != nullptr && std::strcmp(value, "off") == 0;
}

// The options of the start-up may be lost on the way, in a connection pooler for one.
void require_backslashes(PGconn* conn) {
    if (PQstatus(conn) != CONNECTION_OK || reads_backslashes(conn)) return;
    const db_result ignored(PQexec(conn, set_options));
}

bool is_settled(const pending_connection& pending) {
    return pending.wants == PGRES_POLLING_OK || pending.wants == PGRES_POLLING_FAILED;
}

pending_connection start_connection(const char* conninfo) {
    pending_connection pending = {.conn = db_conn(PQconnectStart(conninfo))};
    const bool started = pending.conn && PQstatus(pending.conn.get()) != CONNECTION_BAD;
    // The library's rule: a connection that was just started waits to write.
    pending.wants = started ? PGRES_POLLING_WRITING : PGRES_POLLING_FAILED;
    return pending;
}

// The socket is asked for each time, since the library may have opened another one.
pollfd poll_entry(const pending_connection& pending) {
    if (is_settled(pending)) return {.fd = -1, .events = 0, .revents = 0};
    const short events = pending.wants == PGRES_POLLING_READING ? POLLIN : POLLOUT;
    return {.fd = PQsocket(pending.conn.get()), .events = events, .revents = 0};
}

// True when some connection can no longer change what is reported: all are open, or one failed and
// all before it are open.
bool is_decided(const pending_connections& all) {
    for (const pending_connection& pending : all) {
        if (pending.wants == PGRES_POLLING_FAILED) return true;
        if (pending.wants != PGRES_POLLING_OK) return false;
    }
    return true;
}

// Waits once and lets every connection whose socket is ready take its next step. Returns false when
// waiting is impossible.
bool advance(std::span<pending_connection> all) {
    std::array<pollfd, databases_table.size()> entries = {};
    for (std::size_t i = 0; i < all.size(); ++i)
        entries[i] = poll_entry(all[i]);
    if (wait_for(std::span(entries).first(all.size())) < 0) return errno == EINTR;
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (entries[i].revents != 0) all[i].wants = PQconnectPoll(all[i].conn.get());
    }
    return true;
}

void report_failure(const database_row& row, const PGconn* conn, wms_strbuf* response) {
    const char* const reason = database_error(conn);
    char escaped[reason_size];
    wuic_generic_error(response, "can't connect to db: %s",
                       error_text_escape(escaped, sizeof escaped, reason));
    controller_log(log_error, "can't connect to %s: %s", row.name, reason);
    controller_log(log_debug, "%s(): PQconnectdb() for %s database RETURNED:%d\n", "main",
                   row.label, static_cast<int>(PQstatus(conn)));
}

// Takes in what the server sent to idle connections: its farewell, and then the end. Returns false
// when there was nothing, or nothing more can be had.
bool take_in_news(controller_databases* databases) {
    std::array<pollfd, databases_table.size()> entries = {};
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const PGconn* const conn = (databases->*databases_table[i].slot).get();
        const int fd = PQstatus(conn) == CONNECTION_OK ? PQsocket(conn) : -1;
        entries[i] = {.fd = fd, .events = POLLIN, .revents = 0};
    }
    if (poll(entries.data(), entries.size(), 0) <= 0) return false;
    bool came = false;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (entries[i].revents == 0) continue;
        came = true;
        if (PQconsumeInput((databases->*databases_table[i].slot).get()) == 0) {
            (databases->*databases_table[i].slot).reset();
        }
    }
    return came;
}

bool are_open(const controller_databases& databases) {
    return std::ranges::all_of(databases_table, [&databases](const database_row& row) {
        return PQstatus((databases.*row.slot).get()) == CONNECTION_OK;
    });
}

// Opens those that are not open. Returns 0, or -1 at the first one that failed.
int open_missing(controller_databases* databases, wms_strbuf* response) {
    pending_connections all;
    for (std::size_t i = 0; i < all.size(); ++i) {
        db_conn& conn = databases->*databases_table[i].slot;
        if (database_is_open(conn)) {
            all[i] = {.conn = std::move(conn), .wants = PGRES_POLLING_OK};
        } else {
            conn.reset();
            all[i] = start_connection(databases_table[i].conninfo);
        }
    }
    while (!is_decided(all)) {
        if (!advance(all)) break;
    }
    int result = 0;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const database_row& row = databases_table[i];
        db_conn& conn = all[i].conn;
        if (all[i].wants == PGRES_POLLING_OK) require_backslashes(conn.get());
        if (database_is_open(conn)) {
            databases->*row.slot = std::move(conn);
        } else if (result == 0) {
            report_failure(row, conn.get(), response);
            result = -1;
        }
    }
    return result;
}

}  // namespace

bool database_init() {
    // Without it the library has the C library look up the user, which costs every connection two
    // files and crashes where memory runs out.
    if (setenv("HOME", paths::root_home, 0) != 0) return false;
    // In some encodings a backslash is the second byte of a character, and escapes nothing.
    return setenv("PGOPTIONS", server_options, 1) == 0 &&
           setenv("PGCLIENTENCODING", "UTF8", 1) == 0;
}

int databases_open(controller_databases* databases, wms_strbuf* response) {
    const int result = open_missing(databases, response);
    if (result != 0) *databases = {};
    return result;
}

int databases_renew(controller_databases* databases, wms_strbuf* response) {
    // The farewell and the end come one after the other; a server that talks on is not waited for.
    constexpr int rounds = 8;
    int round = 0;
    while (round < rounds && take_in_news(databases))
        ++round;
    // Nothing was said between requests, and what was said during one has been looked at.
    if (round == 0 && are_open(*databases)) return 0;
    if (client_has_left()) return -1;
    return open_missing(databases, response);
}

void databases_settle(controller_databases* databases) {
    for (const database_row& row : databases_table) {
        db_conn& conn = databases->*row.slot;
        const bool is_idle = PQtransactionStatus(conn.get()) == PQTRANS_IDLE;
        if (!is_idle || !reads_backslashes(conn.get())) conn.reset();
    }
}

db_conn database_connect(const char* conninfo) {
    if (client_has_left()) return {};
    pending_connection pending = start_connection(conninfo);
    while (!is_settled(pending)) {
        if (!advance({&pending, 1})) break;
    }
    require_backslashes(pending.conn.get());
    return std::move(pending.conn);
}

bool database_is_open(const db_conn& connection) {
    return PQstatus(connection.get()) == CONNECTION_OK && reads_backslashes(connection.get());
}

const char* database_error(const PGconn* connection) {
    const bool refused = PQstatus(connection) == CONNECTION_OK && !reads_backslashes(connection);
    return refused ? "the server does not let standard_conforming_strings be turned off"
                   : PQerrorMessage(connection);
}

#include "fake_database.h"

#include <fcntl.h>

#include <libpq-fe.h>

// The library's own functions are found behind these.
struct pg_conn {
    int rows_to_send = -1;  // of the statement that runs; -1: none does
};

struct pg_result {
    ExecStatusType status;
    std::string cells[2];
};

fake_database& the_fake_database() {
    static fake_database database;
    return database;
}

namespace {

using std::string_view;

bool is_refused() {
    const fake_database& server = the_fake_database();
    return server.refused > 0 && server.sent.size() == static_cast<std::size_t>(server.refused);
}

// Of several statements the last one's answer counts.
bool selects(string_view text) {
    const std::size_t last = text.rfind("; ");
    if (last != string_view::npos && text.starts_with("BEGIN")) text.remove_prefix(last + 2);
    return text.starts_with("SELECT");
}

void follow_transaction(fake_database* server, string_view text) {
    if (text.starts_with("BEGIN")) server->in_transaction = true;
    if (text == "COMMIT" || text == "ROLLBACK") server->in_transaction = false;
}

PGresult* settle_literals(fake_database* server, string_view text) {
    if (!server->can_be_settled) return new PGresult{PGRES_FATAL_ERROR, {}};
    server->reads_backslashes = !text.ends_with(" TO on");
    return new PGresult{PGRES_COMMAND_OK, {}};
}

}  // namespace

extern "C" {

PGconn* PQconnectStart(const char* /*conninfo*/) {
    return new PGconn;
}

// Always ready.
int PQsocket(const PGconn* /*conn*/) {
    static const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    return nothing;
}

PostgresPollingStatusType PQconnectPoll(PGconn* /*conn*/) {
    return PGRES_POLLING_OK;
}

void PQfinish(PGconn* conn) {
    delete conn;
}

ConnStatusType PQstatus(const PGconn* /*conn*/) {
    return CONNECTION_OK;
}

const char* PQparameterStatus(const PGconn* /*conn*/, const char* /*name*/) {
    return the_fake_database().reads_backslashes ? "off" : "on";
}

PGTransactionStatusType PQtransactionStatus(const PGconn* /*conn*/) {
    return the_fake_database().in_transaction ? PQTRANS_INTRANS : PQTRANS_IDLE;
}

char* PQerrorMessage(const PGconn* /*conn*/) {
    return the_fake_database().cell.data();
}

PGresult* PQexec(PGconn* /*conn*/, const char* query) {
    fake_database& server = the_fake_database();
    const string_view text = query;
    if (text.starts_with("SET standard_conforming_strings")) return settle_literals(&server, text);
    server.sent.push_back({query, server.reads_backslashes});
    if (is_refused()) return new PGresult{PGRES_FATAL_ERROR, {}};
    follow_transaction(&server, text);
    if (!selects(text)) return new PGresult{PGRES_COMMAND_OK, {}};
    if (text.starts_with("SELECT COUNT")) return new PGresult{PGRES_TUPLES_OK, {"3", ""}};
    return new PGresult{PGRES_TUPLES_OK, {server.cell, server.other}};
}

int PQntuples(const PGresult* result) {
    return result->status == PGRES_TUPLES_OK ? 1 : 0;
}

// NOLINTNEXTLINE(readability-function-size): the library's interface
int PQsendQueryParams(PGconn* conn, const char* command, int /*count*/, const Oid* /*types*/,
                      const char* const* /*values*/, const int* /*lengths*/, const int* /*formats*/,
                      int /*format*/) {
    fake_database& server = the_fake_database();
    server.sent.push_back({command, server.reads_backslashes});
    conn->rows_to_send = server.rows;
    return 1;
}

int PQsetSingleRowMode(PGconn* /*conn*/) {
    return 1;
}

PGresult* PQgetResult(PGconn* conn) {
    fake_database& server = the_fake_database();
    if (conn->rows_to_send < 0) return nullptr;
    if (!is_refused() && conn->rows_to_send > 0) {
        --conn->rows_to_send;
        return new PGresult{PGRES_SINGLE_TUPLE, {server.cell, server.other}};
    }
    conn->rows_to_send = -1;
    const bool failed = is_refused() || server.breaks_off;
    return new PGresult{failed ? PGRES_FATAL_ERROR : PGRES_TUPLES_OK, {}};
}

ExecStatusType PQresultStatus(const PGresult* result) {
    return result != nullptr ? result->status : PGRES_FATAL_ERROR;
}

char* PQgetvalue(const PGresult* result, int /*row*/, int column) {
    return const_cast<char*>(result->cells[column % 2].c_str());
}

void PQclear(PGresult* result) {
    delete result;
}
}

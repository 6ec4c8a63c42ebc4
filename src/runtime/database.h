// Connections to the controller's PostgreSQL databases.
//
// wuic_escape_sql puts backslashes into literals, and by default PostgreSQL takes those for plain
// characters: the quote behind one would end the literal. Connections therefore have
// standard_conforming_strings off; one that does not is refused. And queries are sent as UTF-8
// whatever the database or the role is set to, since a backslash is itself in every UTF-8 text.
#pragma once

#include "platform/ownership.h"

struct wms_strbuf;

struct controller_databases {
    db_conn wms;
    db_conn gapdb;
    db_conn cfgmdb;
    db_conn userdb;
};

// Sets PGOPTIONS and PGCLIENTENCODING for this process, and HOME where there is none; called once,
// before the first connection. Without memory for them it returns false, and nothing may be
// connected to: what is put into a statement is escaped for these settings.
[[nodiscard]] bool database_init();

// Opens the four databases side by side. Returns 0; or -1 at the first one (in the order of the
// record) that failed: its document is in `response`, the log lines are written, nothing stays
// open.
[[nodiscard]] int databases_open(controller_databases* databases, wms_strbuf* response);

// For a process that keeps the four from one request to the next: notices which of them the server
// has closed, and opens those, and all that are missing, side by side. Waits for nothing where all
// are well. Results as databases_open, but that the open ones stay; -1 without a document when the
// request's client has left (runtime/wait.h).
[[nodiscard]] int databases_renew(controller_databases* databases, wms_strbuf* response);

// Between two requests: closes the connections in which one left anything unfinished, or the
// setting of literals other than it has to be.
void databases_settle(controller_databases* databases);

// Opens one more connection with the same settings check. The result may be null when memory ran
// out or the request's client has left, for which it does not wait any longer; it may be used when
// database_is_open, else database_error gives the reason.
[[nodiscard]] db_conn database_connect(const char* conninfo);
bool database_is_open(const db_conn& connection);
// Why a connection (null included) is not open: the library's message, or that the setting was
// refused; dies with the connection.
const char* database_error(const PGconn* connection);

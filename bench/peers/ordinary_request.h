/* The work of an ordinary request, written as plainly as possible in C: what the peers share. */
#pragma once

#include <stdbool.h>
#include <stddef.h>

#include <libpq-fe.h>

enum { database_count = 4, answer_size = 65536 };

/* Opens the four databases, one after the other; databases[0] holds the sessions. */
bool open_databases(PGconn* databases[database_count]);

/* The session's row; the caller clears it. Null unless there is exactly one. */
PGresult* find_session(PGconn* database, const char* sid);

/* Runs a command over the helper's socket: the user, address, session and command out, the output
 * into `out`. Returns its size, or -1. */
long exchange(const char* const fields[4], char* out, size_t size);

/* The whole response, header included, to a command in the query; either may be null. Returns its
 * size, or -1. */
long answer(PGconn* database, const char* sid, const char* query, char out[answer_size]);

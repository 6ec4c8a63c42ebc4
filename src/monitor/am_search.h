// The search for air monitors: access points with a radio that only listens.
#pragma once

struct cgi;
struct pg_conn;
struct wms_strbuf;

// Appends the page of air monitors that the request asks for, or the server's error.
//   db   connection of its own to the database gapdb: its reading of literals may be changed
// Returns 0 or -1.
[[nodiscard]] int am_search(pg_conn* db, wms_strbuf* out, const cgi* vars);

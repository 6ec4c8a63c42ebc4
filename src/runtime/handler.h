// The one signature of request handlers.
#pragma once

struct pg_conn;
struct cgi;
struct session_record;
struct wms_strbuf;

// Handles one request.
//   key       the key under which the row was looked up
//   response  takes the whole CGI response, header fields included (RFC 3875 section 6)
//   session   the caller's session; `found` tells whether there is one
//   db        connection to the database wms; borrowed
//   input     the parsed request
// Returns 0, or a negative value; one that leaves the response empty is answered by the dispatcher
// with the generic error "Internal error".
using request_handler = int(const char* key, wms_strbuf* response, session_record* session,
                            pg_conn* db, cgi* input);

// Answers in the place of a handler whose row is served under its own path alone.
using path_refusal = void(wms_strbuf* response, const cgi* input);

// Produces the XML body of a wrapped row from the unescaped query (writable, never null). Returns a
// malloc'ed, NUL-terminated text that the wrapper frees, or null.
using wrapper_target = char*(session_record* session, char* query);

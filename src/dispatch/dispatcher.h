// From a parsed request with its session to the one handler that answers it.
#pragma once

struct cgi;
struct pg_conn;
struct request_name;
struct session_record;
struct wms_strbuf;

// Serves one request by the row of its form field "opcode", else by that of its name: checks that
// no page of another site sent it (but for rows that such a page may call), role and token, and
// calls the handler. A row that takes passwords is not served where only "opcode" leads to it.
// Refusals are written into the response, too.
void dispatch_request(const request_name& name, wms_strbuf* response, session_record* session,
                      pg_conn* db, cgi* input);

// The same for a name whose row has not been looked up. Returns 0.
int wuic_cgi(const char* program_name, wms_strbuf* response, session_record* session, pg_conn* db,
             cgi* input);

// A spooled upload writes to flash while it is being parsed, so who may send one is decided before:
// true when the session's role passes the mask of every upload page that the request's URI names,
// and no page of another site sent it. Otherwise the refusal is in the response.
[[nodiscard]] bool may_spool_upload(wms_strbuf* response, const session_record* session,
                                    const cgi* input);

// Serves rows whose body comes from a plain function (dispatch_row::wrapped).
#pragma once

struct cgi;
struct dispatch_row;
struct session_record;
struct wms_strbuf;

// Serves callers with a session; on a factory-default controller, anyone. Hands the URL-decoded
// query to the row's target and answers with the XML that it returns, or with an error when that is
// null. A row without a target is answered with the error "not implemented".
//   key  the key under which the row was looked up
void generic_wrapper(const dispatch_row& row, const char* key, wms_strbuf* response,
                     session_record* session, cgi* input);

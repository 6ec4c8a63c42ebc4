// What a controller in its factory-default state serves: a few setup endpoints, and one page for
// everything else.
#pragma once

struct wms_strbuf;

// True when the last path element of `program_name`, cut at its first "?", is that of a row which
// is served meanwhile (dispatch_row::in_setup).
bool is_setup_key(const char* program_name);

// Answers with the setup page. It sets the session cookie to a fresh identifier and shows the same
// as the token: the setup endpoints ask for both.
void write_setup_page(wms_strbuf* response);

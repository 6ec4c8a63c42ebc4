// What the HTTP server's location settings say about logging in: the QORIN_AUTH_* variables.
#pragma once

struct cgi;

// Texts belong to the CGI variables; null where a variable is missing.
struct login_settings {
    const char* cookie_name;
    const char* login_cgi;  // login path of the location that sent the request
    const char* logout_cgi;
    const char* session_timeout;  // decimal
    const char* reason;           // why the server redirected
    const char* req_url;          // the URL that the client asked for first
};

// Reads the variables whose names begin with REDIRECT_. Where these lack the cookie name or one of
// the two paths, everything but the URL comes from the plain names instead. For the URL the plain
// name serves when its REDIRECT_ one is missing or empty.
[[nodiscard]] login_settings login_settings_read(const cgi* vars);

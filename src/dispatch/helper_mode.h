// The program as a small command helper of the controller: "wms.cgi wuic ...".
#pragma once

// True when this process was started as a helper: entry 1 is "wuic", and no web server is behind it
// (a server that follows RFC 3875 section 4.4 turns a query without "=" into arguments).
bool helper_mode_requested(int argc, const char* const* argv);

// Runs the helper. Returns the exit status, 0 or -1; does not return when another program took this
// process over.
int helper_mode_run(int argc, const char* const* argv);

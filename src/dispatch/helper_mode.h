// The program as a small command helper of the controller: "wms.cgi wuic ...".
#pragma once

// True when this process was started as a helper: entry 1 is "wuic", and GATEWAY_INTERFACE is not
// set. Behind a web server the arguments are the client's: RFC 3875 section 4.4 makes search words
// of a query and passes them on.
bool helper_mode_requested(int argc, const char* const* argv);

// Runs the helper. Returns the exit status, 0 or -1; does not return when another program took this
// process over.
int helper_mode_run(int argc, const char* const* argv);

// Handlers that ask the CLI helper on the program's own behalf: the request is theirs, only its
// argument is the browser's.
#pragma once

#include "runtime/handler.h"

// NOLINTBEGIN(readability-identifier-naming): fixed names

// An argument with an "&" in it could add a parameter to the request that it becomes part of. Such
// a query or address is refused with command_invalid, and nothing is sent; an identifier only where
// a piece behind an "&" begins with the name of a parameter of the command service and "=".

// The query in the form field "query"; an error document when there is none. The body is empty when
// the helper fails.
request_handler execUiQuery;

// Forwards a monitoring-protocol message for the address in the form field "srcIP". Without that
// and a field "msgType" the response stays empty; so does the body when the helper fails.
request_handler execDTLSTELMQuery;

// The running configuration for the application whose identifier is the query string; the helper's
// message as a generic error when it fails.
request_handler getRunningConfigForApplication;

// Saves the configuration, and answers whether that worked. Called by other handlers: it replaces
// what the response held. `input` is not used.
request_handler saveConfiguration;

// NOLINTEND(readability-identifier-naming)

// Handlers that run a command for the browser and pass its XML reply on. A command ends at its
// first CR or LF; one of which nothing is left is answered with the generic error "Invalid
// arguments" and -1. What the role may not send is answered like a failure (command.h).
#pragma once

#include "runtime/handler.h"

// Refuses a request: the generic error "Invalid arguments". Returns -1, the handler's result then.
int command_invalid(wms_strbuf* response);

// The raw query string, URL-decoded in place: the command of most handlers here. Null when there is
// none; the response is then the generic error "Invalid arguments" and the handler returns -1. The
// text belongs to `input`.
[[nodiscard]] char* command_from_query(cgi* input, wms_strbuf* response);

// Ends a command with its line. False when nothing is left of it; the response is then the generic
// error "Invalid arguments" and the handler returns -1.
[[nodiscard]] bool command_end(wms_strbuf* response, char* command);

// NOLINTBEGIN(readability-identifier-naming): fixed names

// The whole query string, or the form field "cmd", as one command. Neither a reply nor a message is
// an empty body.
request_handler execCommandWithContext;
request_handler execCommandPostWithContext;

// The query string as a list of commands, separated by commas: their answers in one document. More
// than a list holds are refused with "Invalid arguments" before the first is run.
request_handler execCommandsWithContext;

// The query string as a command of which only success or failure is told.
request_handler executeSimpleCommand;

// The query string as a command of the fast path.
request_handler execFPCliCommandWithContext;

// NOLINTEND(readability-identifier-naming)

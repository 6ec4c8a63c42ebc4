// Handlers that run a command for the browser and pass its XML reply on. A command ends at its
// first CR or LF; one of which nothing is left is answered with the generic error "Invalid
// arguments" and -1. What the role may not send is answered like a failure (command.h).
#pragma once

#include "runtime/handler.h"

// NOLINTBEGIN(readability-identifier-naming): fixed names

// The whole query string, or the form field "cmd", as one command. Neither a reply nor a message is
// an empty body.
request_handler execCommandWithContext;
request_handler execCommandPostWithContext;

// The query string as commands separated by commas: their answers in one document. More than are
// split (command_text.h) are refused with "Invalid arguments" before the first is run.
request_handler execCommandsWithContext;

// The query string as a command of which only success or failure is told.
request_handler executeSimpleCommand;

// The query string as a command of the fast path.
request_handler execFPCliCommandWithContext;

// NOLINTEND(readability-identifier-naming)

// Handlers that run a command for the browser and pass its XML reply on.
#pragma once

#include <cstdint>

#include "runtime/handler.h"

// Decodes the eight references that the browser writes for characters of a command, repeatedly, so
// that a decoded "&" can form a new one. In place; `size` is the text's length. The text is
// NUL-terminated. Linear in the text.
void command_unencode(char* text, std::int32_t size);

// Runs the whole query string as one command.
request_handler execCommandWithContext;  // NOLINT(readability-identifier-naming): fixed name

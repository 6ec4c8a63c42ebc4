// Handlers that run a command for the browser and pass its XML reply on, and how a command is made
// ready. A command ends at its first CR or LF; one of which nothing is left is answered with the
// generic error "Invalid arguments" and -1. What the role may not send is answered like a failure
// (command.h).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "runtime/handler.h"

// Refuses a request: the generic error "Invalid arguments". Returns -1, the handler's result then.
int command_invalid(wms_strbuf* response);

// The raw query string, URL-decoded in place: the command of most handlers here. Null when there is
// none; the response is then the generic error "Invalid arguments" and the handler returns -1. The
// text belongs to `input`.
[[nodiscard]] char* command_from_query(cgi* input, wms_strbuf* response);

// Decodes "%" and "+" (RFC 3986 section 2.1, HTML forms) in place; NUL-terminated.
void command_url_decode(char* text);

// Cuts the text at its last "@@": what follows is the page's own context and no part of the
// command.
void command_cut_context(char* command);

// Cuts the text at its first CR or LF.
void command_cut_line(char* command);

// Ends a command with its line. False when nothing is left of it; the response is then the generic
// error "Invalid arguments" and the handler returns -1.
[[nodiscard]] bool command_end(wms_strbuf* response, char* command);

// Decodes the eight references that the browser writes for characters of a command, repeatedly, so
// that a decoded "&" can form a new one. In place; `size` is the text's length. The text is
// NUL-terminated. Linear in the text.
void command_unencode(char* text, std::int32_t size);
void command_unencode(char* text);  // as long as its NUL tells

// The commands or ports of one request: pieces of its text, NUL-terminated, none of them empty.
struct command_list {
    std::array<char*, 4096> items;
    std::size_t count = 0;

    std::span<char* const> view() const { return {items.data(), count}; }
};

// Cuts the text at every byte of `separator` and lists the pieces; empty ones are left out. False
// when there are more than a list holds.
[[nodiscard]] bool command_split(char* text, const char* separator, command_list* list);

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

// Handlers that run a command for the browser and pass its XML reply on.
#pragma once

#include <cstdint>

#include "runtime/handler.h"

// The raw query string, URL-decoded in place: the command of most handlers here. Null when there is
// none; the response is then the generic error "Invalid arguments" and the handler returns -1. The
// text belongs to `input`.
[[nodiscard]] char* command_from_query(cgi* input, wms_strbuf* response);

// Cuts the text at its last "@@": what follows is the page's own context and no part of the
// command.
void command_cut_context(char* command);

// Decodes the eight references that the browser writes for characters of a command, repeatedly, so
// that a decoded "&" can form a new one. In place; `size` is the text's length. The text is
// NUL-terminated. Linear in the text.
void command_unencode(char* text, std::int32_t size);

// Appends what the helper answered: the reply (null when there was none) unchanged when `msg` is
// empty; else the message as it is when it is an error document itself, and otherwise, escaped for
// markup, as "<re><ERROR>message</ERROR></re>". Returns 0; -1, the response unchanged, when it
// cannot grow for a reply or an error document. A wrapped message for which it cannot grow is left
// out.
[[nodiscard]] int command_append_reply(wms_strbuf* response, const char* reply,
                                       std::int32_t reply_len, const char* msg);

// Runs one command as the session's user and appends the answer by that rule; nothing when there is
// neither a reply nor a message. Result as command_append_reply.
[[nodiscard]] int command_execute(wms_strbuf* response, const session_record* session,
                                  const char* command);

// Runs the whole query string as one command.
request_handler execCommandWithContext;  // NOLINT(readability-identifier-naming): fixed name

// One command of a session: taken from the request, judged, run, and what the browser reads of the
// answer.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/ownership.h"

#include "backend/cli_helper.h"

struct cgi;
struct session_record;
struct wms_strbuf;

// Refuses a request: the generic error "Invalid arguments". Returns -1, the handler's result then.
int command_invalid(wms_strbuf* response);

// The raw query string, URL-decoded in place: the command of most handlers that take one. Null when
// there is none; the request is then refused as above. The text belongs to `input`.
[[nodiscard]] char* command_from_query(cgi* input, wms_strbuf* response);

// Ends a command with its line. False when nothing is left of it; the request is then refused.
[[nodiscard]] bool command_end(wms_strbuf* response, char* command);

struct command_outcome {
    malloc_text reply;  // null when there was none
    std::int32_t reply_len = 0;
    char msg[cli_message_size] = "";
    bool complete = false;  // the exchange came to its end
    bool failed = false;    // it did not, or there is a message
};

// Has the CLI helper run one of the program's own commands as the session's user.
[[nodiscard]] command_outcome command_run(const session_record* session, const char* command);

// The same for a command that the caller typed: one that the session's role may not send
// (command_policy.h) has failed with the message command_refusal, and nothing was sent.
[[nodiscard]] command_outcome command_run_typed(const session_record* session, const char* command);

// One through the fast path, as the user and in the role given.
[[nodiscard]] command_outcome command_run_fast(const char* user, const char* role,
                                               const char* command);

// Notes how an exchange ended whose message and length stand in the outcome already; it owns the
// reply from now on.
void command_settle(command_outcome* outcome, int result, char* reply);

// The reply, empty when there was none; it lives in the outcome.
[[nodiscard]] std::string_view command_reply(const command_outcome& outcome);

// Appends an error: as it stands when it is an error document itself, else as
// "<re><ERROR>message</ERROR></re>". Returns 0; -1, the response unchanged, when it cannot grow.
[[nodiscard]] int command_append_error(wms_strbuf* response, std::string_view message);

// Appends what the helper answered: the reply (null when there was none) when `msg` is empty, else
// the error. Result as command_append_error.
[[nodiscard]] int command_append_reply(wms_strbuf* response, const char* reply,
                                       std::int32_t reply_len, const char* msg);

// The end of a handler that put its response together in steps: where `result` is not 0, memory ran
// out, and half a document helps nobody. The response is then emptied. Returns 0 or -1.
[[nodiscard]] int command_finish(wms_strbuf* response, int result);

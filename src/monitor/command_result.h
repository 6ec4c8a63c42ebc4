// What came back for one command.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/ownership.h"

#include "backend/cli_helper.h"

struct session_record;

struct command_result {
    int status = -1;          // of the exchange: 0 when it was complete
    malloc_text reply;        // null when there was none
    std::int32_t length = 0;  // of the reply
    char msg[cli_message_size] = "";
};

// Runs a command for the session's user through the CLI helper.
[[nodiscard]] command_result command_run(const session_record* session, const char* command);
// As above, for the user and role, through the fast path.
[[nodiscard]] command_result command_run_fast(const session_record* session, const char* command);

// Whether the exchange was complete and brought a reply and no message.
[[nodiscard]] bool command_succeeded(const command_result& result);
// The reply, empty when there was none; it lives in the result.
[[nodiscard]] std::string_view command_reply(const command_result& result);

// The CLI helper: the daemon that runs commands in a user's name. It listens on a UNIX stream
// socket and answers with XML output and a status text. Each call is one exchange on a socket of
// its own; reads block without a time limit.
#pragma once

#include <cstdint>

#include "platform/ownership.h"

struct session_record;

inline constexpr int cli_message_size = 1024;  // what callers use for `msg`

// Runs `command`.
//   user, ip, sid  the session's, or what the login prescribes; NUL-terminated
//   out_text       malloc'ed, NUL-terminated output that the caller frees; null when there is none
//   out_len        the output length as the reply states it; test out_text, never this
//   msg, msg_size  receives the helper's message or the failure text; empty when there is none
// Returns 0 when the exchange was complete (the message may still tell an error), -1 on failure.
// NOLINTNEXTLINE(readability-function-size): fixed interface
[[nodiscard]] int wuic_cli_execute(const char* user, const char* ip, const char* sid,
                                   const char* command, char** out_text, std::int32_t* out_len,
                                   char* msg, std::int32_t msg_size);

// Sends an audit record in the session's name; what happens to it is ignored. Returns 0.
[[gnu::format(printf, 3, 4)]] int wuic_audit_trail(const session_record* session, int type,
                                                   const char* format, ...);

// Rewrites a management-user command so that its password is obfuscated, into `out` of `out_size`
// bytes. Returns 0; 1 when the command has another form or does not fit, or memory runs out. It
// must not be sent then, since the password would go out readable.
[[nodiscard]] int encrypt_mgmt_usr_passwd(const char* command, char* out, std::int32_t out_size);

// The hexadecimal text of the obfuscated `text`; malloc'ed, the caller frees it; null when memory
// runs out.
[[nodiscard]] char* str_encrypt(const char* text);

// The fast-path command port: one datagram out, one back, over loopback UDP.
#pragma once

#include <cstdint>

// Runs `command` with the given user and role. Outputs as wuic_cli_execute; on failure `msg` holds
// an XML fragment. Waits up to 1,200 seconds. Returns 0 or -1.
// NOLINTNEXTLINE(readability-function-size): fixed interface
[[nodiscard]] int wuic_fpcli_execute(const char* user, const char* role, const char* command,
                                     char** out_text, std::int32_t* out_len, char* msg,
                                     std::int32_t msg_size);

// Sets the socket's receive time-out (SO_RCVTIMEO); the result of setsockopt(2).
int set_socket_timeout(int fd, long seconds, long microseconds);

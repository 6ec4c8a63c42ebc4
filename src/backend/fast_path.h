// The fast-path command port: one datagram out, one back, over loopback UDP.
#pragma once

#include <cstdint>

#include "backend/exchange.h"

// Runs `command` as `user` in `role`; each is cut to its field (63, 32 and 1023 bytes). Waits up to
// 1,200 seconds. Outputs as wuic_cli_execute, but `out_len` is the true length, and the text of a
// failure comes as XML, "<re><ERROR>...". Returns 0 or -1.
// NOLINTNEXTLINE(readability-function-size): fixed interface
[[nodiscard]] int wuic_fpcli_execute(const char* user, const char* role, const char* command,
                                     char** out_text, std::int32_t* out_len, char* msg,
                                     std::int32_t msg_size);

// Limits how long a receive on `fd` may block (SO_RCVTIMEO); 0 and 0: for ever. Returns what
// setsockopt(2) returned.
int set_socket_timeout(int fd, long seconds, long microseconds);

// One exchange, taken step by step as a cli_exchange is.
struct fast_path_exchange : exchange_state {
    long long deadline = 0;  // of the reply, in milliseconds of the monotonic clock
};

// Sends the datagram, the role being the request's `sid`. Result and `alone` as in
// cli_exchange_begin.
[[nodiscard]] exchange_start fast_path_begin(fast_path_exchange* exchange,
                                             const cli_request& request, const cli_outputs& out,
                                             bool alone);

// Takes the reply if it is there; without one, the exchange has failed once its time is over.
void fast_path_step(fast_path_exchange* exchange, const cli_outputs& out);

// The shorter of a wait of so many milliseconds (below 0: without end) and the reply's time left.
int fast_path_shorten(const fast_path_exchange& exchange, int milliseconds);

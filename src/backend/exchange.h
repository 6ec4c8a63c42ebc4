// What an exchange with the CLI helper (cli_exchange.h) and one over the fast path (fast_path.h)
// have in common: what they are asked, where the outcome goes, and how they end.
#pragma once

#include <cstdint>

#include "platform/ownership.h"

// Where the outcome of an exchange goes; all borrowed until it has ended.
struct cli_outputs {
    char** text;           // malloc'ed, NUL-terminated output; left alone when there is none
    std::int32_t* length;  // the output length as the reply states it
    char* msg;             // the helper's message or the failure text; left alone without one
    std::int32_t msg_size;
};

// What is sent: NUL-terminated texts, null for an empty one; borrowed as the outputs.
struct cli_request {
    const char* user;
    const char* ip;
    const char* sid;
    const char* command;
};

// What became of an attempt to begin. `later`: the service's queue is full, or the process is short
// of descriptors or memory, as may well be because of exchanges of its own that are under way.
enum class exchange_start : std::uint8_t { begun, later };

// Whether a failure of this errno may pass once an exchange of our own has ended.
bool exchange_is_shortage(int error);

struct exchange_state {
    unique_fd fd;  // open until the exchange has ended
    bool ended = false;
    int result = -1;  // once ended: 0 or -1
    int error = 0;    // errno of the failure

    exchange_state() = default;
    ~exchange_state();  // as exchange_close
    exchange_state(const exchange_state&) = delete;
    exchange_state& operator=(const exchange_state&) = delete;
};

// Shuts the sending side down and closes, in this order on every path; errno stays.
void exchange_close(exchange_state* exchange);

// Closes it and keeps the result.
void exchange_end(exchange_state* exchange, int result);

// Ends it as failed, with the errno of now.
void exchange_fail(exchange_state* exchange);

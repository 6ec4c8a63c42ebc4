// One exchange with the CLI helper, taken step by step. No step waits for the helper, so that one
// thread can have several under way (cli_pipeline.h).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/ownership.h"

#include "backend/exchange.h"

enum class cli_phase : std::uint8_t { fresh, ready, sending, head, body, message };

struct cli_exchange : exchange_state {
    cli_phase phase = cli_phase::fresh;
    malloc_text rewritten;    // the command, where it is not sent as it was given
    malloc_text text;         // the output, until all of it is there
    std::size_t moved = 0;    // bytes of this phase that are through
    std::int32_t length = 0;  // of the output; 0 for none
    std::array<std::string_view, 4> fields{};
    std::array<std::uint32_t, 4> words{};  // the fields' lengths, later the reply's words
};

// Connects and sends what can be sent at once; a failure ends the exchange. With `alone` a full
// queue is waited for, and a shortage is a failure. `later`: nothing was done, and the call may be
// repeated.
[[nodiscard]] exchange_start cli_exchange_begin(cli_exchange* exchange, const cli_request& request,
                                                const cli_outputs& out, bool alone);

// Sends and receives as far as that goes without waiting.
void cli_exchange_step(cli_exchange* exchange, const cli_outputs& out);

// The poll(2) events that it waits for. REQUIRES: begun, not ended.
short cli_exchange_events(const cli_exchange& exchange);

// Whether the whole request is on its way, or will never be.
bool cli_exchange_is_sent(const cli_exchange& exchange);

// One exchange with the CLI helper, taken step by step. No step waits for the helper, so that one
// thread can have several under way (cli_runner.h).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

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

enum class cli_phase : std::uint8_t { fresh, ready, sending, head, body, message, ended };

struct cli_exchange {
    cli_phase phase = cli_phase::fresh;
    int result = -1;          // once ended
    int error = 0;            // errno of the failure
    unique_fd fd;             // open from `sending` on until it has ended
    malloc_text rewritten;    // the command, where it is not sent as it was given
    malloc_text text;         // the output, until all of it is there
    std::size_t moved = 0;    // bytes of this phase that are through
    std::int32_t length = 0;  // of the output; 0 for none
    std::array<std::string_view, 4> fields{};
    std::array<std::uint32_t, 4> words{};  // the fields' lengths, later the reply's words

    cli_exchange() = default;
    ~cli_exchange();  // shuts down the sending side before it closes, as every ending does
    cli_exchange(const cli_exchange&) = delete;
    cli_exchange& operator=(const cli_exchange&) = delete;
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

// Commands in flight together: they go to the CLI helper and the fast path in the order in which
// they were added, up to eight at a time in one thread, and the results come back in that order. A
// single command is a pipeline of one.
//
// A command is sent only when the one before it has been, so a service sees that order. At a
// shortage (cli_exchange.h) a command waits for the end of one that is in flight; with none in
// flight it is sent as a single one would be.
//
// Once the request's client has left (runtime/wait.h) no command is sent any more, and what is in
// flight is given up: all of them fail with errno ECANCELED.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "backend/cli_exchange.h"
#include "backend/fast_path.h"

inline constexpr std::size_t cli_in_flight_max = 8;

// One command and where its outcome goes. What it borrows stays until it is taken.
struct cli_command {
    bool is_fast = false;  // through the fast path, in the role that stands in `sid`
    cli_request request{};
    cli_outputs out{};
};

struct cli_pipeline {
    struct slot {
        cli_command command;
        cli_exchange helper;
        fast_path_exchange fast;
    };
    std::array<std::optional<slot>, cli_in_flight_max> slots;  // a ring
    std::size_t first = 0;                                     // where the oldest stands
    std::size_t count = 0;    // commands that were added and not taken
    std::size_t begun = 0;    // of these, the oldest ones, whose exchange has begun
    std::size_t held_at = 0;  // how many were in flight when the next had to wait; 0: it has not
};

// Whether another may be added: as many as may be in flight at most are added and not taken.
bool cli_pipeline_has_room(const cli_pipeline& pipeline);

// Adds a command; with no room nothing happens. Its outputs must be cleared.
void cli_pipeline_add(cli_pipeline* pipeline, const cli_command& command);

// Sends and receives what can be, without waiting.
void cli_pipeline_advance(cli_pipeline* pipeline);

// Waits for the oldest command and takes it out; what is behind it goes on meanwhile.
// Returns what its single call would, errno included. REQUIRES: there is one.
[[nodiscard]] int cli_pipeline_take(cli_pipeline* pipeline);

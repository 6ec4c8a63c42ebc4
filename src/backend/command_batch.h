// The commands of one document, in flight together (cli_pipeline.h). They run as the session's
// user; what they answer comes back in the order in which they were added. Whoever writes a
// document adds ahead as long as there is room, and writes what it takes before it adds the next,
// so no more than eight replies are ever kept.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "backend/cli_pipeline.h"
#include "backend/command.h"

struct command_batch {
    struct entry {
        std::string command;
        command_outcome outcome;
        char* reply = nullptr;  // until it is taken
    };
    const session_record* session;
    std::array<entry, cli_in_flight_max> entries;  // a ring
    std::size_t first = 0;                         // the oldest
    cli_pipeline pipeline;                         // ends before what it borrows

    explicit command_batch(const session_record* of) : session(of) {}
    ~command_batch();  // ends what is still in flight
    command_batch(const command_batch&) = delete;
    command_batch& operator=(const command_batch&) = delete;
};

// Whether another may be added.
bool command_batch_has_room(const command_batch& batch);

// Adds a command for the CLI helper, or one for the fast path, where the session's role goes along.
// REQUIRES: room.
void command_batch_add(command_batch* batch, std::string command);
void command_batch_add_fast(command_batch* batch, std::string command);

// Sends and receives what can be, without waiting: before work that takes a while.
void command_batch_advance(command_batch* batch);

// Waits for the oldest and takes it out. REQUIRES: there is one.
[[nodiscard]] command_outcome command_batch_take(command_batch* batch);

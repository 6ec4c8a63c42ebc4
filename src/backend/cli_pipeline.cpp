#include "backend/cli_pipeline.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <span>

#include "runtime/wait.h"

namespace {

using slot = cli_pipeline::slot;

slot& slot_at(cli_pipeline* pipeline, std::size_t index) {
    return *pipeline->slots[(pipeline->first + index) % pipeline->slots.size()];
}

const exchange_state& state_of(const slot& each) {
    if (each.command.is_fast) return each.fast;
    return each.helper;
}

bool is_ended(const slot& each) {
    return state_of(each).ended;
}

bool is_sent(const slot& each) {
    return each.command.is_fast || cli_exchange_is_sent(each.helper);
}

// Ends one that has not ended yet, since the request's client has left.
void cancel(slot* each) {
    errno = ECANCELED;
    exchange_fail(each->command.is_fast ? static_cast<exchange_state*>(&each->fast)
                                        : static_cast<exchange_state*>(&each->helper));
}

exchange_start begin(slot* each, bool alone) {
    const cli_command& command = each->command;
    if (client_has_left()) {
        cancel(each);
        return exchange_start::begun;
    }
    if (command.is_fast) return fast_path_begin(&each->fast, command.request, command.out, alone);
    return cli_exchange_begin(&each->helper, command.request, command.out, alone);
}

void step(slot* each) {
    if (each->command.is_fast) {
        fast_path_step(&each->fast, each->command.out);
    } else {
        cli_exchange_step(&each->helper, each->command.out);
    }
}

pollfd entry_of(const slot& each) {
    const short events = each.command.is_fast ? short{POLLIN} : cli_exchange_events(each.helper);
    return {.fd = state_of(each).fd.get(), .events = events, .revents = 0};
}

std::size_t in_flight(cli_pipeline* pipeline) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < pipeline->begun; ++i)
        count += is_ended(slot_at(pipeline, i)) ? 0U : 1U;
    return count;
}

// Whether the next one's turn has come, `flying` others being in flight.
bool may_begin(cli_pipeline* pipeline, std::size_t flying) {
    if (pipeline->begun == pipeline->count) return false;
    // What waits goes on when one has ended, and no other has begun since.
    if (pipeline->held_at != 0 && flying >= pipeline->held_at) return false;
    return pipeline->begun == 0 || is_sent(slot_at(pipeline, pipeline->begun - 1));
}

void begin_in_turn(cli_pipeline* pipeline) {
    std::size_t flying = in_flight(pipeline);
    while (may_begin(pipeline, flying)) {
        slot& next = slot_at(pipeline, pipeline->begun);
        if (begin(&next, flying == 0) == exchange_start::later) {
            pipeline->held_at = flying;
            return;
        }
        pipeline->held_at = 0;
        ++pipeline->begun;
        flying += is_ended(next) ? 0U : 1U;
    }
}

// Waits until one in flight can go on, at most so long, and lets each that can.
void poll_once(cli_pipeline* pipeline, int milliseconds) {
    std::array<pollfd, cli_in_flight_max> entries{};
    std::array<slot*, cli_in_flight_max> waiting{};
    std::size_t count = 0;
    for (std::size_t i = 0; i < pipeline->begun; ++i) {
        slot& each = slot_at(pipeline, i);
        if (is_ended(each)) continue;
        entries[count] = entry_of(each);
        waiting[count++] = &each;
        if (each.command.is_fast) milliseconds = fast_path_shorten(each.fast, milliseconds);
    }
    const int ready = wait_for(std::span(entries).first(count), milliseconds);
    const bool is_cancelled = ready < 0 && errno == ECANCELED;
    for (std::size_t i = 0; i < count; ++i) {
        if (is_cancelled) cancel(waiting[i]);
        // Without an event the fast path's time may have run out.
        const bool is_late = ready == 0 && waiting[i]->command.is_fast;
        if (is_late || (ready > 0 && entries[i].revents != 0)) step(waiting[i]);
    }
}

}  // namespace

bool cli_pipeline_has_room(const cli_pipeline& pipeline) {
    return pipeline.count < pipeline.slots.size();
}

void cli_pipeline_add(cli_pipeline* pipeline, const cli_command& command) {
    if (!cli_pipeline_has_room(*pipeline)) return;
    const std::size_t index = (pipeline->first + pipeline->count) % pipeline->slots.size();
    pipeline->slots[index].emplace().command = command;
    ++pipeline->count;
    begin_in_turn(pipeline);
}

void cli_pipeline_advance(cli_pipeline* pipeline) {
    if (in_flight(pipeline) > 0) poll_once(pipeline, 0);
    begin_in_turn(pipeline);
}

int cli_pipeline_take(cli_pipeline* pipeline) {
    begin_in_turn(pipeline);
    while (!is_ended(slot_at(pipeline, 0))) {
        poll_once(pipeline, wait_for_ever);
        begin_in_turn(pipeline);
    }
    const exchange_state& oldest = state_of(slot_at(pipeline, 0));
    const int result = oldest.result;
    const int error = oldest.error;
    pipeline->slots[pipeline->first].reset();
    pipeline->first = (pipeline->first + 1) % pipeline->slots.size();
    --pipeline->count;
    --pipeline->begun;
    if (result != 0) errno = error;
    return result;
}

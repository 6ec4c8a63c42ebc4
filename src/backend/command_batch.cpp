#include "backend/command_batch.h"

#include <cstdlib>
#include <utility>

#include "runtime/session_record.h"

namespace {

void add(command_batch* batch, std::string&& command, bool is_fast) {
    const session_record* const session = batch->session;
    const std::size_t index = (batch->first + batch->pipeline.count) % batch->entries.size();
    command_batch::entry& entry = batch->entries[index];
    entry = {.command = std::move(command), .outcome = {}, .reply = nullptr};
    command_outcome& outcome = entry.outcome;
    cli_pipeline_add(&batch->pipeline, {.is_fast = is_fast,
                                        .request = {.user = session->user,
                                                    .ip = session->ip,
                                                    .sid = is_fast ? session->role : session->sid,
                                                    .command = entry.command.c_str()},
                                        .out = {.text = &entry.reply,
                                                .length = &outcome.reply_len,
                                                .msg = outcome.msg,
                                                .msg_size = sizeof outcome.msg}});
}

}  // namespace

command_batch::~command_batch() {
    for (const entry& each : entries)
        std::free(each.reply);
}

bool command_batch_has_room(const command_batch& batch) {
    return cli_pipeline_has_room(batch.pipeline);
}

void command_batch_add(command_batch* batch, std::string command) {
    add(batch, std::move(command), false);
}

void command_batch_add_fast(command_batch* batch, std::string command) {
    add(batch, std::move(command), true);
}

void command_batch_advance(command_batch* batch) {
    cli_pipeline_advance(&batch->pipeline);
}

command_outcome command_batch_take(command_batch* batch) {
    command_batch::entry& oldest = batch->entries[batch->first];
    const int result = cli_pipeline_take(&batch->pipeline);
    command_settle(&oldest.outcome, result, std::exchange(oldest.reply, nullptr));
    batch->first = (batch->first + 1) % batch->entries.size();
    return std::move(oldest.outcome);
}

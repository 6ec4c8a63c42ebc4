#include "backend/command_list.h"

#include <cstdlib>
#include <utility>

#include "runtime/session_record.h"

namespace {

void add(command_list* list, std::string&& command, bool is_fast) {
    const session_record* const session = list->session;
    const std::size_t index = (list->first + list->pipeline.count) % list->entries.size();
    command_list::entry& entry = list->entries[index];
    entry = {.command = std::move(command), .outcome = {}, .reply = nullptr};
    command_outcome& outcome = entry.outcome;
    cli_pipeline_add(&list->pipeline, {.is_fast = is_fast,
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

command_list::~command_list() {
    for (const entry& each : entries)
        std::free(each.reply);
}

bool command_list_has_room(const command_list& list) {
    return cli_pipeline_has_room(list.pipeline);
}

void command_list_add(command_list* list, std::string command) {
    add(list, std::move(command), false);
}

void command_list_add_fast(command_list* list, std::string command) {
    add(list, std::move(command), true);
}

void command_list_advance(command_list* list) {
    cli_pipeline_advance(&list->pipeline);
}

command_outcome command_list_take(command_list* list) {
    command_list::entry& oldest = list->entries[list->first];
    const int result = cli_pipeline_take(&list->pipeline);
    command_settle(&oldest.outcome, result, std::exchange(oldest.reply, nullptr));
    list->first = (list->first + 1) % list->entries.size();
    return std::move(oldest.outcome);
}

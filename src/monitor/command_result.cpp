#include "monitor/command_result.h"

#include "runtime/session_record.h"

#include "backend/fast_path.h"

command_result command_run(const session_record* session, const char* command) {
    command_result result;
    char* reply = nullptr;
    result.status = wuic_cli_execute(session->user, session->ip, session->sid, command, &reply,
                                     &result.length, result.msg, sizeof result.msg);
    result.reply.reset(reply);
    return result;
}

command_result command_run_fast(const session_record* session, const char* command) {
    command_result result;
    char* reply = nullptr;
    result.status = wuic_fpcli_execute(session->user, session->role, command, &reply,
                                       &result.length, result.msg, sizeof result.msg);
    result.reply.reset(reply);
    return result;
}

bool command_succeeded(const command_result& result) {
    return result.status == 0 && result.reply && result.msg[0] == '\0';
}

std::string_view command_reply(const command_result& result) {
    if (!result.reply || result.length < 0) return {};
    return {result.reply.get(), static_cast<std::size_t>(result.length)};
}

#include "backend/cli_helper.h"

#include <cstdarg>
#include <cstdio>

#include "platform/ownership.h"

#include "runtime/session_record.h"

#include "backend/cli_pipeline.h"

namespace {

constexpr int audit_text_size = 1024;

}  // namespace

// NOLINTNEXTLINE(readability-function-size): fixed interface
int wuic_cli_execute(const char* user, const char* ip, const char* sid, const char* command,
                     char** out_text, std::int32_t* out_len, char* msg, std::int32_t msg_size) {
    *out_text = nullptr;
    *out_len = 0;
    if (msg == nullptr) return -1;
    if (msg_size > 0) msg[0] = '\0';

    cli_pipeline pipeline;
    cli_pipeline_add(
        &pipeline,
        {.is_fast = false,
         .request = {.user = user, .ip = ip, .sid = sid, .command = command},
         .out = {.text = out_text, .length = out_len, .msg = msg, .msg_size = msg_size}});
    return cli_pipeline_take(&pipeline);
}

int wuic_audit_trail(const session_record* session, int type, const char* format, ...) {
    char text[audit_text_size] = "";
    va_list args;
    va_start(args, format);
    static_cast<void>(std::vsnprintf(text, sizeof text, format, args));
    va_end(args);

    // What does not fit is cut: a shortened record is better than none.
    char command[audit_text_size];
    const int head = std::snprintf(command, sizeof command, "wuic:audit?type=%d&msg=", type);
    const auto used = static_cast<std::size_t>(head);
    std::snprintf(command + used, sizeof command - used, "%.*s",
                  static_cast<int>(sizeof command - used - 1), text);

    malloc_text ignored;
    char* output = nullptr;
    std::int32_t length = 0;
    char msg[cli_message_size];
    static_cast<void>(wuic_cli_execute(session->user, session->ip, session->sid, command, &output,
                                       &length, msg, sizeof msg));
    ignored.reset(output);
    return 0;
}

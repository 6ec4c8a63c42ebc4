#include "backend/command.h"

#include <cstdio>

#include "runtime/cgi.h"
#include "runtime/error_response.h"
#include "runtime/session_record.h"
#include "runtime/strbuf.h"

#include "backend/command_policy.h"
#include "backend/command_text.h"
#include "backend/fast_path.h"

namespace {

using std::string_view;

constexpr string_view error_start = "<re><ERROR>";
constexpr string_view error_end = "</ERROR></re>";

bool is_error_document(string_view message) {
    return message.find("<ERROR>") != string_view::npos ||
           message.find("<error>") != string_view::npos;
}

}  // namespace

int command_invalid(wms_strbuf* response) {
    wuic_generic_error(response, "Invalid arguments");
    return -1;
}

char* command_from_query(cgi* input, wms_strbuf* response) {
    char* const query = cgi_query_string(input);
    if (query == nullptr || query[0] == '\0') {
        command_invalid(response);
        return nullptr;
    }
    command_url_decode(query);
    return query;
}

bool command_end(wms_strbuf* response, char* command) {
    command_cut_line(command);
    if (command[0] != '\0') return true;
    command_invalid(response);
    return false;
}

command_outcome command_run(const session_record* session, const char* command) {
    command_outcome outcome;
    char* output = nullptr;
    const int result = wuic_cli_execute(session->user, session->ip, session->sid, command, &output,
                                        &outcome.reply_len, outcome.msg, sizeof outcome.msg);
    command_settle(&outcome, result, output);
    return outcome;
}

command_outcome command_run_typed(const session_record* session, const char* command) {
    if (command_is_permitted(session, command)) return command_run(session, command);
    command_outcome outcome;
    std::snprintf(outcome.msg, sizeof outcome.msg, "%s", command_refusal);
    outcome.failed = true;
    return outcome;
}

command_outcome command_run_fast(const char* user, const char* role, const char* command) {
    command_outcome outcome;
    char* output = nullptr;
    const int result = wuic_fpcli_execute(user, role, command, &output, &outcome.reply_len,
                                          outcome.msg, sizeof outcome.msg);
    command_settle(&outcome, result, output);
    return outcome;
}

void command_settle(command_outcome* outcome, int result, char* reply) {
    outcome->reply.reset(reply);
    outcome->complete = result == 0;
    outcome->failed = result != 0 || outcome->msg[0] != '\0';
}

string_view command_reply(const command_outcome& outcome) {
    if (!outcome.reply || outcome.reply_len < 0) return {};
    return {outcome.reply.get(), static_cast<std::size_t>(outcome.reply_len)};
}

int command_append_error(wms_strbuf* response, string_view message) {
    if (is_error_document(message)) return wms_strbuf_append_all(response, {message});
    return wms_strbuf_append_all(response, {error_start, message, error_end});
}

int command_append_reply(wms_strbuf* response, const char* reply, std::int32_t reply_len,
                         const char* msg) {
    if (reply == nullptr || msg[0] != '\0') return command_append_error(response, msg);
    if (wms_strbuf_reserve(response, reply_len) != 0) return -1;
    return wms_strbuf_append(response, reply, reply_len);
}

int command_finish(wms_strbuf* response, int result) {
    if (result == 0) return 0;
    wms_strbuf_clear(response);
    return -1;
}

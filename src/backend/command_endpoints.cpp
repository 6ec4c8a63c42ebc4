#include "backend/command_endpoints.h"

#include <string_view>

#include "runtime/cgi.h"
#include "runtime/error_response.h"
#include "runtime/strbuf.h"

#include "backend/command.h"
#include "backend/command_policy.h"
#include "backend/command_text.h"
#include "backend/fast_path.h"

namespace {

using std::string_view;

// The fast path gets this user and role, whoever asks.
constexpr char fast_path_user[] = "admin";
constexpr char fast_path_role[] = "root";

// Answers with the reply to one command, or with nothing when it has neither reply nor message.
int answer_single(wms_strbuf* response, const session_record* session, char* command) {
    command_unencode(command);
    if (!command_end(response, command)) return -1;
    const command_outcome outcome = command_run_typed(session, command);
    wms_strbuf_append_all(response, {xml_header});
    if (!outcome.reply && !outcome.failed) return 0;
    return command_finish(response, command_append_reply(response, outcome.reply.get(),
                                                         outcome.reply_len, outcome.msg));
}

int append_replies(wms_strbuf* response, const session_record* session,
                   const command_pieces& commands) {
    for (char* command : commands.view()) {
        command_cut_line(command);
        if (command[0] == '\0') continue;
        const command_outcome outcome = command_run_typed(session, command);
        const int result =
            command_append_reply(response, outcome.reply.get(), outcome.reply_len, outcome.msg);
        if (result != 0) return result;
    }
    return wms_strbuf_append_all(response, {"</result>"});
}

bool is_word_byte(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

// Whether the fast path's output tells of an error: holds the word "Error" or "Errors".
bool tells_of_error(string_view output) {
    constexpr string_view word = "Error";
    for (std::size_t at = output.find(word); at != string_view::npos;
         at = output.find(word, at + 1)) {
        string_view after = output.substr(at + word.size());
        if (after.starts_with('s')) after.remove_prefix(1);
        const bool starts = at == 0 || !is_word_byte(output[at - 1]);
        if (starts && (after.empty() || !is_word_byte(after.front()))) return true;
    }
    return false;
}

int run_fast_path(wms_strbuf* response, const char* command) {
    const command_outcome outcome = command_run_fast(fast_path_user, fast_path_role, command);
    if (outcome.msg[0] != '\0') return command_append_error(response, outcome.msg);
    if (outcome.failed || !outcome.reply) return command_append_error(response, command_refusal);
    const string_view text = command_reply(outcome);
    return tells_of_error(text)
               ? command_append_error(response, text)
               : wms_strbuf_append_all(response, {"<re><SUCCESS></SUCCESS>", text, "</re>"});
}

}  // namespace

// NOLINTBEGIN(readability-identifier-naming): fixed names

int execCommandWithContext(const char* /*key*/, wms_strbuf* response, session_record* session,
                           pg_conn* /*db*/, cgi* input) {
    char* const command = command_from_query(input, response);
    if (command == nullptr) return -1;
    command_cut_context(command);
    return answer_single(response, session, command);
}

int execCommandPostWithContext(const char* /*key*/, wms_strbuf* response, session_record* session,
                               pg_conn* /*db*/, cgi* input) {
    const cgi_pair* const field = cgi_named_pair(input, "cmd");
    if (field == nullptr || field->value == nullptr) return command_invalid(response);
    return answer_single(response, session, field->value);
}

int execCommandsWithContext(const char* /*key*/, wms_strbuf* response, session_record* session,
                            pg_conn* /*db*/, cgi* input) {
    char* const query = command_from_query(input, response);
    if (query == nullptr) return -1;
    command_cut_context(query);
    command_unencode(query);
    command_pieces commands;
    if (!command_split(query, ",", &commands)) return command_invalid(response);
    wms_strbuf_append_all(response, {xml_header, "<result>"});
    return command_finish(response, append_replies(response, session, commands));
}

int executeSimpleCommand(const char* /*key*/, wms_strbuf* response, session_record* session,
                         pg_conn* /*db*/, cgi* input) {
    char* const command = command_from_query(input, response);
    if (command == nullptr || !command_end(response, command)) return -1;
    const command_outcome outcome = command_run_typed(session, command);
    wms_strbuf_fmt(response, "%s<result>%s</result>", xml_header,
                   outcome.failed ? outcome.msg : "SUCCESS");
    return 0;
}

int execFPCliCommandWithContext(const char* /*key*/, wms_strbuf* response, session_record* session,
                                pg_conn* /*db*/, cgi* input) {
    char* const command = command_from_query(input, response);
    if (command == nullptr || !command_end(response, command)) return -1;
    wms_strbuf_append_all(response, {xml_header});
    const int result = fast_path_is_permitted(session, command)
                           ? run_fast_path(response, command)
                           : command_append_error(response, command_refusal);
    return command_finish(response, result);
}

// NOLINTEND(readability-identifier-naming)

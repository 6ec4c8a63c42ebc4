// The commands of a document as they were sent before they went out ahead: each when the reply to
// the one before it is there. Does all of them once for each line of standard input, and answers
// with the milliseconds that they took.
//
//   one_by_one view           the dashboard's controller view, with its own texts and shell items
//   one_by_one COMMAND...     these
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

#include "runtime/request.h"
#include "runtime/strbuf.h"

#include "backend/command.h"

#include "monitor/shell_capture.h"
#include "monitor/summary_items.h"

namespace {

// A helper that does not answer would look fast.
void answered(const command_outcome& outcome) {
    if (outcome.failed || !outcome.reply) std::exit(1);
}

void run_item(const session_record& session, const summary_item& item) {
    scoped_strbuf text;
    const char* const command = item.command != nullptr ? item.command : item.label;
    switch (item.kind) {
        case item_kind::reply:
        case item_kind::raw_reply:
            answered(command_run(&session, command));
            break;
        case item_kind::fast_path:
            answered(command_run_fast(session.user, session.role, command));
            break;
        case item_kind::shell:
            shell_capture(text, command);
            break;
        case item_kind::local:
            if (item.text(text, {}) != 0) std::exit(1);
            break;
    }
}

void run_view(const session_record& session) {
    answered(command_run(&session, "wuic:basic-info"));
    for (const auto& items : {summary_common_items(), summary_controller_items()}) {
        for (const summary_item& item : items)
            run_item(session, item);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::span<char*> commands(argv + 1, static_cast<std::size_t>(argc > 0 ? argc - 1 : 0));
    if (commands.empty()) return 2;
    request_record request;
    std::snprintf(request.session.user, sizeof request.session.user, "admin");
    std::snprintf(request.session.role, sizeof request.session.role, "root");
    const bool is_view = std::strcmp(commands[0], "view") == 0;
    char line[16];
    while (std::fgets(line, sizeof line, stdin) != nullptr) {
        const auto started = std::chrono::steady_clock::now();
        if (is_view) {
            run_view(request.session);
        } else {
            for (const char* command : commands)
                answered(command_run(&request.session, command));
        }
        const std::chrono::duration<double, std::milli> took =
            std::chrono::steady_clock::now() - started;
        std::printf("%.3f\n", took.count());
        std::fflush(stdout);
    }
}

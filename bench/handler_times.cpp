// The handlers that send many commands, called again and again as in a warm worker: the medians of
// their times beside that of one command. bench/dashboard.sh runs it beside slow_helper.
//
//   handler_times NAME     prints a table row for each handler; NAME stands in the first column
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "runtime/cgi.h"
#include "runtime/request.h"
#include "runtime/strbuf.h"

#include "backend/command_run.h"

#include "monitor/monitor_handlers.h"

namespace {

constexpr int runs = 20;

using handler = int(const char*, wms_strbuf*, session_record*, pg_conn*, cgi*);

int one_command(const char* /*key*/, wms_strbuf* /*response*/, session_record* session,
                pg_conn* /*db*/, cgi* /*input*/) {
    return command_run(session, "show clock").failed ? -1 : 0;
}

int commands_since(const session_record& session) {
    const command_outcome outcome = command_run(&session, "count");
    return std::atoi(command_reply(outcome).data());
}

// In milliseconds, of a request whose answer is whole.
double time_of(handler* work, request_record* request) {
    wms_strbuf_clear(&request->response);
    const auto started = std::chrono::steady_clock::now();
    const int result = work("", &request->response, &request->session, nullptr, &request->input);
    const std::chrono::duration<double, std::milli> took =
        std::chrono::steady_clock::now() - started;
    if (result != 0) std::exit(1);
    return took.count();
}

double median_of(handler* work, request_record* request) {
    std::vector<double> times;
    times.reserve(runs);
    time_of(work, request);  // a first one to warm up
    for (int i = 0; i < runs; ++i)
        times.push_back(time_of(work, request));
    std::ranges::sort(times);
    return (times[runs / 2 - 1] + times[runs / 2]) / 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    request_record request;
    std::snprintf(request.session.user, sizeof request.session.user, "admin");
    std::snprintf(request.session.role, sizeof request.session.role, "root");
    if (cgi_set_var(&request.input, "operand", "controller-summary") != 0) return 1;
    const double one = median_of(one_command, &request);
    const struct {
        const char* name;
        handler* work;
    } works[] = {{"controller view", wuic_get_monitor_summary_data},
                 {"role policy", wuic_get_role_policy_raw}};
    for (const auto& [name, work] : works) {
        commands_since(request.session);
        time_of(work, &request);
        const int count = commands_since(request.session);
        const double median = median_of(work, &request);
        std::printf("| %s | %s | %d | %.1f | %.1f | %.1f |\n", argv[1], name, count, one, median,
                    median / one);
    }
}

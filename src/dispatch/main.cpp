// Entry of wms.cgi: one request as CGI, many in a warm worker, or a small command helper.
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

#include "platform/controller.h"

#include "runtime/database.h"
#include "runtime/error_response.h"
#include "runtime/request.h"

#include "dispatch/helper_mode.h"
#include "dispatch/program_name.h"
#include "dispatch/serve.h"
#include "dispatch/worker.h"

namespace {

int run_request(const char* caller_role, const char* argument0) {
    request_record request;
    request_begin(request, caller_role);
    process_begin(false);
    controller_databases databases;
    if (!database_init()) {
        wuic_generic_error(&request.response, "%s", memory_reason);
    } else if (databases_open(&databases, &request.response) == 0) {
        request_serve(request, databases, entry_name_of(argument0));
    }
    request_answer(request);
    return 0;
}

// A descriptor that was handed down closed would be the next socket's or file's, and be read as the
// body or written to as the answer.
void hold_standard_descriptors() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(fd, F_GETFD) < 0) static_cast<void>(::open("/dev/null", O_RDWR));
    }
}

}  // namespace

int main(int argc, char** argv) {
    hold_standard_descriptors();
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);  // a file that may not grow is a failed write like others
    const char* const caller_role = getrole();
    const char* const argument0 = argc > 0 ? argv[0] : nullptr;
    if (::setuid(0) != 0) {
        // Not fatal: without it the services below refuse us, each with its own message.
    }
    if (worker_requested()) return worker_run(caller_role, argument0);
    if (helper_mode_requested(argc, argv)) return helper_mode_run(argc, argv);
    return run_request(caller_role, argument0);
}

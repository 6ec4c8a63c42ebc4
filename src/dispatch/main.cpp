// Entry of wms.cgi: one request per process, from the CGI environment to one block of output.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <string>
#include <unistd.h>

#include "platform/controller.h"
#include "platform/privileges.h"
#include "platform/system_log.h"

#include "runtime/cgi.h"
#include "runtime/database.h"
#include "runtime/error_response.h"
#include "runtime/log.h"
#include "runtime/out_of_memory.h"
#include "runtime/request.h"

#include "auth/session_store.h"

#include "dispatch/dispatcher.h"
#include "dispatch/helper_mode.h"
#include "dispatch/program_name.h"

namespace {

constexpr char log_name[] = "httpd";

struct parse_failure {
    int result;
    const char* reason;
    const char* log_line;
};

constexpr parse_failure parse_failures[] = {
    {.result = cgi_low_space,
     .reason = "<![CDATA[System has low free memory and/or low free disk space. Please delete "
               "unwanted files by accessing WebUI Diagnostics > Technical Support > Delete Files, "
               "reload the controller to recover free memory and try uploading the image again. "
               "If it fails again, try other upgrade options.]]>",
     .log_line = "Invalid argument: low free memory or free disk space"},
    {.result = cgi_refused_file,
     .reason = "Restricted Filename encountered.",
     .log_line = "Invalid argument: Restricted Filename encountered."},
    {.result = cgi_read_error,
     .reason = "Read Error encountered.",
     .log_line = "Invalid argument: Read Error encountered."},
    {.result = cgi_no_memory,
     .reason = memory_reason,
     .log_line = "Invalid argument: Unable to allocate bytes memory for content upload."},
    {.result = cgi_too_long,
     .reason = "Content Length exceed limit.",
     .log_line = "Invalid argument: Content Length exceeds limit."},
    {.result = cgi_no_length,
     .reason = "Invalid Content Length.",
     .log_line = "Invalid argument: Invalid Content Length."},
    {.result = cgi_refused,
     .reason = "Restricted characters encountered",
     .log_line = "Invalid argument: Restricted characters encountered."},
};

void refuse_parse(wms_strbuf* response, int result) {
    for (const parse_failure& failure : parse_failures) {
        if (failure.result != result) continue;
        wuic_generic_error(response, "%s", failure.reason);
        controller_log(log_error, "%s", failure.log_line);
        return;
    }
    wuic_generic_error(response, "Unknown error.");
    controller_log(log_error, "Invalid argument: Unknown error (%d).", result);
}

void retrieve_session(request_record& request, PGconn* db) {
    // Whether there is a session is in the record; what a caller without one may do is decided by
    // the dispatcher.
    static_cast<void>(wuic_session_retrieve(db, &request.input, &request.session, nullptr));
}

void serve_request(request_record& request, PGconn* db, const char* argument0) {
    cgi* input = &request.input;
    const bool spooled = cgi_is_spooled_upload(input);
    if (spooled) {
        retrieve_session(request, db);
        if (!may_spool_upload(&request.response, &request.session, input)) {
            cgi_discard_body(input);
            return;
        }
    }
    if (const int result = cgi_parse(input); result < 0) {
        refuse_parse(&request.response, result);
        return;
    }
    if (!spooled) retrieve_session(request, db);
    const std::string program_name = settle_program_name(argument0, input);
    wuic_cgi(program_name.c_str(), &request.response, &request.session, db, input);
}

// Some servers turn an answer without a header into a 500.
void write_response(request_record& request) {
    if (request.text_lost) {
        out_of_memory_answer(request);
        return;
    }
    request.answered = true;
    if (request.response.length > 0) {
        wms_strbuf_out(&request.response, nullptr);
    } else {
        std::fputs(xml_header, stdout);
    }
    std::fflush(stdout);
}

void run_request(request_record& request, const char* argument0) {
    controller_databases databases;
    if (!database_init()) {
        wuic_generic_error(&request.response, "%s", memory_reason);
    } else if (databases_open(&databases, &request.response) == 0) {
        serve_request(request, databases.wms.get(), argument0);
    }
    write_response(request);
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
    request_record request;
    request.caller_role = getrole();
    request.wuic_is_cgi_exec = true;
    if (::setuid(0) != 0) {
        // Not fatal: without it the services below refuse us, each with its own message.
    }
    if (helper_mode_requested(argc, argv)) return helper_mode_run(argc, argv);

    out_of_memory_install();
    const int unnarrowed = privileges_narrow() ? 0 : errno;
    system_log_open(log_name);
    readQorinLogInfo();
    if (unnarrowed != 0) {
        controller_log(log_error, "Unable to give up privileges: %s", std::strerror(unnarrowed));
    }
    run_request(request, argc > 0 ? argv[0] : nullptr);
    return 0;
}

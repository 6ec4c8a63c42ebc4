#include "dispatch/serve.h"

#include <cerrno>
#include <cstring>
#include <string_view>

#include "platform/ownership.h"
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
#include "dispatch/program_name.h"

namespace {

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

bool is_worker(const request_record& request) {
    return request.streams.connection >= 0;
}

bool is_lost(const db_conn& db) {
    return PQstatus(db.get()) != CONNECTION_OK;
}

// Whether there is a session is in the record; what a caller without one may do is decided by the
// dispatcher. A connection that was opened for an earlier request may be lost without a sign: this
// query, which changes nothing, is then asked again over a new one. Returns false when there is
// none, with the document in the response.
bool retrieve_session(request_record& request, controller_databases& databases) {
    const db_conn& db = databases.wms;
    for (bool repeated = false;; repeated = true) {
        static_cast<void>(
            wuic_session_retrieve(db.get(), &request.input, &request.session, nullptr));
        if (!is_worker(request) || repeated || !is_lost(db)) return true;
        if (databases_renew(&databases, &request.response) != 0) return false;
    }
}

// Who may not upload has the body read and dropped, so that the answer arrives. Returns false when
// the request ends here, with the document in the response.
bool admit_upload(request_record& request, controller_databases& databases) {
    if (retrieve_session(request, databases) &&
        may_spool_upload(&request.response, &request.session, &request.input)) {
        return true;
    }
    cgi_discard_body(&request.input);
    return false;
}

}  // namespace

void process_begin(bool keeps_log) {
    out_of_memory_install();
    const int unnarrowed = privileges_narrow() ? 0 : errno;
    system_log_open(keeps_log);
    if (unnarrowed != 0) {
        controller_log(log_error, "Unable to give up privileges: %s", std::strerror(unnarrowed));
    }
}

void request_begin(request_record& request, const char* caller_role) {
    request.caller_role = caller_role;
    request.wuic_is_cgi_exec = true;
    readQorinLogInfo();
}

void request_serve(request_record& request, controller_databases& databases,
                   const entry_name& entry) {
    cgi* input = &request.input;
    const request_name name = settle_program_name(entry, input);
    const bool spooled = cgi_is_spooled_upload(input);
    if (spooled && !admit_upload(request, databases)) return;
    if (const int result = cgi_parse(input); result < 0) {
        refuse_parse(&request.response, result);
        return;
    }
    if (!spooled && !retrieve_session(request, databases)) return;
    dispatch_request(name, &request.response, &request.session, databases.wms.get(), input);
}

void request_answer(request_record& request) {
    if (request.text_lost) {
        out_of_memory_answer(request);
        return;
    }
    request.answered = true;
    const wms_strbuf& response = request.response;
    // Some servers turn an answer without a header into a 500.
    const std::string_view answer =
        response.length > 0 && response.data != nullptr
            ? std::string_view{response.data, static_cast<std::size_t>(response.length)}
            : std::string_view{xml_header};
    // Who does not take the answer cannot be told anything else.
    static_cast<void>(request.streams.write(request.streams.context, answer.data(), answer.size()));
}

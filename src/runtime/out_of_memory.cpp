#include "runtime/out_of_memory.h"

#include <new>
#include <string_view>
#include <unistd.h>

#include "runtime/error_response.h"
#include "runtime/log.h"
#include "runtime/request.h"
#include "runtime/spool.h"

namespace {

void end_request() {
    request_record* const request = request_current_or_null();
    if (request != nullptr && !request->answered) {
        out_of_memory_answer(*request);
        request->streams.finish(request->streams.context);
    }
    ::_exit(0);
}

}  // namespace

void out_of_memory_install() {
    std::set_new_handler(end_request);
}

void out_of_memory_answer(request_record& request) {
    request.answered = true;
    spool_drop_upload(request.upload);
    controller_log(log_error, "%s", memory_reason);
    const std::string_view answer = memory_error_response();
    // Who does not take the answer cannot be told anything else.
    static_cast<void>(request.streams.write(request.streams.context, answer.data(), answer.size()));
}

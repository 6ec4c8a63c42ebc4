#include "runtime/request.h"

#include <unistd.h>

#include "platform/controller.h"

#include "runtime/spool.h"

namespace {

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): the one global of the program
request_record* current = nullptr;

}  // namespace

// The newest record is the current one; entry makes exactly one at a time.
request_record::request_record() {
    cgi_init(&input);
    wms_strbuf_new(&response);
    cookie_buffer[0] = '\0';
    current = this;
}

request_record::~request_record() {
    for (const int fd : lock_fds) {
        if (fd >= 0) ::close(fd);
    }
    spool_drop_upload(upload);
    cgi_deinit(&input);
    wms_strbuf_free(&response);
    if (current == this) current = nullptr;
}

request_record* request_current_or_null() {
    return current;
}

// REQUIRES: a record exists. Everything that asks is called between entry and exit.
request_record& request_current() {
    return *current;
}

bool request_is_factory_default() {
    remembered& fact = request_current().factory_default;
    if (fact == remembered::unknown) {
        fact = isWuicConfigFactoryDefault() ? remembered::yes : remembered::no;
    }
    return fact == remembered::yes;
}

request_streams request_current_streams() {
    return current != nullptr ? current->streams : process_streams();
}

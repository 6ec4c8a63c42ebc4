// One search of the access points, from connect to close, without the rest of a request: reads the
// CGI variables of a GET and writes the response.
#include "runtime/cgi.h"
#include "runtime/database.h"
#include "runtime/request.h"
#include "runtime/strbuf.h"

#include "monitor/monitor_handlers.h"

int main() {
    request_record request;
    if (!database_init() || cgi_parse(&request.input) < 0) return 1;
    const int result =
        wlmng_search("", &request.response, &request.session, nullptr, &request.input);
    wms_strbuf_out(&request.response, nullptr);
    return result == 0 ? 0 : 1;
}

#include "dispatch/generic_wrapper.h"

#include <cstdint>
#include <cstring>

#include "platform/ownership.h"

#include "runtime/cgi.h"
#include "runtime/error_response.h"
#include "runtime/request.h"
#include "runtime/session_record.h"
#include "runtime/strbuf.h"
#include "runtime/url.h"

#include "backend/refusals.h"

#include "dispatch/dispatch_table.h"

int generic_wrapper(const char* key, wms_strbuf* response, session_record* session, pg_conn*,
                    cgi* input) {
    if (!request_is_factory_default() && !session->found) {
        refuse_permission(response, key);
        return 0;
    }
    wms_strbuf_clear(response);
    const dispatch_row* row = dispatch_find(key);
    if (row == nullptr || row->target == nullptr) {
        wms_strbuf_fmt(response, "%s<re><ERROR>generic error: unregistered opcode</ERROR></re>",
                       xml_header);
        return 0;
    }
    char no_query[1] = "";
    char* query = cgi_query_string(input);
    if (query == nullptr) query = no_query;
    const auto length = static_cast<std::int32_t>(std::strlen(query));
    cgi_unescape_url(query, length, query, length);

    const malloc_text body{row->target(session, query)};
    wms_strbuf_fmt(response, "%s%s", xml_header,
                   body ? body.get() : "<re><ERROR>generic error</ERROR></re>");
    return 0;
}

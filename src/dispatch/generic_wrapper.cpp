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

namespace {

// Returns the target's text; null when it has none.
malloc_text body_of(wrapper_target& target, session_record* session, const cgi* input) {
    char no_query[1] = "";
    char* query = cgi_query_string(input);
    if (query == nullptr) query = no_query;
    const auto length = static_cast<std::int32_t>(std::strlen(query));
    cgi_unescape_url(query, length, query, length);
    return malloc_text{target(session, query)};
}

}  // namespace

void generic_wrapper(const dispatch_row& row, const char* key, wms_strbuf* response,
                     session_record* session, cgi* input) {
    if (!request_is_factory_default() && !session->found) {
        refuse_permission(response, key);
        return;
    }
    wms_strbuf_clear(response);
    if (row.target == nullptr) {
        wms_strbuf_fmt(response, "%s<re><ERROR>not implemented</ERROR></re>", xml_header);
        return;
    }
    const malloc_text body = body_of(*row.target, session, input);
    wms_strbuf_fmt(response, "%s%s", xml_header,
                   body ? body.get() : "<re><ERROR>generic error</ERROR></re>");
}

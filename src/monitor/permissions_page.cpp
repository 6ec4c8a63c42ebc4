#include "monitor/permissions_page.h"

#include <cstdint>
#include <cstring>

#include "runtime/error_response.h"
#include "runtime/escape.h"
#include "runtime/session_record.h"
#include "runtime/strbuf.h"

#include "monitor/monitor_handlers.h"

namespace {

constexpr std::int32_t field_size = 128;

const char* escape_field(char* out, const char* text) {
    return wuic_sgmlesc(out, field_size, text, static_cast<std::int32_t>(std::strlen(text)));
}

}  // namespace

int wlm_get_permissions(const char* /*key*/, wms_strbuf* response, session_record* session,
                        pg_conn* /*db*/, cgi* /*input*/) {
    char user[field_size];
    char role[field_size];
    wms_strbuf_fmt(
        response, "%s<qorin>\n<status>Ok</status>\n<user>%s</user>\n<role>%s</role>\n</qorin>\n",
        xml_header, escape_field(user, session->user), escape_field(role, session->role));
    return response->length > 0 ? 0 : -1;
}

int wlm_does_user_have_write_permissions(const session_record* /*session*/) {
    return 0;
}

#include "dispatch/dispatcher.h"

#include <cstring>
#include <ctime>
#include <string>
#include <string_view>

#include "runtime/cgi.h"
#include "runtime/error_response.h"
#include "runtime/escape.h"
#include "runtime/log.h"
#include "runtime/redaction.h"
#include "runtime/request.h"
#include "runtime/session_record.h"
#include "runtime/spool.h"
#include "runtime/strbuf.h"
#include "runtime/text.h"

#include "backend/permission.h"
#include "backend/refusals.h"

#include "dispatch/dispatch_table.h"
#include "dispatch/generic_wrapper.h"
#include "dispatch/program_name.h"
#include "dispatch/setup_page.h"
#include "dispatch/slow_request_log.h"
#include "dispatch/token.h"

namespace {

constexpr char api_token_refusal[] =
    "Content-Type: application/json\r\nExpires: 0\r\nStatus: 401 Unauthorized\r\n\r\n"
    "{\"_global_result\": {\"status\": 1, \"status_str\": "
    "\"Invalid authentication token(UIDQORIN) in request URL\"}}";

// Everything that the steps of one dispatch share.
struct dispatch_call {
    const request_name& name;
    const char* key;
    wms_strbuf* response;
    session_record* session;
    pg_conn* db;
    cgi* input;
};

void refuse_unknown(wms_strbuf* response, const char* key) {
    char escaped[512];
    wuic_sgmlesc(escaped, sizeof escaped, key, static_cast<std::int32_t>(std::strlen(key)));
    wuic_generic_error(response, "unknown opcode: %s", escaped);
    controller_log(log_error, "unknown opcode %s.", redact_uri(key).text);
}

// Whether a page of another site sent the request: a browser says so in Sec-Fetch-Site, which no
// page can set (Fetch Metadata, section 2.4). Scripts and machines send no such header.
bool is_from_other_site(const cgi* input) {
    const std::string_view site = text_or_null(cgi_get_var(input, "HTTP_SEC_FETCH_SITE"));
    return site == "cross-site" || site == "same-site";
}

bool may_be_called_from_there(const cgi* input, const dispatch_row& row) {
    if (!is_from_other_site(input)) return true;
    const std::string_view method = text_or_null(cgi_get_var(input, "REQUEST_METHOD"));
    return row.from_other_sites && method == "GET";
}

bool may_use(const session_record* session, const dispatch_row& row) {
    if (wuic_check_perm(session, row.mask)) return true;
    return !session->found && row.before_session;
}

bool token_is_due(token_rule rule, std::string_view method) {
    if (method == "POST") return rule == token_rule::always || rule == token_rule::post_only;
    if (method == "GET") return rule == token_rule::always || rule == token_rule::get_only;
    return false;
}

bool token_holds(const dispatch_call& call, const dispatch_row& row) {
    const char* method = text_or_null(cgi_get_var(call.input, "REQUEST_METHOD"));
    if (!token_is_due(row.token, method)) return true;
    const token_result result =
        wuic_validate_sid(call.key, call.response, call.session->sid, call.db, call.input);
    if (result == token_accepted) return true;

    if (result == token_refused_api) {
        wms_strbuf_clear(call.response);
        wms_strbuf_append(call.response, api_token_refusal, sizeof api_token_refusal - 1);
    } else {
        wuic_generic_error(call.response, "SID Validation failed");
    }
    wuic_log(log_error, "SID Validation failed %s URI:%s", method,
             redact_uri(call.name.text.c_str()).text);
    controller_log(log_error, "SID Validation failed %s.", redact_uri(call.key).text);
    return false;
}

// Returns the handler's result.
int answer(const dispatch_call& call, const dispatch_row& row) {
    if (row.wrapped) {
        generic_wrapper(row, call.key, call.response, call.session, call.input);
        return 0;
    }
    if (row.handler != nullptr) {
        const int result = row.handler(call.key, call.response, call.session, call.db, call.input);
        return result;
    }
    wuic_generic_error(call.response, "not implemented");
    return 0;
}

void call_handler(const dispatch_call& call, const dispatch_row& row) {
    const bool timed = slow_request_log_is_on();
    const std::time_t start = timed ? std::time(nullptr) : 0;
    const int result = answer(call, row);
    if (timed) {
        slow_request_log_add(call.name.text.c_str(), call.key, std::time(nullptr) - start);
    }
    if (result < 0 && call.response->length == 0) {
        wuic_generic_error(call.response, "Internal error");
    }
}

// An upload was received before the token could be checked. Now that it was, the handler of an
// upload page finds it in its place; another row has no use for it. Returns false when the request
// ends here, with the document in the response.
bool settle_upload(const dispatch_call& call, const dispatch_row& row) {
    received_upload& upload = request_current().upload;
    if (!row.spooled) spool_drop_upload(upload);
    if (!row.spooled || spool_keep_image(upload)) return true;
    wuic_generic_error(call.response, "Unable to store the image.");
    return false;
}

//   row  of the key; null: there is none
void serve(const dispatch_call& call, const dispatch_row* row) {
    if (row == nullptr) {
        refuse_unknown(call.response, call.key);
        return;
    }
    if (!may_be_called_from_there(call.input, *row) || !may_use(call.session, *row)) {
        refuse_permission(call.response, call.key);
        return;
    }
    if (!token_holds(call, *row)) return;
    if (row->own_path_only != nullptr && call.name.row != row) {
        row->own_path_only(call.response, call.input);
        return;
    }
    if (settle_upload(call, *row)) call_handler(call, *row);
}

}  // namespace

void dispatch_request(const request_name& name, wms_strbuf* response, session_record* session,
                      pg_conn* db, cgi* input) {
    if (request_is_factory_default() && !is_setup_key(name.text.c_str())) {
        write_setup_page(response);
        return;
    }
    const char* opcode = cgi_named_value(input, "opcode");
    serve({.name = name,
           .key = opcode != nullptr ? opcode : name.text.c_str(),
           .response = response,
           .session = session,
           .db = db,
           .input = input},
          opcode != nullptr ? dispatch_find(opcode) : name.row);
    spool_drop_upload(request_current().upload);  // of a request that was refused
}

int wuic_cgi(const char* program_name, wms_strbuf* response, session_record* session, pg_conn* db,
             cgi* input) {
    dispatch_request({program_name, dispatch_find(program_name)}, response, session, db, input);
    return 0;
}

bool may_spool_upload(wms_strbuf* response, const session_record* session, const cgi* input) {
    if (request_is_factory_default()) {
        write_setup_page(response);
        return false;
    }
    const std::string_view uri = text_or_null(cgi_get_var(input, "REQUEST_URI"));
    for (const dispatch_row& row : dispatch_rows()) {
        if (!row.spooled || uri.find(row.name) == std::string_view::npos) continue;
        if (may_be_called_from_there(input, row) && session->found &&
            wuic_check_perm(session, row.mask)) {
            continue;
        }
        refuse_permission(response, std::string{row.name}.c_str());
        return false;
    }
    return true;
}

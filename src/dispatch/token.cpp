#include "dispatch/token.h"

#include <cstdio>
#include <cstring>
#include <string_view>

#include "runtime/cgi.h"
#include "runtime/log.h"
#include "runtime/redaction.h"
#include "runtime/text.h"

namespace {

constexpr char token_field[] = "UIDQORIN";

struct token_text {
    char text[128];
    explicit token_text(const char* session_id) {
        std::snprintf(text, sizeof text, "%s=%s", token_field, session_id);
    }
};

bool is_empty(const char* text) {
    return text == nullptr || *text == '\0';
}

bool method_is_get(const cgi* input) {
    const char* method = cgi_get_var(input, "REQUEST_METHOD");
    return method != nullptr && std::strcmp(method, "GET") == 0;
}

// What log lines are made of: key, the query as the server gave it (null: there is none), and the
// raw one. All but the key may hold secrets.
struct log_facts {
    const char* key;
    const char* query1;
    const char* query2;
};

log_facts facts_of(const char* key, const cgi* input) {
    return {text_or_null(key), cgi_get_var(input, "QUERY_STRING"), cgi_query_string(input)};
}

token_result check_api(const log_facts& facts, const char* session_id, const cgi* input) {
    if (verifySidInRequest(cgi_get_var(input, "REQUEST_URI"), session_id)) return token_accepted;
    wuic_log(log_error, "SID validation failed for API opcode:%s, query2:%s, sid:%s",
             redact_uri(facts.key).text, redact_fields(facts.query2).text,
             redact_identifier(session_id).text);
    return token_refused_api;
}

token_result check_field(const log_facts& facts, const char* session_id, const cgi* input) {
    const char* given = cgi_named_value(input, token_field);
    if (is_empty(given)) {
        wuic_log(log_error,
                 "SID validation failed  UIDQORIN pair not found opcode:%s, query1:%s, query2:%s",
                 redact_uri(facts.key).text, redact_fields(facts.query1).text,
                 redact_fields(facts.query2).text);
        return token_refused;
    }
    if (std::strcmp(given, session_id) != 0) {
        wuic_log(log_error,
                 "SID validation failed UIDQORIN do not match opcode:%s, query1:%s, sid:%s, "
                 "query2:%s",
                 redact_uri(facts.key).text, redact_fields(facts.query1).text,
                 redact_identifier(session_id).text, redact_fields(facts.query2).text);
        return token_refused;
    }
    return token_accepted;
}

// Where a raw query is cut to be without its token: at the last "&", if the token is all that
// follows; in a query without "&" at the byte before the token, wherever that stands. Else npos.
std::size_t cut_position(std::string_view query, const char* session_id) {
    const token_text token(session_id);
    const std::string_view wanted = token.text;
    const std::size_t last = query.rfind('&');
    if (last != std::string_view::npos) {
        return query.substr(last + 1) == wanted ? last : std::string_view::npos;
    }
    const std::size_t found = query.find(wanted);
    // At offset 0 there is no byte before it: the query becomes empty.
    return found == std::string_view::npos || found == 0 ? found : found - 1;
}

// A GET must have the token where it can be cut off.
token_result check_place(const log_facts& facts, const char* session_id, const cgi* input) {
    if (!method_is_get(input)) return token_accepted;
    if (is_empty(facts.query2)) {
        wuic_log(log_error, "SID validation failed query2 is NULL  opcode:%s, query1:%s, query2:%s",
                 redact_uri(facts.key).text, redact_fields(facts.query1).text,
                 redact_fields(facts.query2).text);
        return token_refused;
    }
    if (cut_position(facts.query2, session_id) != std::string_view::npos) return token_accepted;
    wuic_log(log_error, "SID validation failed for striping Sid opcode:%s, query2:%s, sid:%s",
             redact_uri(facts.key).text, redact_fields(facts.query2).text,
             redact_identifier(session_id).text);
    return token_refused;
}

bool is_api(const char* key) {
    return std::strstr(key, "/v1/configuration") != nullptr;
}

}  // namespace

token_result token_check(const char* key, const char* session_id, const cgi* input) {
    const log_facts facts = facts_of(key, input);
    if (is_empty(session_id)) {
        wuic_log(log_debug, " Session not set yet opcode:%s, query1:%s, query2:%s",
                 redact_uri(facts.key).text, redact_fields(facts.query1).text,
                 redact_fields(facts.query2).text);
        return token_accepted;
    }
    if (is_api(facts.key)) return check_api(facts, session_id, input);
    const token_result field = check_field(facts, session_id, input);
    return field == token_accepted ? check_place(facts, session_id, input) : field;
}

void token_cut(const char* key, const char* session_id, const cgi* input) {
    if (is_empty(session_id) || is_api(text_or_null(key))) return;
    static_cast<void>(stripSidInArg(cgi_query_string(input), session_id));
}

token_result wuic_validate_sid(const char* key, const wms_strbuf*, const char* session_id,
                               const pg_conn*, const cgi* input) {
    const token_result result = token_check(key, session_id, input);
    if (result == token_accepted) token_cut(key, session_id, input);
    return result;
}

bool verifySidInRequest(const char* request_uri, const char* session_id) {
    if (request_uri == nullptr || session_id == nullptr) return false;
    return std::strstr(request_uri, token_text(session_id).text) != nullptr;
}

bool stripSidInArg(char* query, const char* session_id) {
    if (query == nullptr || session_id == nullptr) return false;
    const std::size_t end = cut_position(query, session_id);
    if (end == std::string_view::npos) return false;
    query[end] = '\0';
    return true;
}

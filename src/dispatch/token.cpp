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

token_result strip_raw_query(const log_facts& facts, const char* session_id, const cgi* input) {
    char* raw = cgi_query_string(input);
    if (is_empty(raw)) {
        if (!method_is_get(input)) return token_accepted;
        wuic_log(log_error, "SID validation failed query2 is NULL  opcode:%s, query1:%s, query2:%s",
                 redact_uri(facts.key).text, redact_fields(facts.query1).text,
                 redact_fields(facts.query2).text);
        return token_refused;
    }
    if (stripSidInArg(raw, session_id) || !method_is_get(input)) return token_accepted;
    wuic_log(log_error, "SID validation failed for striping Sid opcode:%s, query2:%s, sid:%s",
             redact_uri(facts.key).text, redact_fields(facts.query2).text,
             redact_identifier(session_id).text);
    return token_refused;
}

}  // namespace

token_result wuic_validate_sid(const char* key, const wms_strbuf*, const char* session_id,
                               const pg_conn*, const cgi* input) {
    const log_facts facts = facts_of(key, input);
    if (is_empty(session_id)) {
        wuic_log(log_debug, " Session not set yet opcode:%s, query1:%s, query2:%s",
                 redact_uri(facts.key).text, redact_fields(facts.query1).text,
                 redact_fields(facts.query2).text);
        return token_accepted;
    }
    if (std::strstr(facts.key, "/v1/configuration") != nullptr) {
        return check_api(facts, session_id, input);
    }
    const token_result field = check_field(facts, session_id, input);
    return field == token_accepted ? strip_raw_query(facts, session_id, input) : field;
}

bool verifySidInRequest(const char* request_uri, const char* session_id) {
    if (request_uri == nullptr || session_id == nullptr) return false;
    return std::strstr(request_uri, token_text(session_id).text) != nullptr;
}

bool stripSidInArg(char* query, const char* session_id) {
    if (query == nullptr || session_id == nullptr) return false;
    const token_text token(session_id);
    if (char* last = std::strrchr(query, '&')) {
        if (std::strcmp(last + 1, token.text) != 0) return false;
        *last = '\0';
        return true;
    }
    char* found = std::strstr(query, token.text);
    if (found == nullptr) return false;
    // At offset 0 there is no byte before it to end the query at: the query becomes empty.
    *(found == query ? found : found - 1) = '\0';
    return true;
}

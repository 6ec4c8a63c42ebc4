// The anti-forgery token: the session identifier, which a request that changes something must carry
// as its parameter UIDQORIN.
#pragma once

struct cgi;
struct pg_conn;
struct wms_strbuf;

enum token_result : int {
    token_refused = 0,
    token_accepted = 1,
    token_refused_api = 2,  // the configuration API has its own refusal
};

// Checks the token of a request for `key`, and changes nothing. A request without a session
// identifier is accepted. A GET must have the token where token_cut finds it.
//   session_id  the caller's; null or empty: none
[[nodiscard]] token_result token_check(const char* key, const char* session_id, const cgi* input);

// Cuts the token of a request that was accepted from its raw query, so that handlers which take the
// whole query do not see it. The configuration API's query, and one without the token at its end,
// stay as they are.
void token_cut(const char* key, const char* session_id, const cgi* input);

// Both: checks the token, and cuts it when it is accepted.
[[nodiscard]] token_result wuic_validate_sid(const char* key, const wms_strbuf* response,
                                             const char* session_id, const pg_conn* db,
                                             const cgi* input);

// Whether "UIDQORIN=<session_id>" stands anywhere in `request_uri`; false for a missing text.
// NOLINTNEXTLINE(readability-identifier-naming): fixed name
[[nodiscard]] bool verifySidInRequest(const char* request_uri, const char* session_id);

// Shortens a raw query, in place, by a last parameter "UIDQORIN=<session_id>" and the byte before
// it. A query without "&" is cut wherever that text begins. Returns whether it was shortened.
// NOLINTNEXTLINE(readability-identifier-naming): fixed name
[[nodiscard]] bool stripSidInArg(char* query, const char* session_id);

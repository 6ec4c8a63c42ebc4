// Requests with any name, opcode, method, role and token: the dispatcher answers with exactly one
// complete document, and it calls one handler, once, for those alone whom the row's mask and token
// rule admit.
//
// Rows get a handler that only takes notes: lookups are replaced at link time. An input: bytes for
// the role, for switches and for a row whose name is put behind argument 0; lines with argument 0,
// SCRIPT_NAME, PATH_INFO, the session's identifier and a role's name; then the query or body.
#include <array>
#include <cstdio>
#include <cstring>
#include <unistd.h>
#include <vector>

#include "platform/paths.h"

#include "runtime/error_response.h"
#include "runtime/strbuf.h"

#include "backend/permission.h"

#include "dispatch/dispatch_table.h"
#include "dispatch/dispatcher.h"
#include "dispatch/program_name.h"
#include "dispatch/setup_page.h"

#include "fuzz_files.h"
#include "fuzz_server.h"

namespace {

using std::string_view;

struct call_notes {
    int calls = 0;
    std::string key;
    std::string raw;
};

call_notes& notes() {
    static call_notes taken;
    return taken;
}

constexpr string_view wrong_path = "Content-Type: text/xml\r\n\r\nwrong path";

void note_refusal(wms_strbuf* response, const cgi*) {
    wms_strbuf_append_all(response, {wrong_path});
}

int note_call(const char* key, wms_strbuf* response, session_record*, pg_conn*, cgi* input) {
    const char* const raw = cgi_query_string(input);
    ++notes().calls;
    notes().key = key;
    notes().raw = raw != nullptr ? raw : "";
    return wms_strbuf_append_all(response, {xml_header, "<qorin>\n</qorin>\n"});
}

}  // namespace

// What the linker puts in the place of dispatch_find, and what it calls that (fuzz/CMakeLists.txt).
const dispatch_row* find_noting(string_view key) asm(
    "__wrap__Z13dispatch_findSt17basic_string_viewIcSt11char_traitsIcEE");
const dispatch_row* find_really(string_view key) asm(
    "__real__Z13dispatch_findSt17basic_string_viewIcSt11char_traitsIcEE");

const dispatch_row* find_noting(string_view key) {
    static const std::vector<dispatch_row> noting = [] {
        std::vector<dispatch_row> rows(dispatch_rows().begin(), dispatch_rows().end());
        for (dispatch_row& row : rows) {
            row.handler = note_call;
            row.wrapped = false;
            if (row.own_path_only != nullptr) row.own_path_only = note_refusal;
        }
        return rows;
    }();
    const dispatch_row* const row = find_really(key);
    return row != nullptr ? &noting[static_cast<std::size_t>(row - dispatch_rows().data())]
                          : nullptr;
}

namespace {

struct sent_request {
    std::string argument0, script, info, sid, role, method, site, text;
    bool found = false;
    bool factory_default = false;
};

const dispatch_row* plain_exact(string_view key) {
    for (const dispatch_row& row : dispatch_rows())
        if (row.name == key) return &row;
    return nullptr;
}

const dispatch_row* plain_find(string_view key) {
    if (const dispatch_row* const row = plain_exact(key)) return row;
    if (key.find("/v1/configuration") != string_view::npos) return plain_exact("/v1/configuration");
    return key.find('/') == string_view::npos ? nullptr : plain_exact(plain_split(key, '/').back());
}

// Which role has which bit, and which rows other sites or callers without a session may call, is
// held by the access table of the end-to-end tests.
bool may_use(const sent_request& sent, const dispatch_row& row) {
    const bool foreign = sent.site == "cross-site" || sent.site == "same-site";
    if (foreign && (!row.from_other_sites || sent.method != "GET")) return false;
    session_record session{};
    session.found = sent.found;
    sent.role.copy(session.role, sizeof session.role - 1);
    return wuic_check_perm(&session, row.mask) || (!sent.found && row.before_session);
}

// What the token check reads of the request, before the check changes it.
struct token_facts {
    std::string uri, field, raw;
};

enum class token_outcome { accepted, refused, refused_api };

token_outcome plain_token(const sent_request& sent, const token_facts& facts,
                          const dispatch_row& row, string_view key) {
    const bool get = sent.method == "GET";
    const bool due = row.token == token_rule::always ||
                     (row.token == token_rule::post_only && sent.method == "POST");
    if (!due || (!get && sent.method != "POST") || sent.sid.empty()) return token_outcome::accepted;
    const std::string token = "UIDQORIN=" + sent.sid;
    if (key.find("/v1/configuration") != string_view::npos) {
        return facts.uri.find(token) != std::string::npos ? token_outcome::accepted
                                                          : token_outcome::refused_api;
    }
    if (facts.field != sent.sid) return token_outcome::refused;
    if (!get) return token_outcome::accepted;
    const bool several = facts.raw.find('&') != std::string::npos;
    const bool last = several ? plain_split(facts.raw, '&').back() == token
                              : facts.raw.find(token) != std::string::npos;
    return last ? token_outcome::accepted : token_outcome::refused;
}

// The header alone above an empty line, and behind it all of the rest.
string_view body_behind(string_view response, string_view header) {
    expect(response.starts_with(header), "an answer begins with its header");
    return response.substr(header.size());
}

// One error document whose reason is text.
void check_error(string_view response, string_view reason_start) {
    constexpr string_view start = "<qorin>\n  <status>Error</status>\n  <reason>";
    constexpr string_view end = "</reason>\n</qorin>\n";
    string_view body = body_behind(response, xml_header);
    expect(
        body.size() >= start.size() + end.size() && body.starts_with(start) && body.ends_with(end),
        "a refusal is one document");
    body = body.substr(start.size(), body.size() - start.size() - end.size());
    expect(body.starts_with(reason_start), "a refusal tells its reason");
    expect(body.find_first_of("<>\"'") == string_view::npos, "a reason holds no markup");
    for (std::size_t at = body.find('&'); at != string_view::npos; at = body.find('&', at + 1)) {
        const std::size_t length = body.substr(at).find(';');
        expect(length > 1 && length < 8, "a reason's references are whole");
    }
}

void check_handled(const sent_request& sent, const token_facts& facts, string_view response,
                   const std::string& key, const std::string& name) {
    const dispatch_row* const row = plain_find(key);
    const bool allowed = row != nullptr && may_use(sent, *row);
    const token_outcome token =
        allowed ? plain_token(sent, facts, *row, key) : token_outcome::refused;
    const bool admitted = allowed && token == token_outcome::accepted;
    const bool elsewhere = admitted && row->own_path_only != nullptr && plain_find(name) != row;
    const bool runs = admitted && !elsewhere;
    expect(notes().calls == (runs ? 1 : 0), "a handler runs for whom the row admits, and once");
    if (runs) {
        expect(notes().key == key, "a handler gets the key");
        expect(body_behind(response, xml_header) == "<qorin>\n</qorin>\n", "one answer, unchanged");
        expect(facts.raw.starts_with(notes().raw), "the raw query is only ever shortened");
    } else if (elsewhere) {
        expect(response == wrong_path, "a login under another path is refused");
    } else if (row == nullptr) {
        check_error(response, "unknown opcode: ");
    } else if (!allowed) {
        check_error(response, "no permission to execute opcode/program.");
    } else if (token == token_outcome::refused) {
        check_error(response, "SID Validation failed");
    } else {
        const string_view body = body_behind(
            response,
            "Content-Type: application/json\r\nExpires: 0\r\nStatus: 401 Unauthorized\r\n\r\n");
        expect(body.starts_with("{\"_global_result\": {") && body.ends_with("\"}}") &&
                   std::ranges::count(body, '{') == 2 && std::ranges::count(body, '}') == 2,
               "a refusal of the API is one document");
    }
}

void check_setup_page(string_view response) {
    expect(notes().calls == 0, "an unconfigured controller runs no handler");
    expect(response.starts_with("Content-Type: text/html\r\n") &&
               response.find("\r\n\r\n<!DOCTYPE html>\n") != string_view::npos &&
               response.ends_with("</html>\n"),
           "an unconfigured controller shows one page");
}

// An upload is written to flash before it is read: only for whom all named pages admit.
void check_upload(const sent_request& sent, fuzz_request& request) {
    wms_strbuf* const response = &request.record.response;
    bool expected = sent.found && !sent.factory_default;
    for (const string_view page : {"captiveportal_import.html", "wms-os-upload.html"}) {
        if (string_view{cgi_get_var(request.input, "REQUEST_URI")}.find(page) == string_view::npos)
            continue;
        expected = expected && may_use(sent, *plain_exact(page));
    }
    expect(may_spool_upload(response, &request.record.session, request.input) == expected,
           "who may not upload does not write to flash");
    if (expected) {
        expect(response->length == 0, "an upload is not answered before it is read");
    } else if (sent.factory_default) {
        check_setup_page(response->data);
    } else {
        check_error(response->data, "no permission to execute opcode/program.");
    }
}

void check_name(const sent_request& sent, const request_name& found) {
    const std::string& name = found.text;
    const dispatch_row* const row = plain_find(name);
    expect(row == nullptr ? found.row == nullptr
                          : found.row != nullptr && found.row->name == row->name,
           "a name comes with its row");
    const std::string both = sent.script + sent.info;
    expect(name == sent.argument0 || name == sent.script || name == sent.info || name == both,
           "a name is what the server told");
    expect(plain_find(sent.argument0) == nullptr || name == sent.argument0,
           "a known argument is the name");
}

void serve(const sent_request& sent, fuzz_request& request) {
    cgi* const input = request.input;
    wms_strbuf* const response = &request.record.response;
    session_record& session = request.record.session;
    session.found = sent.found;
    std::snprintf(session.sid, sizeof session.sid, "%s", sent.sid.c_str());
    std::snprintf(session.role, sizeof session.role, "%s", sent.role.c_str());
    if (cgi_is_spooled_upload(input)) return check_upload(sent, request);
    if (cgi_parse(input) != 0) return;

    const request_name found = settle_program_name(entry_name_of(sent.argument0.c_str()), input);
    check_name(sent, found);
    const std::string& name = found.text;
    const char* const raw = cgi_query_string(input);
    const char* const field = cgi_named_value(input, "UIDQORIN");
    const char* const opcode = cgi_named_value(input, "opcode");
    const token_facts facts{.uri = cgi_get_var(input, "REQUEST_URI"),
                            .field = field != nullptr ? field : "",
                            .raw = raw != nullptr ? raw : ""};
    expect(wuic_cgi(name.c_str(), response, &session, nullptr, input) == 0, "a request is served");
    expect(std::strlen(response->data) == static_cast<std::size_t>(response->length),
           "an answer is text");
    if (sent.factory_default && !is_setup_key(name.c_str())) {
        check_setup_page(response->data);
    } else {
        check_handled(sent, facts, response->data, opcode != nullptr ? opcode : name, name);
    }
}

// The marker of a controller that nobody has set up, made and removed only when that changes.
void set_factory_default(bool wanted) {
    static bool present = false;
    if (present == wanted) return;
    present = wanted;
    if (wanted) {
        std::ofstream(paths::factory_default_marker) << "";
    } else {
        ::unlink(paths::factory_default_marker);
    }
}

}  // namespace

// Switches: bit 0 the method, 2 a session, 3 and 4 together the factory-default state, 1, 6
// and 7 the site that the request comes from.
void fuzz_one(string_view data) {
    constexpr auto roles = std::to_array<const char*>(
        {"root", "standard", "read-only", "network-operations", "guest-provisioning",
         "location-api-mgmt", "snmpv3-user", "nbapi-mgmt", "ap-provisioning"});
    constexpr auto sites =
        std::to_array<const char*>({"", "cross-site", "same-site", "same-origin", "none",
                                    "Cross-Site", "cross-site, none", "cross-site "});
    fuzz_require_sandbox();
    notes() = {};
    const fuzz_descriptor_check descriptors;
    fuzz_fields fields{data};
    const std::size_t role = fields.byte() % (roles.size() + 1);
    const unsigned switches = fields.byte();
    const std::size_t row = fields.byte();
    sent_request sent;
    for (std::string* text : {&sent.argument0, &sent.script, &sent.info, &sent.sid, &sent.role})
        *text = until_nul(fields.field());
    if (row < dispatch_rows().size()) sent.argument0 += dispatch_rows()[row].name;
    sent.sid.resize(std::min<std::size_t>(sent.sid.size(), 63));
    sent.role.resize(std::min<std::size_t>(sent.role.size(), 127));
    if (role < roles.size()) sent.role = roles[role];
    sent.method = (switches & 1U) != 0 ? "POST" : "GET";
    sent.found = (switches & 4U) != 0;
    sent.site = sites[(switches >> 1U & 1U) | (switches >> 5U & 6U)];
    sent.factory_default = (switches & 24U) == 24;
    sent.text = fields.rest;
    set_factory_default(sent.factory_default);

    fuzz_stdin(sent.text);
    const fuzz_environment environment{{"REQUEST_METHOD", sent.method},
                                       {"QUERY_STRING", sent.method == "GET" ? sent.text : ""},
                                       {"REQUEST_URI", sent.script + sent.info + "?" + sent.text},
                                       {"SCRIPT_NAME", sent.script},
                                       {"PATH_INFO", sent.info},
                                       {"HTTP_SEC_FETCH_SITE", sent.site},
                                       {"CONTENT_LENGTH", std::to_string(sent.text.size())}};
    quiet_request request;
    request.record.wuic_is_cgi_exec = true;
    serve(sent, request);
}

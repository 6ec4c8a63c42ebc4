// The anti-forgery token: where it must stand in a request, and what is stripped of it.
#include "dispatch/token.h"

#include <string>

#include <gtest/gtest.h>

#include "runtime/request.h"

namespace {

struct strip_case {
    const char* query;
    bool found;
    const char* rest;
};

TEST(Token, IsCutFromTheEndOfAQueryOnly) {
    constexpr strip_case cases[] = {
        {"a=1&UIDQORIN=s1", true, "a=1"},
        {"a=1&UIDQORIN=s1&b=2", false, "a=1&UIDQORIN=s1&b=2"},
        {"a=1&UIDQORIN=s12", false, "a=1&UIDQORIN=s12"},
        {"UIDQORIN=s1", true, ""},
        {"UIDQORIN=s1tail", true, ""},  // nothing lies before offset 0
        {"show clock?UIDQORIN=s1", true, "show clock"},
        {"show clock", false, "show clock"},
        {"&UIDQORIN=s1", true, ""},
        {"", false, ""},
    };
    for (const strip_case& row : cases) {
        SCOPED_TRACE(row.query);
        std::string query = row.query;
        EXPECT_EQ(stripSidInArg(query.data(), "s1"), row.found);
        EXPECT_STREQ(query.c_str(), row.rest);
    }
}

TEST(Token, TakesPartWithAtMost118CharactersOfTheIdentifier) {
    const std::string identifier(150, 'x');
    const std::string uri = "/v1/configuration?UIDQORIN=" + std::string(118, 'x');
    EXPECT_TRUE(verifySidInRequest(uri.c_str(), identifier.c_str()));
    EXPECT_FALSE(verifySidInRequest(uri.substr(0, uri.size() - 1).c_str(), identifier.c_str()));
    EXPECT_FALSE(verifySidInRequest(nullptr, "s1"));
}

struct request_case {
    const char* what;
    const char* method;
    const char* key;
    const char* uri;
    const char* form;  // parsed as the request's fields; also its raw query unless `raw` is false
    bool raw;
    const char* sid;
    token_result expected;
    const char* raw_after;
};

TEST(Token, IsJudgedByMethodKeyAndPlace) {
    static constexpr char page[] = "execSimple.xml";
    static constexpr char api[] = "/v1/configuration/object";
    constexpr request_case cases[] = {
        {"last parameter", "GET", page, "", "cmd=x&UIDQORIN=s1", true, "s1", token_accepted,
         "cmd=x"},
        {"alone", "GET", page, "", "UIDQORIN=s1", true, "s1", token_accepted, ""},
        {"in the middle", "GET", page, "", "UIDQORIN=s1&cmd=x", true, "s1", token_refused,
         "UIDQORIN=s1&cmd=x"},
        {"POST in the middle", "POST", page, "", "UIDQORIN=s1&cmd=x", true, "s1", token_accepted,
         "UIDQORIN=s1&cmd=x"},
        {"POST of a large body", "POST", page, "", "UIDQORIN=s1", false, "s1", token_accepted, ""},
        {"GET without a raw query", "GET", page, "", "UIDQORIN=s1", false, "s1", token_refused, ""},
        {"another's", "GET", page, "", "cmd=x&UIDQORIN=s2", true, "s1", token_refused,
         "cmd=x&UIDQORIN=s2"},
        {"a prefix", "GET", page, "", "cmd=x&UIDQORIN=s", true, "s1", token_refused,
         "cmd=x&UIDQORIN=s"},
        {"none", "GET", page, "", "cmd=x", true, "s1", token_refused, "cmd=x"},
        {"empty", "POST", page, "", "UIDQORIN=", true, "s1", token_refused, "UIDQORIN="},
        {"no session", "GET", page, "", "cmd=x", true, "", token_accepted, "cmd=x"},
        {"API by its URI", "GET", api, "/v1/configuration/object?UIDQORIN=s1&x=1", "x=1", true,
         "s1", token_accepted, "x=1"},
        {"API ignores the field", "POST", api, "/v1/configuration/object", "UIDQORIN=s1", true,
         "s1", token_refused_api, "UIDQORIN=s1"},
    };
    for (const request_case& row : cases) {
        SCOPED_TRACE(row.what);
        request_record request;
        ASSERT_EQ(cgi_set_var(&request.input, "REQUEST_METHOD", row.method), 0);
        ASSERT_EQ(cgi_set_var(&request.input, "REQUEST_URI", row.uri), 0);
        std::string form = row.form;
        std::string raw = row.form;
        ASSERT_EQ(cgi_parse_ii(&request.input, form.data(), static_cast<int>(form.size()), 0), 0);
        request.input.raw = row.raw ? raw.data() : nullptr;
        EXPECT_EQ(wuic_validate_sid(row.key, &request.response, row.sid, nullptr, &request.input),
                  row.expected);
        EXPECT_STREQ(row.raw ? raw.c_str() : "", row.raw_after);
    }
}

}  // namespace

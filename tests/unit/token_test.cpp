// The anti-forgery token of a request.
#include "dispatch/token.h"

#include "service_support.h"

namespace {

TEST(token, is_judged_by_method_key_and_place_and_cut_from_the_end_only) {
    struct {
        const char *method, *form, *raw, *rest;
        token_result expected;
    } constexpr cases[] = {
        {"GET", "UIDQORIN=s1", "a=1&UIDQORIN=s1", "a=1", token_accepted},
        {"GET", "UIDQORIN=s1", "a=1&UIDQORIN=s12", "a=1&UIDQORIN=s12", token_refused},
        {"GET", "UIDQORIN=s1", "UIDQORIN=s1&a=1", "UIDQORIN=s1&a=1", token_refused},
        {"POST", "UIDQORIN=s1", "UIDQORIN=s1&a=1", "UIDQORIN=s1&a=1", token_accepted},
        {"GET", "UIDQORIN=s1", "UIDQORIN=s1tail", "", token_accepted},  // nothing before offset 0
        {"GET", "UIDQORIN=s1", "show clock?UIDQORIN=s1", "show clock", token_accepted},
        {"GET", "UIDQORIN=s1", "", "", token_refused},
        {"POST", "UIDQORIN=s1", "", "", token_accepted},
        {"POST", "UIDQORIN=", "UIDQORIN=s1", "UIDQORIN=s1", token_refused}};
    for (const auto& row : cases) {
        request_record request;
        const auto judge = [&](const char* key, const char* sid) {
            return wuic_validate_sid(key, &request.response, sid, nullptr, &request.input);
        };
        set_variables(&request, {{"REQUEST_METHOD", row.method}, {"REQUEST_URI", "/x"}});
        std::string form = row.form;
        std::vector<char> raw(row.raw, row.raw + std::strlen(row.raw) + 1);  // exactly sized
        ASSERT_EQ(cgi_parse_ii(&request.input, form.data(), static_cast<int>(form.size()), 0), 0);
        request.input.raw = raw.data();
        EXPECT_EQ(judge("execSimple.xml", ""), token_accepted);
        EXPECT_EQ(judge("/v1/configuration/object", "s1"), token_refused_api);  // wants the URI
        EXPECT_EQ(token_check("execSimple.xml", "s1", &request.input), row.expected);
        EXPECT_STREQ(raw.data(), row.raw);
        EXPECT_EQ(judge("execSimple.xml", "s1"), row.expected) << row.method << row.raw;
        EXPECT_STREQ(raw.data(), row.rest);
        request.input.raw = nullptr;
    }
}

}  // namespace

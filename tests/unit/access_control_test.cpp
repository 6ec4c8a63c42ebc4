// Who may use a row, by role and token. The access rule is stated a second time, on purpose.
#include "backend/permission.h"

#include "dispatch/token.h"

#include "service_support.h"

namespace {

TEST(access_control, every_role_has_its_bits_and_no_others) {
    constexpr std::pair<std::string_view, unsigned> roles[] = {
        {"root", 0xFFFF},     {"standard", 0xFFFF},      {"read-only", 2},
        {"nbapi-mgmt", 0x80}, {"network-operations", 4}, {"snmpv3-user", 0x20},
        {"Root", 0},          {"guest-provisioning", 8}, {"location-api-mgmt", 16},
        {"read-only ", 0},    {"ap-provisioning", 256},  {"", 0}};
    for (const auto& [role, bits] : roles) {
        session_record session{};
        session.found = true;
        role.copy(session.role, sizeof session.role - 1);
        for (unsigned bit = 1; bit < 0x10000; bit *= 2) {
            EXPECT_EQ(wuic_check_perm(&session, bit), (bits & bit) != 0) << role << ' ' << bit;
        }
        EXPECT_TRUE(wuic_check_perm(&session, 0x1FFFF));
    }
}

// A stale cookie leaves an identifier in the record: only `found` counts.
TEST(access_control, without_a_session_only_remote_access_rows_answer) {
    session_record stale{};
    stale.sid[0] = 'x';
    std::strcpy(stale.role, "root");
    for (const unsigned mask : {0U, 1U, 0xFFBFU, 0xFFFFU, 0x1FFFFU, 0x40U, 0x10047U}) {
        const bool remote_access = mask == 0x40 || mask == 0x10047;
        EXPECT_EQ(wuic_check_perm(&stale, mask), remote_access) << mask;
        EXPECT_EQ(wuic_check_perm(nullptr, mask), remote_access) << mask;
    }
}

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
        EXPECT_EQ(judge("execSimple.xml", "s1"), row.expected) << row.method << row.raw;
        EXPECT_STREQ(raw.data(), row.rest);
        request.input.raw = nullptr;
    }
}

}  // namespace

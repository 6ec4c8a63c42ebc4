// Who may use which row. The access rule is stated here a second time, on purpose.
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "runtime/session_record.h"

#include "auth/permission.h"

namespace {

TEST(access_control, every_role_has_its_bits_and_no_others) {
    const std::map<std::string, unsigned> roles = {
        {"root", 0xFFFF},
        {"standard", 0xFFFF},
        {"read-only", 2},
        {"network-operations", 4},
        {"snmpv3-user", 0x20},
        {"nbapi-mgmt", 0x80},
        {"location-api-mgmt", 16},
        {"ap-provisioning", 256},
        {"read-only ", 0},
        {"guest-provisioning", 8},
        {"Root", 0},
        {"", 0},
    };
    for (const auto& [role, bits] : roles) {
        session_record session{};
        session.found = true;
        role.copy(session.role, sizeof session.role - 1);
        for (unsigned bit = 1; bit < 0x10000; bit *= 2) {
            SCOPED_TRACE(testing::Message() << "'" << role << "', bit " << bit);
            EXPECT_EQ(wuic_check_perm(&session, bit), (bits & bit) != 0);
            EXPECT_EQ(wuic_check_perm(&session, 0xFFFF & ~bit), (bits & ~bit) != 0);
        }
        EXPECT_TRUE(wuic_check_perm(&session, 0x1FFFF));
    }
}

// A stale cookie leaves an identifier in the record: only `found` counts.
TEST(access_control, without_a_session_only_remote_access_rows_answer) {
    session_record stale{};
    stale.sid[0] = 'x';
    stale.role[0] = 'r';
    for (const session_record* nobody : {static_cast<session_record*>(nullptr), &stale}) {
        EXPECT_TRUE(wuic_check_perm(nobody, 0x40));
        EXPECT_TRUE(wuic_check_perm(nobody, 0x10047));
        for (const unsigned mask : {0x0U, 0x1U, 0xFFBFU, 0xFFFFU, 0x1FFFFU}) {
            EXPECT_FALSE(wuic_check_perm(nobody, mask)) << mask;
        }
    }
}

}  // namespace

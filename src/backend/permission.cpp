#include "backend/permission.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "runtime/session_record.h"

namespace {

struct role_bit {
    std::string_view role;
    std::uint32_t bit;
};

// No role stands for bit 0x1: a row whose mask is 0x1 is left to the two unlimited roles.
constexpr auto role_bits = std::to_array<role_bit>({
    {.role = "read-only", .bit = 0x2},
    {.role = "network-operations", .bit = 0x4},
    {.role = "guest-provisioning", .bit = 0x8},
    {.role = "location-api-mgmt", .bit = 0x10},
    {.role = "snmpv3-user", .bit = 0x20},
    {.role = "nbapi-mgmt", .bit = 0x80},
    {.role = "ap-provisioning", .bit = 0x100},
});

constexpr std::array<std::string_view, 2> unlimited_roles{"root", "standard"};

}  // namespace

bool wuic_check_perm(const session_record* session, std::uint32_t mask) {
    const bool every_role = (mask & mask_every_role) == mask_every_role;
    // 0xFFFF has bit 0x40 only because it has all: it admits any role, not a caller without one.
    if (session == nullptr || !session->found) return (mask & mask_no_session) != 0 && !every_role;

    const std::string_view role = session->role;
    if (every_role || std::ranges::find(unlimited_roles, role) != unlimited_roles.end()) {
        return true;
    }
    const auto* const row = std::ranges::find(role_bits, role, &role_bit::role);
    return row != role_bits.end() && (mask & row->bit) != 0;
}

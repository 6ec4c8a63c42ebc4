// May this role use a row with this mask?
#pragma once

#include <cstdint>

struct session_record;

inline constexpr std::uint32_t mask_every_role = 0xFFFF;
inline constexpr std::uint32_t mask_no_session = 0x40;

// With a session: "root" and "standard" always; every role where the mask's low 16 bits are all
// set; else the roles whose bits are set. Without a session bit 0x40 decides, except that all low
// 16 bits together admit nobody.
[[nodiscard]] bool wuic_check_perm(const session_record* session, std::uint32_t mask);

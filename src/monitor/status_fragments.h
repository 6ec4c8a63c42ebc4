// What the dashboard tells of the controller's own checks, an element each. Both write into a
// buffer of `size` bytes, NUL-terminated; status_fragment_size is always enough.
#pragma once

#include <cstdint>

inline constexpr std::int32_t status_fragment_size = 1152;

// The result of the last integrity check. Its file belongs to root, or is not read, and may hold
// markup: the first 1,023 bytes, up to a NUL, are put in as they stand.
// NOLINTNEXTLINE(readability-identifier-naming): fixed name
void getUpgradeInfo(char* out, std::int32_t size);

// "passed" or "failed": whether root has left the mark of a TPM certificate.
// NOLINTNEXTLINE(readability-identifier-naming): fixed name
void getTpmCertInitFailStatus(char* out, std::int32_t size);

// Password obfuscation for management users. It is obfuscation, not encryption: deterministic,
// keyed with a constant of this build, reversible by whoever holds the program. It keeps a password
// from being read over a shoulder or in a log, nothing more.
//
// Format: the text, zero-padded to the size of the cipher buffer, in 8-byte blocks through XTEA
// (32 cycles, big-endian words; Needham and Wheeler, 1997), each block xor-ed with the one before
// it in obfuscated form, the first with zeros.
#pragma once

#include <array>
#include <cstdint>

inline constexpr std::array<std::uint32_t, 4> obfuscation_key{0x5D1C93A7, 0x0E62F84B, 0xB93A47D6,
                                                              0x718F2C05};

// Obfuscates `length` bytes of `text` (the terminating NUL counted by the caller) into `cipher`,
// which has `cipher_size` bytes, a multiple of 8 that is larger than `length`. Returns 0, or -1
// when the sizes do not fit.
// NOLINTNEXTLINE(readability-identifier-naming): fixed name of the platform interface
[[nodiscard]] int qorinEncrypt(const char* text, int length, unsigned char* cipher,
                               int cipher_size);

// Writes `length` bytes as lower-case hexadecimal text and a NUL; `size` must be at least
// 2 * length + 1. Returns 0, or -1 when it is not.
// NOLINTNEXTLINE(readability-identifier-naming): fixed name of the platform interface
[[nodiscard]] int qorinByteToStr(const unsigned char* bytes, int length, char* text, int size);

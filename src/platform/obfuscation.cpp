#include "platform/obfuscation.h"

#include <cstddef>
#include <cstring>
#include <span>

namespace {

constexpr std::size_t block_size = 8;
constexpr int cycles = 32;
constexpr std::uint32_t delta = 0x9E3779B9;

std::uint32_t load_word(std::span<const unsigned char, 4> bytes) {
    return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
           std::uint32_t{bytes[2]} << 8 | std::uint32_t{bytes[3]};
}

void store_word(std::span<unsigned char, 4> bytes, std::uint32_t word) {
    for (std::size_t i = 0; i < 4; ++i) {
        bytes[i] = static_cast<unsigned char>(word >> (24 - 8 * i));
    }
}

void obfuscate_block(std::span<unsigned char, block_size> block) {
    std::uint32_t left = load_word(block.first<4>());
    std::uint32_t right = load_word(block.last<4>());
    std::uint32_t sum = 0;
    for (int cycle = 0; cycle < cycles; ++cycle) {
        left += (((right << 4) ^ (right >> 5)) + right) ^ (sum + obfuscation_key[sum & 3]);
        sum += delta;
        right += (((left << 4) ^ (left >> 5)) + left) ^ (sum + obfuscation_key[(sum >> 11) & 3]);
    }
    store_word(block.first<4>(), left);
    store_word(block.last<4>(), right);
}

}  // namespace

int qorinEncrypt(const char* text, int length, unsigned char* cipher, int cipher_size) {
    if (length < 0 || cipher_size <= length || cipher_size % int{block_size} != 0) return -1;
    const std::span<unsigned char> whole{cipher, static_cast<std::size_t>(cipher_size)};
    std::memset(whole.data(), 0, whole.size());
    if (length > 0) std::memcpy(whole.data(), text, static_cast<std::size_t>(length));

    for (std::size_t at = 0; at < whole.size(); at += block_size) {
        for (std::size_t i = 0; at > 0 && i < block_size; ++i) {
            whole[at + i] ^= whole[at + i - block_size];
        }
        obfuscate_block(whole.subspan(at).first<block_size>());
    }
    return 0;
}

int qorinByteToStr(const unsigned char* bytes, int length, char* text, int size) {
    constexpr char digits[] = "0123456789abcdef";
    if (length < 0 || size <= 0 || length > (size - 1) / 2) return -1;
    for (int i = 0; i < length; ++i) {
        *text++ = digits[bytes[i] >> 4];
        *text++ = digits[bytes[i] & 15];
    }
    *text = '\0';
    return 0;
}

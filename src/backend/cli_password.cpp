// Management-user passwords: they leave the process obfuscated or not at all.
#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/obfuscation.h"
#include "platform/ownership.h"

#include "backend/cli_helper.h"

namespace {

constexpr int tokens_before_password = 3;
constexpr int spaces_before_password = 6;

// Where the `count`-th space stands; npos when there are fewer.
std::size_t nth_space(std::string_view text, int count) {
    std::size_t at = text.find(' ');
    for (; at != std::string_view::npos && count > 1; --count)
        at = text.find(' ', at + 1);
    return at;
}

// The fourth of the space-separated tokens behind the first "$" and the character after it; empty
// when there is none.
std::string_view find_password(std::string_view command) {
    const std::size_t dollar = command.find('$');
    if (dollar == std::string_view::npos || command.size() - dollar < 2) return {};
    std::size_t at = dollar + 2;
    for (int skipped = 0; skipped <= tokens_before_password; ++skipped) {
        at = command.find_first_not_of(' ', at);
        if (at == std::string_view::npos) return {};
        const std::size_t end = std::min(command.find(' ', at), command.size());
        if (skipped == tokens_before_password) return command.substr(at, end - at);
        at = end;
    }
    return {};
}

// The part of the command that stays readable: up to its sixth space, if nothing but spaces lies
// between that and the password. Empty otherwise, or some of the password would stay readable too.
std::string_view find_head(std::string_view command, std::string_view password) {
    const std::size_t space = nth_space(command, spaces_before_password);
    if (space == std::string_view::npos) return {};
    const auto start = static_cast<std::size_t>(password.data() - command.data());
    return command.find_first_not_of(' ', space) == start ? command.substr(0, space + 1)
                                                          : std::string_view{};
}

malloc_text copy_text(std::string_view text) {
    malloc_text copy(static_cast<char*>(std::calloc(text.size() + 1, 1)));
    if (copy) std::memcpy(copy.get(), text.data(), text.size());
    return copy;
}

}  // namespace

char* str_encrypt(const char* text) {
    const std::size_t length = std::strlen(text);
    if (length > INT_MAX / 2 - 32) return nullptr;
    const std::size_t size = ((length + 8) / 8 + 1) * 8;
    const malloc_text cipher(static_cast<char*>(std::calloc(size, 1)));
    malloc_text hex(static_cast<char*>(std::calloc(2 * size + 1, 1)));
    if (!cipher || !hex) return nullptr;

    auto* const bytes = reinterpret_cast<unsigned char*>(cipher.get());
    const int cipher_size = static_cast<int>(size);
    if (qorinEncrypt(text, static_cast<int>(length) + 1, bytes, cipher_size) != 0) return nullptr;
    if (qorinByteToStr(bytes, cipher_size, hex.get(), 2 * cipher_size + 1) != 0) return nullptr;
    return hex.release();
}

int encrypt_mgmt_usr_passwd(const char* command, char* out, std::int32_t out_size) {
    const std::string_view text(command);
    const std::string_view password = find_password(text);
    if (password.empty()) return 1;
    const std::string_view head = find_head(text, password);
    const malloc_text clear = copy_text(password);
    if (head.empty() || !clear) return 1;
    const malloc_text hex(str_encrypt(clear.get()));
    if (!hex) return 1;

    const std::size_t hex_size = std::strlen(hex.get()) + 1;
    if (out_size < 0 || head.size() + hex_size > static_cast<std::size_t>(out_size)) return 1;
    std::memcpy(out, head.data(), head.size());
    std::memcpy(out + head.size(), hex.get(), hex_size);
    return 0;
}

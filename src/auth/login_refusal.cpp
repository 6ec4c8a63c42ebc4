#include "auth/login_refusal.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <string_view>

#include "platform/system_log.h"

#include "runtime/cgi.h"

namespace {

constexpr std::size_t user_max = 64;

struct reason {
    login_refusal why;
    const char* word;
};

constexpr auto reasons = std::to_array<reason>({
    {.why = login_refusal::wrong_password, .word = "wrong-password"},
    {.why = login_refusal::session_limit, .word = "session-limit"},
    {.why = login_refusal::service_silent, .word = "service-silent"},
    {.why = login_refusal::challenge, .word = "challenge"},
    {.why = login_refusal::missing_parameters, .word = "missing-parameters"},
    {.why = login_refusal::other_path, .word = "other-path"},
    {.why = login_refusal::factory_default, .word = "factory-default"},
    {.why = login_refusal::remote_access, .word = "remote-access"},
    {.why = login_refusal::not_stored, .word = "not-stored"},
});

const char* address_of(const cgi* vars) {
    const char* const text = cgi_get_var(vars, "REMOTE_ADDR");
    unsigned char address[sizeof(in6_addr)];
    if (text != nullptr &&
        (::inet_pton(AF_INET, text, address) == 1 || ::inet_pton(AF_INET6, text, address) == 1)) {
        return text;
    }
    return "-";
}

char shown(char c) {
    const bool plain = c >= ' ' && c < 0x7F && c != '"' && c != '\\';
    return plain ? c : '?';
}

}  // namespace

void login_refusal_log(login_refusal why, const cgi* vars) {
    char user[user_max + 1] = "";
    const cgi_pair* const field = cgi_named_pair(vars, "username");
    if (field != nullptr && field->value != nullptr && field->value_len > 0) {
        const std::string_view given(field->value, static_cast<std::size_t>(field->value_len));
        std::ranges::transform(given.substr(0, user_max), user, shown);
    }
    const auto* const row = std::ranges::find(reasons, why, &reason::why);
    system_log_access("login refused: address=%s reason=%s user=\"%s\"", address_of(vars),
                      row != reasons.end() ? row->word : "-", user);
}

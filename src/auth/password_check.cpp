#include "auth/password_check.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "platform/ownership.h"

#include "runtime/cgi.h"
#include "runtime/fsb.h"
#include "runtime/request.h"
#include "runtime/url.h"

#include "backend/cli_helper.h"

#include "auth/field.h"
#include "auth/json_login.h"

namespace {

constexpr std::size_t role_size = 64;
constexpr std::size_t path_size = 1025;
constexpr int command_size = 1024;

using enum password_verdict;

struct parsed_reply {
    cgi form{};
    parsed_reply() noexcept { cgi_init(&form); }
    ~parsed_reply() { cgi_deinit(&form); }
    parsed_reply(const parsed_reply&) = delete;
    parsed_reply& operator=(const parsed_reply&) = delete;
};

// What the command is made of, escaped: nothing in it can start a parameter of its own.
struct escaped_login {
    char user[256];
    char password[256];
    char src_ip[128];
    char src_port[16];
    char dst_ip[128];
    char dst_port[16];
};

// A null text counts as empty. False when the escaped text does not fit.
bool escape(std::span<char> out, const char* text) {
    const std::string_view in = text != nullptr ? text : "";
    std::memset(out.data(), 0, out.size());
    return cgi_escape_url(out.data(), static_cast<std::int32_t>(out.size()) - 1, in.data(),
                          static_cast<std::int32_t>(in.size()), false) >= 0;
}

bool escape_login(escaped_login& out, const password_login& login) {
    return escape(out.user, login.user) && escape(out.password, login.password) &&
           escape(out.src_ip, login.src_ip) && escape(out.src_port, login.src_port) &&
           escape(out.dst_ip, login.dst_ip) && escape(out.dst_port, login.dst_port);
}

// False when the command does not fit.
bool build_command(fsb* command, const password_login& asked, const escaped_login& login) {
    int length = fsb_fmt(
        command, "wuic:auth?uid=%s&passwd=%s&srcip=%s&srcport=%s&dstip=%s&dstport=%s", login.user,
        login.password, login.src_ip, login.src_port, login.dst_ip, login.dst_port);
    if (asked.rac && length >= 0) {
        length = fsb_fmt(command, "&vap=%s&mode=rac", asked.vap != nullptr ? asked.vap : "");
        if (asked.extra != nullptr && length >= 0) length = fsb_fmt(command, "&%s", asked.extra);
    }
    return length >= 0;
}

// Decodes a field of the reply. False when it is cut, by the room in `out` or by a NUL within; a
// missing field is empty.
bool decode_field(const cgi* form, const char* name, std::span<char> out) {
    std::memset(out.data(), 0, out.size());
    const cgi_pair* const pair = cgi_named_pair(form, name);
    if (pair == nullptr || pair->value == nullptr) return true;
    const int length = cgi_unescape_url(out.data(), static_cast<std::int32_t>(out.size()) - 1,
                                        pair->value, pair->value_len);
    return length >= 0 && std::strlen(out.data()) == static_cast<std::size_t>(length);
}

// The second step that the reply asks for. A state is handed back as it came, so it must be whole;
// the message is only shown.
bool keep_challenge(const cgi* form, auth_challenge& challenge) {
    challenge.statelen = field_int32(cgi_named_value(form, "statelen"));
    static_cast<void>(decode_field(form, "reply_message", challenge.reply_message));
    return decode_field(form, "state", challenge.state);
}

password_verdict read_reply(char* text, char* role_out, char* path_out) {
    parsed_reply reply;
    if (cgi_parse_iii(&reply.form, text, static_cast<std::int32_t>(std::strlen(text)), 0) != 0) {
        return refused;
    }
    if (!decode_field(&reply.form, "role", {role_out, role_size}) ||
        !decode_field(&reply.form, "path", {path_out, path_size})) {
        return refused;
    }
    if (cgi_named_pair(&reply.form, "statelen") != nullptr) {
        return keep_challenge(&reply.form, request_current().challenge) ? challenged : refused;
    }
    // Without a role there is nothing that the user may do.
    return role_out[0] != '\0' ? accepted : refused;
}

password_verdict ask_helper(const char* command, char* role_out, char* path_out, char* msg) {
    char* output = nullptr;
    std::int32_t output_len = 0;
    const int result =
        wuic_cli_execute("", "", "", command, &output, &output_len, msg, cli_message_size);
    const malloc_text reply{output};
    if (result != 0) return silent;
    if (msg[0] != '\0') return refused;
    if (!reply || *reply == '\0') return silent;
    return read_reply(reply.get(), role_out, path_out);
}

}  // namespace

password_verdict password_check(const password_login& login, char* role_out, char* path_out,
                                char* msg) {
    role_out[0] = path_out[0] = msg[0] = '\0';
    if (login.user == nullptr || login.password == nullptr) return refused;

    escaped_login escaped;
    if (!escape_login(escaped, login)) return refused;
    char storage[command_size];
    fsb command;
    fsb_new(&command, storage, command_size);
    if (!build_command(&command, login, escaped)) return refused;

    const password_verdict verdict = ask_helper(storage, role_out, path_out, msg);
    if (verdict == refused || verdict == silent) role_out[0] = path_out[0] = '\0';
    return verdict;
}

// NOLINTNEXTLINE(readability-function-size): fixed interface
int wuic_auth_user(const char* user, const char* password, const char* src_ip, const char* src_port,
                   const char* dst_ip, const char* dst_port, char* role_out, char* path_out,
                   char* msg, bool rac, const char* vap, const char* extra) {
    const password_verdict verdict = password_check({.user = user,
                                                     .password = password,
                                                     .src_ip = src_ip,
                                                     .src_port = src_port,
                                                     .dst_ip = dst_ip,
                                                     .dst_port = dst_port,
                                                     .rac = rac,
                                                     .vap = vap,
                                                     .extra = extra},
                                                    role_out, path_out, msg);
    return std::max(0, static_cast<int>(verdict));
}

#include "auth/login_settings.h"

#include <array>

#include "runtime/cgi.h"

namespace {

constexpr std::size_t redirect_length = sizeof "REDIRECT_" - 1;
constexpr char req_url_name[] = "REDIRECT_QORIN_AUTH_REQ_URL";

struct setting {
    const char* name;  // the plain name is what follows "REDIRECT_"
    const char* login_settings::*field;
};

constexpr auto all_settings = std::to_array<setting>({
    {.name = "REDIRECT_QORIN_AUTH_COOKIE_NAME", .field = &login_settings::cookie_name},
    {.name = "REDIRECT_QORIN_AUTH_LOGIN_CGI", .field = &login_settings::login_cgi},
    {.name = "REDIRECT_QORIN_AUTH_LOGOUT_CGI", .field = &login_settings::logout_cgi},
    {.name = "REDIRECT_QORIN_AUTH_SESSION_TIMEOUT", .field = &login_settings::session_timeout},
    {.name = "REDIRECT_QORIN_AUTH_REASON", .field = &login_settings::reason},
    {.name = req_url_name, .field = &login_settings::req_url},
});

login_settings read_all(const cgi* vars, std::size_t skip) {
    login_settings found{};
    for (const setting& row : all_settings)
        found.*row.field = cgi_get_var(vars, row.name + skip);
    return found;
}

bool has_the_paths(const login_settings& s) {
    return s.cookie_name != nullptr && s.login_cgi != nullptr && s.logout_cgi != nullptr;
}

}  // namespace

login_settings login_settings_read(const cgi* vars) {
    login_settings found = read_all(vars, 0);
    const char* const redirect_url = found.req_url;
    if (!has_the_paths(found)) found = read_all(vars, redirect_length);
    const bool has_url = redirect_url != nullptr && *redirect_url != '\0';
    found.req_url = has_url ? redirect_url : cgi_get_var(vars, req_url_name + redirect_length);
    return found;
}

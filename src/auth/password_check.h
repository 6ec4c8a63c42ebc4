// Asking the command service whether a password is right.
#pragma once

// Who wants in, and from where; any may be null. `vap` (the profile) and `extra` (more parameters,
// URL-escaped) are for remote-access logins alone.
struct password_login {
    const char* user;
    const char* password;
    const char* src_ip;
    const char* src_port;
    const char* dst_ip;
    const char* dst_port;
    bool rac = false;
    const char* vap = nullptr;
    const char* extra = nullptr;
};

// From 0 on as wuic_auth_user (json_login.h) has them.
enum class password_verdict : int {
    silent = -1,  // refused, since the service could not be asked or gave no answer
    refused = 0,
    accepted = 1,
    challenged = 2,  // the second step is left in the request record
};

// Texts as wuic_auth_user has them.
[[nodiscard]] password_verdict password_check(const password_login& login, char* role_out,
                                              char* path_out, char* msg);

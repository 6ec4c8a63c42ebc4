// What the system log says of a login that was refused, for tools that shut out who guesses.
#pragma once

#include <cstdint>

struct cgi;

enum class login_refusal : std::uint8_t {
    wrong_password,
    session_limit,
    service_silent,  // the command service could not be asked, or gave no answer
    challenge,       // a second step was asked for where none can be taken
    missing_parameters,
    other_path,  // a login row, reached by its name under another path
    factory_default,
    remote_access,
    not_stored,  // the session could not be
};

// Logs one line with system_log_access:
//
//     login refused: address=192.0.2.1 reason=wrong-password user="admin"
//
// The address is REMOTE_ADDR, "-" where that is none. The user is the form field "username", its
// first 64 bytes, with "?" for quotes, backslashes and what is not printable ASCII; so nothing that
// a client chooses can stand for another part of the line. Never logged: a password.
void login_refusal_log(login_refusal why, const cgi* vars);

// What the remote-access service knows of a client: one message block each way.
#pragma once

// NUL-terminated, as the service states them.
struct rac_client {
    char user[248];
    char role[64];
};

// Asks for the client at `client_addr` that came to `server_addr`. Returns true, with the record
// filled, when it is connected; false, when the service says otherwise, says too little, or does
// not answer within five seconds.
[[nodiscard]] bool rac_client_ask(const char* server_addr, const char* client_addr,
                                  rac_client* client);

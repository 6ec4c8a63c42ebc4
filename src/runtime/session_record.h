// A web-management session as a request sees it: one row of the table http_session.
#pragma once

#include <cstdint>

struct session_record {
    char sid[64];                 // session identifier
    char ip[32];                  // client address
    char user[128];               // user name
    char role[128];               // role name
    std::uint64_t modified_time;  // last change, seconds since the epoch
    std::uint64_t created_time;   // creation, seconds since the epoch
    std::int32_t admin;           // 1 management session, 0 remote-access session
    char path[256];               // path stored with the session
    // Whether there is a session: its row was found or made, or the factory-default state stands in
    // for one. Look at nothing else: a stale cookie leaves an identifier, too.
    bool found;
};

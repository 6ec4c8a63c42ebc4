// Exchange of one fixed-size binary block with a service of the controller over loopback UDP: no
// retry, at most five seconds.
#pragma once

#include <cstdint>

// Sends `request` to 127.0.0.1:`port` (host order) and waits for one reply from there. Returns the
// bytes received into `reply` (0 is an empty reply, more than the capacity is cut), or -1.
[[nodiscard]] int SendMsgBlock(  // NOLINT(readability-identifier-naming): fixed name
    const void* request, std::int32_t request_len, int port, void* reply,
    std::int32_t reply_capacity);

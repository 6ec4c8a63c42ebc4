// Exchange of one fixed-size binary block with a service of the controller over loopback UDP: no
// retry, at most five seconds.
#pragma once

#include <cstdint>

// Sends `request` to UDP `port` (host byte order) of 127.0.0.1 and takes the first datagram from
// there as the reply. Returns the bytes stored in `reply` (0 for an empty datagram; a longer one is
// cut), or -1.
[[nodiscard]] int SendMsgBlock(  // NOLINT(readability-identifier-naming): fixed name
    const void* request, std::int32_t request_len, int port, void* reply,
    std::int32_t reply_capacity);

// The two ends of the connection that a request came over, as the HTTP server states them.
#pragma once

#include <cstdint>

struct cgi;

struct connection_info {
    std::int32_t https_flag;  // 1 when HTTPS is present and anything but "on"; else 0
    char remote_addr[32];
    std::int32_t remote_port;
    char server_addr[32];
    std::int32_t server_port;
};

// Fills the record, which is cleared first; what is missing stays zero or empty.
void wuic_get_connection_info(const cgi* vars, connection_info* record);

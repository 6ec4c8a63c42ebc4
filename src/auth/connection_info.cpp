#include "auth/connection_info.h"

#include <cstring>

#include "runtime/cgi.h"

#include "auth/field.h"

void wuic_get_connection_info(const cgi* vars, connection_info* record) {
    *record = {};
    // Kept, odd as it is: any HTTPS but "on" sets the flag; with "on" or without HTTPS it is clear.
    const char* const https = cgi_get_var(vars, "HTTPS");
    record->https_flag = https != nullptr && std::strcmp(https, "on") != 0 ? 1 : 0;
    field_copy(record->remote_addr, cgi_get_var(vars, "REMOTE_ADDR"));
    record->remote_port = field_int32(cgi_get_var(vars, "REMOTE_PORT"));
    field_copy(record->server_addr, cgi_get_var(vars, "SERVER_ADDR"));
    record->server_port = field_int32(cgi_get_var(vars, "SERVER_PORT"));
}

// The certificate paths of the user database: table cert_path in userdbv3.
#pragma once

#include <cstdint>

struct cert_path_record {
    std::int32_t id;
    char name[512];
    char path[512];
};

// Finds the first row whose id is above `after_id`, over a connection of its own. To walk the
// table, begin with 0 and ask again with the id of each row. Returns 0 with the record filled, or
// -1: a negative `after_id`, no further row, or a failed connection or query.
[[nodiscard]] int retrive_ca_cert_name(std::int32_t after_id, cert_path_record* record);

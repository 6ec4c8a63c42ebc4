// How many events of each type the management database holds, by age.
#pragma once

#include <ctime>

#include "platform/ownership.h"

struct wms_strbuf;

// Appends the counts as a table, for each type and age a row: 'm' up to five minutes before `now`,
// 'h' up to an hour, 'a' older. A query that fails is logged and leaves the table empty.
void event_counts_append(wms_strbuf* out, PGconn* db, std::time_t now);

// As above over a connection of its own and for the present time. Returns 0; -1 when the database
// cannot be opened, which is logged, with nothing appended.
[[nodiscard]] int event_counts_text(wms_strbuf* out);

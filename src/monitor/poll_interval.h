// How often the management service polls its access points.
#pragma once

struct session_record;

// The interval in seconds, as the controller states it ("show wms general"); 0 when the command
// fails, its reply holds an error or no rows, or does not state a positive number.
int wms_get_poll_interval(const session_record* session);

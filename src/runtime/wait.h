// Waiting for a service on behalf of a request. In a warm worker the HTTP server closes the
// request's connection when its client has left, and then nobody takes the answer any more: a
// service that stays silent must not hold the worker, which ends so that another one takes its
// place. As CGI the HTTP server ends the process itself.
#pragma once

#include <poll.h>
#include <span>

inline constexpr int wait_entries_max = 16;
inline constexpr int wait_for_ever = -1;

// poll(2) over `entries` that also watches the request's connection; once that is closed, the
// process ends here with status 0, and what it held goes with it. Result and errno are poll's; a
// signal interrupts it. REQUIRES: at most wait_entries_max entries.
[[nodiscard]] int wait_for(std::span<pollfd> entries, int milliseconds = wait_for_ever);

// Whether there is a connection to watch. What waits for one descriptor in a blocking call may do
// so as long as there is none.
bool wait_is_watched();

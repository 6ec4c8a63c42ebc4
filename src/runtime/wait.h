// Waiting for a service on behalf of a request. In a warm worker the HTTP server closes the
// request's connection when its client has left, and then nobody takes the answer any more: the
// request ends as soon as it can, whatever it waits for, and the worker serves the next one. As CGI
// the HTTP server ends the process itself.
#pragma once

#include <poll.h>
#include <span>

inline constexpr int wait_entries_max = 16;
inline constexpr int wait_for_ever = -1;

// poll(2) over `entries` that also watches the request's connection. Result and errno are poll's; a
// signal interrupts it. Once the client has left it returns -1 with errno ECANCELED, without
// waiting from then on: whoever waits in a loop ends it. REQUIRES: at most wait_entries_max
// entries.
[[nodiscard]] int wait_for(std::span<pollfd> entries, int milliseconds = wait_for_ever);

// Whether the request's client has left; errno is ECANCELED then, and otherwise as it was. Asked by
// whoever is about to begin something for a request: a connection, a message to a service, a
// program, a change of a file, a row or a lock. False as CGI and outside of a request.
[[nodiscard]] bool client_has_left();

// Whether there is a connection to watch. What waits for one descriptor in a blocking call may do
// so as long as there is none.
bool wait_is_watched();

// A warm worker: the program under FastCGI (libfcgi). Libraries are loaded and databases connected
// to before a request comes; for the rest each request has a record of its own, as in a CGI
// program, and nothing of one is left for the next. One request at a time; how many workers there
// are is up to whoever starts them on their common socket.
#pragma once

// True when standard input is a listening socket and GATEWAY_INTERFACE is not set: so a FastCGI
// application is started, and never a CGI program.
bool worker_requested();

// Serves requests until WMS_WORKER_REQUESTS of them (1 to 1,000,000; 1000 when it is not set) are
// done, or until SIGTERM or SIGUSR1 comes: the request that is being served is finished. A
// connection of the HTTP server is closed after its request. Returns the exit status: 1 when
// the variable is set to something else, the socket is not a UNIX socket or it cannot serve, else
// 0.
//   caller_role, argument0  as main got them
int worker_run(const char* caller_role, const char* argument0);

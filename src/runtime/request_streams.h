// Where a request comes from and where its answer goes: the process's own environment, standard
// input and standard output as CGI, or one connection of the HTTP server in a warm worker. Whatever
// reads a variable or the body, or writes the answer, does it here.
#pragma once

#include <cstddef>

struct request_streams {
    const char* const* variables;  // "NAME=value", null-ended; null: the process's environment
    long (*read)(void* context, void* bytes, std::size_t size);  // how many came; 0 end, -1 error
    bool (*write)(void* context, const void* bytes, std::size_t size);  // all of them, or false
    void (*finish)(void* context);  // hands over what was written; nothing is read or written then
    void* context;                  // of the three
    int connection;                 // the HTTP server's socket in a worker, -1 in CGI
};

// Those of a CGI program. Reads and writes are not buffered.
request_streams process_streams();

// The value of a variable of the request; null when there is none. It dies with the request.
const char* streams_variable(const request_streams& streams, const char* name);

// Reads `size` bytes of the body, in as many reads as it takes. Returns how many came before its
// end, or -1.
[[nodiscard]] long streams_read_whole(const request_streams& streams, void* bytes,
                                      std::size_t size);

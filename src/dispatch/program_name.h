// The name under which this request was started, the first candidate for its dispatch key, and the
// row that it leads to. Neither depends on the request's fields.
#pragma once

#include <string>

struct cgi;
struct dispatch_row;

// The controller's own server starts the program with the request's script path as entry 0 of its
// arguments, and that is the name. Stock servers pass the program's file instead (RFC 3875 leaves
// entry 0 open); then the name is put together from SCRIPT_NAME and PATH_INFO (sections 4.1.13 and
// 4.1.5).

// Entry 0, and what it means; found out once, since it is the same for all requests of a process.
struct entry_name {
    const char* text;         // never null; as long-lived as the arguments
    const dispatch_row* row;  // that it leads to, or null
    bool is_program;          // it is the program's file, not a request
};

struct request_name {
    std::string text;
    const dispatch_row* row;  // that dispatch_find has for it, or null
};

//   argument0  entry 0; may be null
entry_name entry_name_of(const char* argument0);

request_name settle_program_name(const entry_name& entry, const cgi* input);

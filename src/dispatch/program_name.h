// The name under which this request was started: the first candidate for its dispatch key.
#pragma once

#include <string>

struct cgi;

// The controller's own server starts the program with the request's script path as entry 0 of its
// arguments, and that is the name. Stock servers pass the program's file instead (RFC 3875 leaves
// entry 0 open); then the name is put together from SCRIPT_NAME and PATH_INFO (sections 4.1.13 and
// 4.1.5).
//   argument0  entry 0; may be null
std::string settle_program_name(const char* argument0, const cgi* input);

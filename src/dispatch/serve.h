// One request, from its variables and body to one block of output: the same in a CGI program and in
// a warm worker.
#pragma once

struct controller_databases;
struct entry_name;
struct request_record;

// Prepares the process, as far as that needs no database: memory that runs out ends it with an
// answer, privileges that it does not need are given up, and the system log is opened.
//   keeps_log  connect to the log now, so that no request does
// REQUIRES: a record exists.
void process_begin(bool keeps_log);

// Prepares a record that was just made: the levels to log at are read.
//   caller_role  getrole()'s
void request_begin(request_record& request, const char* caller_role);

// Reads the request, finds its session and has it handled; whatever comes of it is in the response.
// REQUIRES: the databases are open. In a worker a connection that was lost meanwhile is renewed.
void request_serve(request_record& request, controller_databases& databases,
                   const entry_name& entry);

// Writes the response, or that memory ran out while it was made, to the request's stream.
void request_answer(request_record& request);

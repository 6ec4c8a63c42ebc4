// Runs another program as a child: clean environment with a fixed PATH, no CGI variables, standard
// input from /dev/null, and none of our descriptors but standard output and error.
#pragma once

// Runs `program` (an absolute path) with `arguments` (a null-terminated array, argument 0 included)
// and waits for it. Returns its exit status, 128 + the signal that ended it, or -1 when it could
// not be started.
[[nodiscard]] int execute_command_status(const char* program, const char* const* arguments);

// As above for callers that only ask whether it worked: 0 when the child exited with 0, else -1.
[[nodiscard]] int execute_command(const char* program, const char* const* arguments);

// Replaces this process by `program` without arguments, in the same clean environment. Returns only
// on failure, with -1 and errno set.
int replace_process(const char* program);

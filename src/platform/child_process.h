// Runs another program as a child. It inherits standard output and error and nothing else: no other
// descriptor, an environment of a fixed PATH alone, and /dev/null to read from.
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

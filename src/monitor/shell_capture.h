// The output of a shell command.
#pragma once

struct wms_strbuf;

inline constexpr int shell_output_max = 65536;  // bytes that are taken of an output

// Appends what `command` writes to standard output, run by the shell as this process's user. The
// command must be one of ours: it is shell text. One that ends with another status than 0 appends
// the command line and that status in place of its output; nothing is appended when there is no
// file to catch the output in.
void shell_capture(wms_strbuf* out, const char* command);

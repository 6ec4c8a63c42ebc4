// How this folder's lines are marked in the controller's log.
#pragma once

inline constexpr char session_log_source[] = "wuic-session";
inline constexpr int session_log_error = 3;  // "error" of syslog(3)

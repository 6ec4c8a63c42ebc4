// Small services of the controller that handlers ask directly. A port to a real controller replaces
// this folder.
#pragma once

// The role that the controller gives this process; "root" where it gives none and we run as root,
// else "". The text lives as long as the process.
const char* getrole();

// True while the controller runs its factory-default configuration: the marker file exists.
bool isWuicConfigFactoryDefault();  // NOLINT(readability-identifier-naming): fixed name

// Appends one entry (local time, type, reason) to the controller's reboot history. A history that
// cannot be written is logged nowhere: the caller's own work does not depend on it.
void record_reboot_reason(int type, const char* reason);

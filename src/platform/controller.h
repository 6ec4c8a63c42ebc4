// Small services that handlers ask of the controller. On a real one its own code takes the place of
// this folder.
#pragma once

// What this process may be on the controller: "root" with the effective user id 0, else "". The
// text is static.
const char* getrole();

// Whether the factory-default marker file exists.
bool isWuicConfigFactoryDefault();  // NOLINT(readability-identifier-naming): fixed name

// Appends one entry (local time, type, reason) to the controller's reboot history. A history that
// cannot be written is logged nowhere: the caller's own work does not depend on it.
void record_reboot_reason(int type, const char* reason);

// One lock file for each kind of maintenance command, lest two of a kind run side by side: an
// advisory record lock (fcntl(2)) between processes, with the holder's pid in the file. The system
// drops the lock with its process, and the next attempt takes the stale file over.
#pragma once

#include <sys/types.h>

struct wms_strbuf;

enum lock_kind : int {
    lock_upgrade_image = 0,
    lock_upgrade_package = 1,
    lock_flash_archive = 2,
    lock_crash_archive = 3,
    lock_log_archive = 4,
};

// Opens a lock file to read and write, and makes it with mode 0777 where it is missing. The
// descriptor, which the caller closes, or -1.
[[nodiscard]] int open_file_for_locking(const char* path);

// Tries to take the lock. Returns 0 with the lock taken and `pid` stored in the file; 1 when the
// process `holder` has it; 2 when it was not to be had and the file names nobody. Waits only for a
// holder that the file does not name, or whose process is gone: at most some 50 ms, since whoever
// has just taken the lock is still to write its pid.
[[nodiscard]] int lock_file(int fd, pid_t pid, pid_t* holder);

// Takes the lock of a kind. Null when the command may run, else the message to show; `upgrade_busy`
// is set when an image upgrade is being run by another. A holder without a readable pid stops
// nobody.
[[nodiscard]] const char* lock_file_for_clisession_str(int kind, bool* upgrade_busy);

// The same for a handler: 1 when the command may run, 0 after writing the message into `response`.
[[nodiscard]] int lock_file_for_clisession(wms_strbuf* response, int kind);

// Releases a kind and deletes its lock file; does nothing when it is not held.
void unlock_file_for_clisession(int kind);

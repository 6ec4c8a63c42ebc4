// A flash of this process's own, below the program's fixed path.
#pragma once

#include <fstream>
#include <iterator>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "fuzz_input.h"

// Puts an empty memory file system over /flash, once, seen by this process only: targets run side
// by side.
inline void fuzz_private_flash() {
    static const bool made = [] {
        fuzz_require_sandbox();
        return unshare(CLONE_NEWNS) == 0 &&
               mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
               mount("none", "/flash", "tmpfs", 0, "mode=755,size=64m") == 0 &&
               mkdir("/flash/config", 0755) == 0;
    }();
    expect(made, "a flash of our own");
}

inline bool fuzz_file_exists(const char* path) {
    struct stat facts {};
    return lstat(path, &facts) == 0;
}

inline std::string fuzz_file_text(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

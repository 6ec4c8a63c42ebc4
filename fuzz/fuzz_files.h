// Files at the program's fixed paths, for targets that call fuzz_require_sandbox() first.
#pragma once

#include <fstream>
#include <iterator>
#include <sys/stat.h>

#include "fuzz_input.h"

inline bool fuzz_file_exists(const char* path) {
    struct stat facts {};
    return lstat(path, &facts) == 0;
}

inline std::string fuzz_file_text(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

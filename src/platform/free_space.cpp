#include "platform/free_space.h"

#include <cinttypes>
#include <cstdio>
#include <limits>
#include <sys/statvfs.h>

#include "platform/ownership.h"
#include "platform/paths.h"

namespace {

constexpr std::uint64_t mib = 1048576;

std::int64_t free_mib(const char* root) {
    struct statvfs figures {};
    if (statvfs(root, &figures) != 0 || figures.f_frsize == 0) return 0;
    const std::uint64_t blocks = figures.f_bavail;
    if (blocks > std::numeric_limits<std::int64_t>::max() / figures.f_frsize) return 0;
    return static_cast<std::int64_t>(blocks * figures.f_frsize / mib);
}

}  // namespace

std::int64_t free_flash_mib() {
    return free_mib(paths::flash_root);
}

std::int64_t free_ramdisk_mib() {
    return free_mib(paths::ramdisk_root);
}

std::int64_t free_memory_bytes() {
    const stdio_file figures{std::fopen(paths::memory_info, "re")};
    if (!figures) return 0;
    char line[128];
    while (std::fgets(line, sizeof line, figures.get()) != nullptr) {
        std::int64_t kib = 0;
        if (std::sscanf(line, "MemAvailable: %" SCNd64 " kB", &kib) != 1) continue;
        return kib < 0 || kib > std::numeric_limits<std::int64_t>::max() / 1024 ? 0 : kib * 1024;
    }
    return 0;
}

// What is free on the controller: flash, RAM disk and memory.
#pragma once

#include <cstdint>

// Free space of /flash and of the RAM disk /tmp, in MiB, as an unprivileged writer sees it
// (statvfs(3), f_bavail); 0 when it cannot be read.
std::int64_t free_flash_mib();
std::int64_t free_ramdisk_mib();

// MemAvailable of /proc/meminfo, in bytes (proc(5)); 0 when it cannot be read.
std::int64_t free_memory_bytes();

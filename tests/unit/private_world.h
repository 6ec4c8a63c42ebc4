// A world of its own for one test program: /tmp, /dev and /flash are empty, and the network is a
// loopback interface that nobody else uses. So the program is tested with its real paths and ports,
// and test programs may run side by side. Only root may make one.
#pragma once

#include <cstring>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "platform/ownership.h"

inline bool enter_private_world() {
    if (unshare(CLONE_NEWNS | CLONE_NEWNET) != 0) return false;
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
    for (const char* folder : {"/tmp", "/dev", "/flash"}) {
        mkdir(folder, 0755);
        if (mount("none", folder, "tmpfs", 0, "mode=1777") != 0) return false;
    }
    const unique_fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq loopback = {};
    std::strcpy(loopback.ifr_name, "lo");
    loopback.ifr_flags = IFF_UP | IFF_RUNNING;
    return ioctl(fd.get(), SIOCSIFFLAGS, &loopback) == 0;
}

// Made before the first test and gone with the process.
struct private_world : testing::Environment {
    void SetUp() override { ASSERT_TRUE(enter_private_world()) << std::strerror(errno); }
};

inline testing::Environment* const the_private_world =
    testing::AddGlobalTestEnvironment(new private_world);

// Named UNIX sockets and the system's logger, as tests stand in for them.
#pragma once

#include <cstdio>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/ownership.h"
#include "platform/system_log.h"

inline unique_fd bind_local(const char* path, int type) {
    unique_fd fd(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", path);
    unlink(path);
    EXPECT_EQ(bind(fd.get(), reinterpret_cast<const sockaddr*>(&addr), sizeof addr), 0);
    return fd;
}

// Stands in for the system's logger; only inside a private world.
struct log_recorder {
    unique_fd fd = bind_local("/dev/log", SOCK_DGRAM | SOCK_NONBLOCK);
    log_recorder() {
        closelog();
        system_log_open("httpd");
    }
    // The next line as "<priority>text"; empty when nothing was logged.
    std::string next() const {
        char line[8192];
        const ssize_t got = recv(fd.get(), line, sizeof line, 0);
        if (got <= 0) return "";
        const std::string whole(line, static_cast<std::size_t>(got));
        const std::size_t text = whole.find("]: ");  // behind the time, "httpd" and the process
        return whole.substr(0, whole.find('>') + 1) + whole.substr(text + 3);
    }
};

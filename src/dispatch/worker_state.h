// What a process could carry from one request into the next outside of the request's record. Builds
// for tests compare it: in others nothing is looked at (WMS_WORKER_CHECKS).
#pragma once

#include <bitset>
#include <csignal>
#include <cstddef>
#include <string>
#include <sys/types.h>

struct controller_databases;

struct worker_state {
    std::bitset<1024> descriptors;  // which are open; those of the databases come and go
    mode_t mode_mask = 0;
    std::string folder;
    std::string environment;
    std::string locale;
    sigset_t signals = {};  // that are blocked
};

// Takes the present state.
worker_state worker_state_now(const controller_databases& databases);

// Names the first difference; null when there is none.
const char* worker_state_difference(const worker_state& before, const worker_state& after);

// What builds for tests compare before and after each request of a worker: every kind of change is
// seen, and none where nothing changed.
#include "dispatch/worker_state.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "runtime/database.h"

namespace {

TEST(WorkerState, EveryChangeIsNamed) {
    const struct {
        void (*change)();
        const char* name;
    } rows[] = {
        {[] { ASSERT_GE(::open("/dev/null", O_RDONLY), 0); }, "open descriptors"},
        {[] { ::umask(::umask(0) ^ 1); }, "file mode mask"},
        {[] { ASSERT_EQ(::chdir("/usr"), 0); }, "working directory"},
        {[] { ::setenv("WORKER_STATE", "x", 1); }, "environment"},
        {[] {
             sigset_t more;
             sigemptyset(&more);
             sigaddset(&more, SIGUSR2);
             ASSERT_EQ(::sigprocmask(SIG_BLOCK, &more, nullptr), 0);
         },
         "signal mask"},
    };
    const controller_databases none;
    for (const auto& row : rows) {
        const worker_state before = worker_state_now(none);
        EXPECT_EQ(worker_state_difference(before, worker_state_now(none)), nullptr);
        row.change();
        EXPECT_STREQ(worker_state_difference(before, worker_state_now(none)), row.name);
    }
}

}  // namespace

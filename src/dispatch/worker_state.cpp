#include "dispatch/worker_state.h"

#include <climits>
#include <clocale>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "runtime/database.h"

namespace {

std::bitset<1024> open_descriptors(const controller_databases& databases) {
    std::bitset<1024> found;
    for (std::size_t fd = 0; fd < found.size(); ++fd) {
        found[fd] = ::fcntl(static_cast<int>(fd), F_GETFD) >= 0;
    }
    for (const db_conn* conn :
         {&databases.wms, &databases.gapdb, &databases.cfgmdb, &databases.userdb}) {
        const int fd = PQsocket(conn->get());
        if (fd >= 0) found.reset(static_cast<std::size_t>(fd));
    }
    return found;
}

std::string whole_environment() {
    std::string all;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        all.append(*entry).push_back('\n');
    }
    return all;
}

bool are_equal(const sigset_t& a, const sigset_t& b) {
    for (int number = 1; number < NSIG; ++number) {
        if (sigismember(&a, number) != sigismember(&b, number)) return false;
    }
    return true;
}

}  // namespace

worker_state worker_state_now(const controller_databases& databases) {
    worker_state now;
    now.descriptors = open_descriptors(databases);
    now.mode_mask = ::umask(0);
    static_cast<void>(::umask(now.mode_mask));
    char folder[PATH_MAX] = "";
    if (::getcwd(folder, sizeof folder) != nullptr) now.folder = folder;
    now.environment = whole_environment();
    now.locale = std::setlocale(LC_ALL, nullptr);
    static_cast<void>(::sigprocmask(SIG_SETMASK, nullptr, &now.signals));
    return now;
}

const char* worker_state_difference(const worker_state& before, const worker_state& after) {
    if (before.descriptors != after.descriptors) return "open descriptors";
    if (before.mode_mask != after.mode_mask) return "file mode mask";
    if (before.folder != after.folder) return "working directory";
    if (before.environment != after.environment) return "environment";
    if (before.locale != after.locale) return "locale";
    return are_equal(before.signals, after.signals) ? nullptr : "signal mask";
}

#include "dispatch/slow_request_log.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

#include "platform/ownership.h"
#include "platform/paths.h"
#include "platform/safe_open.h"
#include "platform/system_log.h"

#include "runtime/log.h"
#include "runtime/redaction.h"
#include "runtime/request.h"
#include "runtime/text.h"

namespace {

constexpr key_t semaphore_key = 666667;

union semaphore_argument {  // semctl(2): the caller defines it
    int val;
    semid_ds* buf;
    unsigned short* array;
};

// The semaphore, made with the value 1 by whoever comes first; -1 after logging why there is none.
int open_semaphore() {
    int semaphore = ::semget(semaphore_key, 1, IPC_CREAT | IPC_EXCL | 0600);
    if (semaphore >= 0) {
        semaphore_argument one{};
        one.val = 1;
        if (::semctl(semaphore, 0, SETVAL, one) == 0) return semaphore;
        controller_log(log_error, "Unable to initialize semaphore for httpd timings.");
        return -1;
    }
    if (errno == EEXIST) semaphore = ::semget(semaphore_key, 1, 0600);
    if (semaphore < 0) {
        controller_log(log_error, "Unable to create semaphore for httpd timings. errno=%d", errno);
    }
    return semaphore;
}

// SEM_UNDO: a process that dies between the two must not lock all others out.
int change_semaphore(int semaphore, short by) {
    sembuf operation{};
    operation.sem_op = by;
    operation.sem_flg = SEM_UNDO;
    int result = 0;
    do {
        result = ::semop(semaphore, &operation, 1);
    } while (result != 0 && errno == EINTR);
    return result;
}

void append_line(const char* program_name, const char* key, std::time_t seconds) {
    const unique_fd fd = safe_open_for_writing(paths::httpd_timing, O_WRONLY | O_APPEND, 0666);
    if (!fd) {
        if (errno == EACCES) {
            controller_log(log_error,
                           "Unable to write to file %s. Please change file permission to 0666.",
                           paths::httpd_timing);
        }
        return;
    }
    char clock[16] = "";
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    if (::localtime_r(&now, &local) != nullptr) std::strftime(clock, sizeof clock, "%T ", &local);
    char line[system_log_line_max + 1];
    std::snprintf(line, sizeof line, "%s %s %s %ld\n", clock, redact_uri(program_name).text,
                  std::strcmp(program_name, key) == 0 ? "" : redact_uri(key).text,
                  static_cast<long>(seconds));
    blank_controls(line);
    ::dprintf(fd.get(), "%s", line);
}

}  // namespace

bool slow_request_log_is_on() {
    request_record& request = request_current();
    if (request.timing == remembered::unknown) {
        const bool wanted = !request.wuic_is_cgi_exec && ::access(paths::httpd_timing, F_OK) == 0;
        if (wanted) request.timing_semaphore = open_semaphore();
        request.timing = wanted && request.timing_semaphore >= 0 ? remembered::yes : remembered::no;
    }
    return request.timing == remembered::yes;
}

void slow_request_log_add(const char* program_name, const char* key, std::time_t seconds) {
    if (seconds < slow_request_seconds) return;
    const int semaphore = request_current().timing_semaphore;
    if (change_semaphore(semaphore, -1) != 0) {
        controller_log(log_error, "Unable to take semaphore lock %d errno=%d.", semaphore, errno);
        return;
    }
    append_line(text_or_null(program_name), text_or_null(key), seconds);
    if (change_semaphore(semaphore, 1) != 0) {
        controller_log(log_error, "Unable to return semaphore lock.");
    }
}

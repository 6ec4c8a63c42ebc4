/* How long a part of a request takes by itself, the median in microseconds:
 *
 *   share helper|query SID PROCESSES SECONDS
 *
 * Each process does it again and again: an exchange with the helper, or the session's query on a
 * connection that stays open. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "ordinary_request.h"

enum { times_max = 4000000 };

struct measured {
    size_t count;
    float microseconds[times_max];
};

static double now(void) {
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return (double)time.tv_sec * 1e6 + (double)time.tv_nsec / 1e3;
}

static bool run_helper(const char* sid) {
    static char out[answer_size];
    const char* const fields[4] = {"admin", "127.0.0.1", sid, "show clock"};
    return exchange(fields, out, sizeof out) >= 0;
}

static bool run_query(PGconn* database, const char* sid) {
    PGresult* row = find_session(database, sid);
    PQclear(row);
    return row != NULL;
}

static int measure(struct measured* to, bool helper, const char* sid, double seconds) {
    PGconn* database = helper ? NULL : PQconnectdb("dbname=wms user=root");
    const double end = now() + seconds * 1e6;
    for (double begin = now(); begin < end && to->count < times_max;) {
        if (!(helper ? run_helper(sid) : run_query(database, sid))) return 1;
        const double done = now();
        to->microseconds[to->count++] = (float)(done - begin);
        begin = done;
    }
    PQfinish(database);
    return 0;
}

static int compare(const void* a, const void* b) {
    const float left = *(const float*)a, right = *(const float*)b;
    return (left > right) - (left < right);
}

static void* shared(size_t size) {
    return mmap(NULL, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1,
                0);
}

int main(int argc, char** argv) {
    if (argc != 5) return 2;
    const int processes = atoi(argv[3]);
    struct measured* all = shared(sizeof *all * (size_t)processes);
    float* merged = shared(sizeof *merged * times_max * (size_t)processes);
    if (all == MAP_FAILED || merged == MAP_FAILED) return 1;
    for (int i = 0; i < processes; ++i) {
        if (fork() == 0)
            _exit(measure(&all[i], strcmp(argv[1], "helper") == 0, argv[2], atof(argv[4])));
    }
    int failed = 0, status;
    while (wait(&status) > 0)
        failed |= status;
    size_t count = 0;
    for (int i = 0; i < processes; ++i) {
        memcpy(merged + count, all[i].microseconds, all[i].count * sizeof *merged);
        count += all[i].count;
    }
    if (failed != 0 || count == 0) return 1;
    qsort(merged, count, sizeof *merged, compare);
    printf("%.1f\n", (double)merged[count / 2]);
    return 0;
}

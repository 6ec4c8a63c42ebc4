// Preloaded into the program: counts what it allocates and the bytes that it copies in blocks of 4 KiB
// and more, and writes both to the file that COUNT_CALLS names. "Own" is what the program's code
// calls, not its libraries. What the C library copies within itself is not seen: a stream that
// is flushed writes large texts from where they are.
#define _GNU_SOURCE
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <malloc.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/auxv.h>
#include <unistd.h>

extern void* __libc_malloc(size_t size);
extern void* __libc_calloc(size_t count, size_t size);
extern void* __libc_realloc(void* block, size_t size);

enum { large = 4096 };

static struct {
    unsigned long allocations, own_allocations, copied, own_copied;
} counts;
static uintptr_t own_begin, own_end;
static int report = -1;

static int is_own(const void* caller) {
    return (uintptr_t)caller - own_begin < own_end - own_begin;
}

static void count_allocation(const void* caller) {
    ++counts.allocations;
    if (is_own(caller)) ++counts.own_allocations;
}

static void count_copy(const void* caller, size_t size) {
    if (size < large) return;
    counts.copied += size;
    if (is_own(caller)) counts.own_copied += size;
}

#define CALLER __builtin_return_address(0)

void* malloc(size_t size) {
    count_allocation(CALLER);
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    count_allocation(CALLER);
    return __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) {
    count_allocation(CALLER);
    return __libc_realloc(block, size);
}

static void* copy(void* to, const void* from, size_t size) {
    void* const start = to;
    __asm__ volatile("rep movsb" : "+D"(to), "+S"(from), "+c"(size) : : "memory");
    return start;
}

void* memcpy(void* restrict to, const void* restrict from, size_t size) {
    count_copy(CALLER, size);
    return copy(to, from, size);
}

void* __memcpy_chk(void* to, const void* from, size_t size, size_t room) {
    if (size > room) abort();
    count_copy(CALLER, size);
    return copy(to, from, size);
}

void* memmove(void* to, const void* from, size_t size) {
    count_copy(CALLER, size);
    if ((uintptr_t)to - (uintptr_t)from >= size) return copy(to, from, size);
    for (char *out = (char*)to + size, *in = (char*)from + size; out != to;)
        *--out = *--in;
    return to;
}

static void find_own_code(void) {
    const ElfW(Phdr)* const head = (const ElfW(Phdr)*)getauxval(AT_PHDR);
    const size_t count = getauxval(AT_PHNUM);
    uintptr_t base = 0;
    for (size_t i = 0; i < count; ++i) {
        if (head[i].p_type == PT_PHDR) base = (uintptr_t)head - head[i].p_vaddr;
    }
    for (size_t i = 0; i < count; ++i) {
        if (head[i].p_type != PT_LOAD || !(head[i].p_flags & PF_X)) continue;
        own_begin = base + head[i].p_vaddr;
        own_end = own_begin + head[i].p_memsz;
    }
}

// Opened early: later the program has given up what it takes.
__attribute__((constructor)) static void begin(void) {
    find_own_code();
    const char* const path = getenv("COUNT_CALLS");
    if (path) report = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
}

__attribute__((destructor)) static void end(void) {
    if (report < 0) return;
    dprintf(report, "%lu %lu %lu %lu\n", counts.own_allocations, counts.allocations, counts.own_copied,
            counts.copied);
}

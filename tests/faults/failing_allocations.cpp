// Makes an allocation of the program fail: the one with the number WMS_FAIL_ALLOCATION, counted
// from the entry of `main`, or every one from there on when WMS_FAIL_ONWARD is set. Whatever
// allocates in the process is counted: the program, operator new, libpq and the C library itself.
// The first failure leaves a line on standard error, so that a run in which none was due can be
// told. Allocations that succeed are the C library's own (its names for them are in its ABI).
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <dlfcn.h>
#include <unistd.h>

// NOLINTBEGIN(readability-identifier-naming,bugprone-reserved-identifier): the C library's names
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}
// NOLINTEND(readability-identifier-naming,bugprone-reserved-identifier)

namespace {

using main_function = int (*)(int, char**, char**);

struct failing_allocations {
    main_function program = nullptr;
    long due = 0;  // 0: none
    bool onward = false;
    long count = 0;
};

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): the C library's calls find it
failing_allocations state;

bool fails() {
    if (state.due == 0 || ++state.count < state.due) return false;
    if (state.count > state.due && !state.onward) return false;
    if (state.count == state.due) {
        constexpr char line[] = "allocation failed\n";
        static_cast<void>(!write(STDERR_FILENO, line, sizeof line - 1));
    }
    errno = ENOMEM;
    return true;
}

int armed_main(int argc, char** argv, char** environment) {
    const char* const due = std::getenv("WMS_FAIL_ALLOCATION");
    state.onward = std::getenv("WMS_FAIL_ONWARD") != nullptr;
    state.due = due != nullptr ? std::strtol(due, nullptr, 10) : 0;
    return state.program(argc, argv, environment);
}

}  // namespace

// NOLINTBEGIN(readability-identifier-naming,cert-dcl37-c,bugprone-reserved-identifier): fixed names

extern "C" {

[[gnu::visibility("default")]] void* malloc(std::size_t size) {
    return fails() ? nullptr : __libc_malloc(size);
}

[[gnu::visibility("default")]] void* calloc(std::size_t count, std::size_t size) {
    return fails() ? nullptr : __libc_calloc(count, size);
}

[[gnu::visibility("default")]] void* realloc(void* block, std::size_t size) {
    return fails() ? nullptr : __libc_realloc(block, size);
}

[[gnu::visibility("default")]] void* memalign(std::size_t alignment, std::size_t size) {
    return fails() ? nullptr : __libc_memalign(alignment, size);
}

[[gnu::visibility("default")]] void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return memalign(alignment, size);
}

[[gnu::visibility("default")]] int posix_memalign(void** block, std::size_t alignment,
                                                  std::size_t size) {
    *block = memalign(alignment, size);
    return *block != nullptr ? 0 : ENOMEM;
}

// Entry of every program: armed only behind it, since what the loader does is no part of a request.
// NOLINTNEXTLINE(readability-function-size): fixed interface
[[gnu::visibility("default")]] int __libc_start_main(main_function program, int argc, char** argv,
                                                     void (*init)(), void (*fini)(),
                                                     void (*rtld_fini)(), void* stack_end) {
    using start_function =
        int (*)(main_function, int, char**, void (*)(), void (*)(), void (*)(), void*);
    void* const real = dlsym(RTLD_NEXT, "__libc_start_main");
    state.program = program;
    return reinterpret_cast<start_function>(real)(armed_main, argc, argv, init, fini, rtld_fini,
                                                  stack_end);
}
}

// NOLINTEND(readability-identifier-naming,cert-dcl37-c,bugprone-reserved-identifier)

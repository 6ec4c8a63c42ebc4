// Linked into every executable of a sanitized build: the options lie in the program itself, since
// an HTTP server hands no environment of ours on. In the test sandbox reports go to files, which
// fail the run; elsewhere they go to standard error. Called before anything else of the program, so
// these functions do nothing but ask for the folder. The functions and options are in the manuals
// of AddressSanitizer and UndefinedBehaviorSanitizer.
#include <dlfcn.h>
#include <unistd.h>

namespace {

constexpr char report_folder[] = "/run/wms/sanitizer";
constexpr char report_path[] = "/run/wms/sanitizer/report";

bool in_sandbox() {
    return access(report_folder, W_OK) == 0;
}

// GCC's two runtimes each have a report file, but both export the function that names it under one
// symbol, so that UndefinedBehaviorSanitizer's log_path ends up as AddressSanitizer's. Told through
// a handle of its own, it keeps the path.
[[gnu::constructor, gnu::used]] void name_report_of_undefined_behaviour() {
    void* runtime = in_sandbox() ? dlopen("libubsan.so.1", RTLD_LAZY | RTLD_NOLOAD) : nullptr;
    if (runtime == nullptr) return;
    void* setter = dlsym(runtime, "__sanitizer_set_report_path");
    if (setter != nullptr) reinterpret_cast<void (*)(const char*)>(setter)(report_path);
}

}  // namespace

extern "C" {

// What the build asks the linker for, so that this file is part of every executable.
[[gnu::used]] extern const char wms_sanitizer_options = 1;

// NOLINTNEXTLINE(readability-identifier-naming): the runtime looks for this name
[[gnu::used, gnu::no_sanitize("address", "undefined")]] const char* __asan_default_options() {
    return in_sandbox() ? "log_path=/run/wms/sanitizer/report:detect_leaks=1:halt_on_error=1:"
                          "detect_stack_use_after_return=1:strict_string_checks=1"
                        : "detect_leaks=1:halt_on_error=1:strict_string_checks=1";
}

// NOLINTNEXTLINE(readability-identifier-naming): the runtime looks for this name
[[gnu::used, gnu::no_sanitize("address", "undefined")]] const char* __ubsan_default_options() {
    return in_sandbox() ? "log_path=/run/wms/sanitizer/report:halt_on_error=1:print_stacktrace=1"
                        : "halt_on_error=1:print_stacktrace=1";
}
}

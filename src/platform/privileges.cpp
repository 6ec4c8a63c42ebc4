#include "platform/privileges.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <linux/audit.h>
#include <linux/capability.h>
#include <linux/filter.h>
#include <linux/sched.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int capability_places = 64;  // two words of 32 bits

template <class... Number>
constexpr std::uint64_t capability_set(Number... numbers) {
    return ((std::uint64_t{1} << numbers) | ...);
}

// Spool, trace and lock files below /tmp may be another user's, and so may the timing semaphore.
constexpr std::uint64_t own_capabilities =
    capability_set(CAP_DAC_OVERRIDE, CAP_FOWNER, CAP_IPC_OWNER);
constexpr std::uint64_t tool_capabilities =
    own_capabilities | capability_set(CAP_CHOWN, CAP_DAC_READ_SEARCH, CAP_FSETID, CAP_KILL,
                                      CAP_SETGID, CAP_SETUID, CAP_SETPCAP, CAP_NET_BIND_SERVICE,
                                      CAP_NET_RAW, CAP_SYS_NICE, CAP_SYS_RESOURCE, CAP_AUDIT_WRITE);

#if defined(__x86_64__)
constexpr std::uint32_t architecture = AUDIT_ARCH_X86_64;
constexpr std::uint32_t foreign_calls = 0x40000000;  // the x32 variant's begin here
#elif defined(__aarch64__)
constexpr std::uint32_t architecture = AUDIT_ARCH_AARCH64;
constexpr std::uint32_t foreign_calls = 0xFFFFFFFF;
#else
#error "the filter of system calls does not know this architecture"
#endif

constexpr auto refused_calls = std::to_array<std::uint32_t>({
    SYS_acct, SYS_add_key, SYS_bpf, SYS_chroot, SYS_clock_settime, SYS_delete_module,
        SYS_finit_module, SYS_fsopen, SYS_fspick, SYS_init_module, SYS_io_uring_setup,
        SYS_kexec_file_load, SYS_kexec_load, SYS_keyctl, SYS_mount, SYS_mount_setattr,
        SYS_move_mount, SYS_open_by_handle_at, SYS_open_tree, SYS_perf_event_open, SYS_pidfd_getfd,
        SYS_pivot_root, SYS_process_vm_readv, SYS_process_vm_writev, SYS_quotactl, SYS_reboot,
        SYS_request_key, SYS_setns, SYS_settimeofday, SYS_swapoff, SYS_swapon, SYS_umount2,
        SYS_unshare, SYS_userfaultfd,
#if !defined(__SANITIZE_ADDRESS__)  // LeakSanitizer stops the process's threads by it
        SYS_ptrace,
#endif
});

constexpr std::uint32_t new_namespaces = CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWNET |
                                         CLONE_NEWIPC | CLONE_NEWUTS | CLONE_NEWCGROUP;

constexpr sock_filter statement(std::uint32_t code, std::size_t value) {
    return {.code = static_cast<std::uint16_t>(code),
            .jt = 0,
            .jf = 0,
            .k = static_cast<std::uint32_t>(value)};
}

// Jumps over `taken` statements where the test holds, else over `other`.
constexpr sock_filter jump(std::uint32_t test, std::uint32_t value, std::size_t taken,
                           std::size_t other) {
    return {.code = static_cast<std::uint16_t>(BPF_JMP | BPF_K | test),
            .jt = static_cast<std::uint8_t>(taken),
            .jf = static_cast<std::uint8_t>(other),
            .k = value};
}

constexpr sock_filter load(std::size_t offset) {
    return statement(BPF_LD | BPF_W | BPF_ABS, offset);
}

constexpr sock_filter answer(std::uint32_t action) {
    return statement(BPF_RET | BPF_K, action);
}

constexpr std::size_t first_call = 9;
constexpr std::size_t allow = first_call + refused_calls.size();
constexpr std::size_t refuse = allow + 1;
constexpr std::size_t absent = refuse + 1;

// How many statements lie between the one at `from` and the one at `to`.
constexpr std::size_t over(std::size_t from, std::size_t to) {
    return to - from - 1;
}
static_assert(over(1, absent) <= 0xFF, "a jump reaches 255 statements far");

// Threads and children are made by clone(2), whose flags can be seen, and by clone3(2), whose flags
// cannot: the C library goes back to the former where the latter is absent.
constexpr std::array<sock_filter, absent + 1> make_filter() {
    std::array<sock_filter, absent + 1> filter{};
    filter[0] = load(offsetof(seccomp_data, arch));
    filter[1] = jump(BPF_JEQ, architecture, 0, over(1, refuse));
    filter[2] = load(offsetof(seccomp_data, nr));
    filter[3] = jump(BPF_JGE, foreign_calls, over(3, refuse), 0);
    filter[4] = jump(BPF_JEQ, SYS_clone3, over(4, absent), 0);
    filter[5] = jump(BPF_JEQ, SYS_clone, 0, 2);
    filter[6] = load(offsetof(seccomp_data, args));  // the low half of the first: little-endian
    filter[7] = jump(BPF_JSET, new_namespaces, over(7, refuse), over(7, allow));
    filter[8] = load(offsetof(seccomp_data, nr));
    for (std::size_t i = 0; i < refused_calls.size(); ++i) {
        const std::size_t at = first_call + i;
        filter[at] = jump(BPF_JEQ, refused_calls[i], over(at, refuse), 0);
    }
    filter[allow] = answer(SECCOMP_RET_ALLOW);
    filter[refuse] = answer(SECCOMP_RET_ERRNO | EPERM);
    filter[absent] = answer(SECCOMP_RET_ERRNO | ENOSYS);
    return filter;
}

// The kernel copies the program, but asks for a pointer to what is writable.
bool filter_calls() {
    auto filter = make_filter();
    const sock_fprog program{.len = filter.size(), .filter = filter.data()};
    // Without the flag, older kernels slow the whole process down against speculation.
    return ::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_SPEC_ALLOW,
                     &program) == 0;
}

// The bounding set limits what a program gets when it is started by root. Nothing is asked of the
// kernel that is so already: a caller that was narrowed before may have no right to ask.
bool limit_tools() {
    for (int number = 0; number < capability_places; ++number) {
        const int held = ::prctl(PR_CAPBSET_READ, number, 0, 0, 0);
        if (held < 0) return true;  // beyond the last one that the kernel knows
        if (held == 0 || (tool_capabilities >> number & 1) != 0) continue;
        if (::prctl(PR_CAPBSET_DROP, number, 0, 0, 0) != 0) return false;
    }
    return true;
}

// What is asked for must be there: not every root has all.
bool limit_self() {
    __user_cap_header_struct head{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> words{};
    if (::syscall(SYS_capget, &head, words.data()) != 0) return false;
    constexpr std::array<std::uint32_t, _LINUX_CAPABILITY_U32S_3> kept{
        static_cast<std::uint32_t>(own_capabilities),
        static_cast<std::uint32_t>(own_capabilities >> 32)};
    for (std::size_t i = 0; i < words.size(); ++i) {
        words[i].permitted &= kept[i];
        words[i].effective &= kept[i];
        words[i].inheritable = 0;
    }
    return ::syscall(SYS_capset, &head, words.data()) == 0;
}

}  // namespace

bool privileges_narrow() {
    if (::geteuid() != 0) return true;
    // In this order: each needs a capability that the last one takes.
    const bool filtered = filter_calls();
    const int error = errno;
    bool narrowed = limit_tools();
    narrowed = limit_self() && narrowed;
    narrowed = ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) == 0 && narrowed;
    if (!filtered) errno = error;
    return filtered && narrowed;
}

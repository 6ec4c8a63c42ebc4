#include "backend/cli_helper.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/paths.h"

#include "runtime/session_record.h"
#include "runtime/socket.h"

namespace {

constexpr int audit_text_size = 1024;

// Where the outcome of one exchange goes; all borrowed from the caller.
struct cli_outputs {
    char** text;
    std::int32_t* length;
    char* msg;
    std::int32_t msg_size;
};

// The connected socket: its sending side is shut down before it is closed, on every path.
struct helper_socket {
    unique_fd fd;
    helper_socket() = default;
    ~helper_socket() {
        if (fd) shutdown(fd.get(), SHUT_WR);
    }
    helper_socket(const helper_socket&) = delete;
    helper_socket& operator=(const helper_socket&) = delete;
};

std::string_view text_or_empty(const char* text) {
    return text != nullptr ? text : "";
}

// Leaves "what: reason" as the message, with the reason of errno. Returns -1.
int fail(const cli_outputs& out, const char* what) {
    if (out.msg_size > 0) {
        std::snprintf(out.msg, static_cast<std::size_t>(out.msg_size), "%s: %s", what,
                      std::strerror(errno));
    }
    return -1;
}

bool contains(const char* text, const char* part) {
    return std::strstr(text, part) != nullptr;
}

bool sets_management_password(const char* command) {
    return contains(command, "branch-config-group") && contains(command, "mgmt-user") &&
           !contains(command, "no mgmt-user");
}

// The command with its password obfuscated; null when that cannot be done.
malloc_text obfuscated_command(const char* command) {
    // At most 2 * (length + 16) digits replace the password, and there is a NUL.
    const std::size_t size = std::strlen(command) * 3 + 64;
    if (size > INT_MAX) return nullptr;
    malloc_text rewritten(static_cast<char*>(std::malloc(size)));
    if (!rewritten) return nullptr;
    const int result =
        encrypt_mgmt_usr_passwd(command, rewritten.get(), static_cast<std::int32_t>(size));
    return result == 0 ? std::move(rewritten) : nullptr;
}

// Everybody may plant a link below /tmp that leads to another service's socket, which may well be
// root's. None is followed: what is connected to is what stands at the path itself.
unique_fd find_socket(const char* path) {
    unique_fd place{open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC)};
    struct stat facts = {};
    if (!place || fstat(place.get(), &facts) != 0) return {};
    if (S_ISSOCK(facts.st_mode) && facts.st_nlink <= 1) return place;
    errno = EACCES;
    return {};
}

int connect_path(int fd, const char* path) {
    const unique_fd place = find_socket(path);
    if (!place) return -1;
    sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    std::snprintf(addr.sun_path, sizeof addr.sun_path, paths::own_descriptor, place.get());
    const auto* const generic = reinterpret_cast<const sockaddr*>(&addr);
    while (connect(fd, generic, sizeof addr) != 0) {
        if (errno != EINTR) return -1;
    }
    return 0;
}

// Everybody may make a socket below /tmp, so one that is neither root's nor ours gets nothing of
// the request. Returns 0, or -1 with errno EACCES.
int check_peer(int fd) {
    ucred peer = {};
    socklen_t size = sizeof peer;
    const bool known = getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0;
    if (known && (peer.uid == 0 || peer.uid == geteuid())) return 0;
    errno = EACCES;
    return -1;
}

int helper_connect(helper_socket* helper, const cli_outputs& out) {
    helper->fd.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!helper->fd) return fail(out, "Failed to create socket");
    const int fd = helper->fd.get();
    if (connect_path(fd, paths::cli_helper_socket) != 0 || check_peer(fd) != 0) {
        return fail(out, "Failed to connect socket");
    }
    return 0;
}

bool write_all(int fd, const void* bytes, std::size_t size) {
    const long length = static_cast<long>(size);
    return tp_socket_nwrite(fd, bytes, length, nullptr) == length;
}

// A field is its length, 4 bytes big-endian, and its bytes.
bool write_field(int fd, std::string_view field) {
    if (field.size() > UINT32_MAX) {
        errno = EMSGSIZE;
        return false;
    }
    const std::uint32_t length = htonl(static_cast<std::uint32_t>(field.size()));
    return write_all(fd, &length, sizeof length) && write_all(fd, field.data(), field.size());
}

bool read_all(int fd, void* bytes, std::int32_t size) {
    return tp_socket_nread(fd, bytes, size, nullptr) == size;
}

bool read_length(int fd, std::int32_t* length) {
    std::uint32_t word = 0;
    if (!read_all(fd, &word, sizeof word)) return false;
    *length = static_cast<std::int32_t>(ntohl(word));
    return true;
}

// Status word, output length and output. A stated length costs address space only: pages are
// touched as bytes arrive.
int read_output(int fd, const cli_outputs& out) {
    std::int32_t status = 0;
    if (!read_length(fd, &status) || !read_length(fd, out.length)) {
        return fail(out, "Failed to read socket");
    }
    if (*out.length <= 0) return 0;
    const std::int32_t length = *out.length;
    malloc_text text(static_cast<char*>(std::malloc(static_cast<std::size_t>(length) + 1)));
    if (!text) return fail(out, "Malloc failed");
    if (!read_all(fd, text.get(), length)) return fail(out, "Failed to read socket");
    text.get()[length] = '\0';
    *out.text = text.release();
    return 0;
}

int read_message(int fd, const cli_outputs& out) {
    std::int32_t length = 0;
    if (!read_length(fd, &length)) return fail(out, "Failed to read socket");
    if (length <= 0) return 0;
    if (length >= out.msg_size) {
        errno = 0;  // no system call failed
        return fail(out, "Failed to read socket");
    }
    if (!read_all(fd, out.msg, length)) {
        return fail(out, "Failed to read socket");
    }
    out.msg[length] = '\0';
    return 0;
}

int exchange(const std::array<std::string_view, 4>& fields, const cli_outputs& out) {
    helper_socket helper;
    if (helper_connect(&helper, out) != 0) return -1;
    const int fd = helper.fd.get();
    for (const std::string_view field : fields) {
        if (!write_field(fd, field)) return fail(out, "Failed to write socket");
    }
    if (read_output(fd, out) != 0) return -1;
    return read_message(fd, out);
}

}  // namespace

// NOLINTNEXTLINE(readability-function-size): fixed interface
int wuic_cli_execute(const char* user, const char* ip, const char* sid, const char* command,
                     char** out_text, std::int32_t* out_len, char* msg, std::int32_t msg_size) {
    *out_text = nullptr;
    *out_len = 0;
    if (msg == nullptr) return -1;
    if (msg_size > 0) msg[0] = '\0';

    const cli_outputs out = {.text = out_text, .length = out_len, .msg = msg, .msg_size = msg_size};
    malloc_text rewritten;
    const char* sent = text_or_empty(command).data();
    if (sets_management_password(sent)) {
        rewritten = obfuscated_command(sent);
        if (!rewritten && msg_size > 0) {
            std::snprintf(msg, static_cast<std::size_t>(msg_size),
                          "Failed to configure mgmt-user.");
        }
        if (!rewritten) return -1;
        sent = rewritten.get();
    }
    return exchange({text_or_empty(user), text_or_empty(ip), text_or_empty(sid), sent}, out);
}

int wuic_audit_trail(const session_record* session, int type, const char* format, ...) {
    char text[audit_text_size] = "";
    va_list args;
    va_start(args, format);
    static_cast<void>(std::vsnprintf(text, sizeof text, format, args));
    va_end(args);

    // What does not fit is cut: a shortened record is better than none.
    char command[audit_text_size];
    const int head = std::snprintf(command, sizeof command, "wuic:audit?type=%d&msg=", type);
    const auto used = static_cast<std::size_t>(head);
    std::snprintf(command + used, sizeof command - used, "%.*s",
                  static_cast<int>(sizeof command - used - 1), text);

    malloc_text ignored;
    char* output = nullptr;
    std::int32_t length = 0;
    char msg[cli_message_size];
    static_cast<void>(wuic_cli_execute(session->user, session->ip, session->sid, command, &output,
                                       &length, msg, sizeof msg));
    ignored.reset(output);
    return 0;
}

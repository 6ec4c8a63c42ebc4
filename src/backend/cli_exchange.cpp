#include "backend/cli_exchange.h"

#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <span>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/un.h>

#include "platform/paths.h"

#include "runtime/socket.h"
#include "runtime/wait.h"

#include "backend/cli_helper.h"

namespace {

using enum cli_phase;

constexpr std::size_t pieces_max = 8;  // a request's lengths and fields
constexpr char connecting[] = "Failed to connect socket";

// Ends it with "what: reason" as the message, with the reason of errno.
void fail(cli_exchange* exchange, const cli_outputs& out, const char* what) {
    exchange_fail(exchange);
    if (out.msg_size > 0) {
        std::snprintf(out.msg, static_cast<std::size_t>(out.msg_size), "%s: %s", what,
                      std::strerror(exchange->error));
    }
}

// ---- the command

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

std::string_view text_or_empty(const char* text) {
    return text != nullptr ? text : "";
}

// Settles what is sent. Returns false when that ended the exchange.
bool prepare(cli_exchange* exchange, const cli_request& request, const cli_outputs& out) {
    const char* command = text_or_empty(request.command).data();
    if (sets_management_password(command)) {
        exchange->rewritten = obfuscated_command(command);
        command = exchange->rewritten.get();
    }
    if (command == nullptr) {
        exchange_fail(exchange);
        if (out.msg_size > 0) {
            std::snprintf(out.msg, static_cast<std::size_t>(out.msg_size),
                          "Failed to configure mgmt-user.");
        }
        return false;
    }
    exchange->fields = {text_or_empty(request.user), text_or_empty(request.ip),
                        text_or_empty(request.sid), command};
    exchange->phase = ready;
    return true;
}

// ---- the connection

// What stands at the path itself and not behind a link.
unique_fd find_socket(const char* path) {
    unique_fd place{open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC)};
    struct stat facts = {};
    if (!place || fstat(place.get(), &facts) != 0) return {};
    if (S_ISSOCK(facts.st_mode) && facts.st_nlink <= 1) return place;
    errno = EACCES;
    return {};
}

// A full queue is waited for in the call, which few requests need. Where the request's connection
// is watched, that is looked at every second.
bool let_connect_wait(int fd) {
    if (fcntl(fd, F_SETFL, 0) != 0) return false;
    if (!wait_is_watched()) return true;
    const timeval limit = {.tv_sec = 1, .tv_usec = 0};
    return setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) == 0;
}

// After a failure of connect(2), whose errno is looked at. `waits`: that was a call that waits.
bool is_worth_another_try(int fd, bool alone, bool* waits) {
    if (errno == EINTR) return true;
    if (errno != EAGAIN || !alone) return false;
    if (!*waits) return *waits = let_connect_wait(fd);
    if (!wait_is_watched()) return false;
    return wait_for({}, 0) >= 0 || errno == EINTR;
}

sockaddr_un address_of(const char* path) {
    sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", path);
    return addr;
}

// Gives the exchange a new socket that is connected. Returns null, or the step that failed.
const char* connect_path(cli_exchange* exchange, const char* path, bool alone) {
    exchange->fd.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!exchange->fd) return "Failed to create socket";
    const int fd = exchange->fd.get();
    const sockaddr_un addr = address_of(path);
    const auto* const generic = reinterpret_cast<const sockaddr*>(&addr);
    bool waits = false;
    while (connect(fd, generic, sizeof addr) != 0) {
        if (!is_worth_another_try(fd, alone, &waits)) return connecting;
    }
    // That call may have taken a second.
    return waits && client_has_left() ? connecting : nullptr;
}

// Whether the service has bound its socket to this very path, whatever led there.
bool is_bound_to(int fd, const char* path) {
    sockaddr_un name = {};
    socklen_t size = sizeof name;
    return getpeername(fd, reinterpret_cast<sockaddr*>(&name), &size) == 0 && size <= sizeof name &&
           std::strncmp(name.sun_path, path, sizeof name.sun_path) == 0;
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

// Everybody may plant a link below /tmp that leads to another service's socket, which may well be
// root's. The name that a service has bound tells ours from others; where it is another one, as it
// is after a renaming, what stands at the path itself counts, and the first connection says
// nothing. Returns null, or the step that failed, with errno set.
const char* connect_helper(cli_exchange* exchange, bool alone) {
    const char* const path = paths::cli_helper_socket;
    const char* failed = connect_path(exchange, path, alone);
    if (failed == nullptr && !is_bound_to(exchange->fd.get(), path)) {
        const unique_fd place = find_socket(path);
        if (!place) return connecting;
        char pinned[sizeof sockaddr_un::sun_path];
        std::snprintf(pinned, sizeof pinned, paths::own_descriptor, place.get());
        exchange_close(exchange);
        failed = connect_path(exchange, pinned, alone);
    }
    if (failed != nullptr) return failed;
    return check_peer(exchange->fd.get()) == 0 ? nullptr : connecting;
}

// ---- the bytes

iovec piece_of(void* bytes, std::size_t size) {
    return {.iov_base = bytes, .iov_len = size};
}

// What is left of the pieces behind their first `moved` bytes, put to their front.
std::span<iovec> rest_of(std::span<iovec> pieces, std::size_t moved) {
    std::size_t done = 0;
    while (done < pieces.size() && moved >= pieces[done].iov_len)
        moved -= pieces[done++].iov_len;
    if (done == pieces.size()) return {};
    pieces[done].iov_base = static_cast<char*>(pieces[done].iov_base) + moved;
    pieces[done].iov_len -= moved;
    return pieces.subspan(done);
}

msghdr message_of(std::span<iovec> pieces) {
    msghdr message = {};
    message.msg_iov = pieces.data();
    message.msg_iovlen = pieces.size();
    return message;
}

// A field is its length, 4 bytes big-endian, and its bytes. Returns false for one that is too long.
bool state_lengths(cli_exchange* exchange) {
    for (std::size_t i = 0; i < exchange->fields.size(); ++i) {
        const std::size_t size = exchange->fields[i].size();
        if (size > UINT32_MAX) {
            errno = EMSGSIZE;
            return false;
        }
        exchange->words[i] = htonl(static_cast<std::uint32_t>(size));
    }
    return true;
}

void enter(cli_exchange* exchange, cli_phase phase) {
    exchange->phase = phase;
    exchange->moved = 0;
}

// Returns whether sending may go on at once.
bool send_some(cli_exchange* exchange, const cli_outputs& out) {
    std::array<iovec, pieces_max> pieces{};
    for (std::size_t i = 0; i < exchange->fields.size(); ++i) {
        const std::string_view field = exchange->fields[i];
        pieces[2 * i] = piece_of(&exchange->words[i], sizeof exchange->words[i]);
        // sendmsg(2) only reads them.
        pieces[2 * i + 1] = piece_of(const_cast<char*>(field.data()), field.size());
    }
    const std::span<iovec> rest = rest_of(pieces, exchange->moved);
    if (rest.empty()) {
        enter(exchange, head);
        return false;
    }
    const msghdr message = message_of(rest);
    const ssize_t put = sendmsg(exchange->fd.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (put > 0) {
        exchange->moved += static_cast<std::size_t>(put);
        return true;
    }
    if (put < 0 && tp_socket_no_error(errno)) return errno == EINTR;
    fail(exchange, out, "Failed to write socket");
    return false;
}

std::int32_t reply_word(const cli_exchange& exchange, std::size_t index) {
    return static_cast<std::int32_t>(ntohl(exchange.words[index]));
}

// The status word and the output length; then the output and the message length, since there is
// always one; then the message.
std::array<iovec, 2> expected(cli_exchange* exchange, const cli_outputs& out) {
    constexpr std::size_t word = sizeof exchange->words[0];
    if (exchange->phase == head) return {piece_of(exchange->words.data(), 2 * word), {}};
    if (exchange->phase == body) {
        return {piece_of(exchange->text.get(), static_cast<std::size_t>(exchange->length)),
                piece_of(exchange->words.data(), word)};
    }
    return {piece_of(out.msg, static_cast<std::size_t>(reply_word(*exchange, 0))), {}};
}

// A stated length costs address space only: pages are touched as bytes arrive.
void end_head(cli_exchange* exchange, const cli_outputs& out) {
    *out.length = reply_word(*exchange, 1);
    exchange->length = *out.length > 0 ? *out.length : 0;
    enter(exchange, body);
    if (exchange->length == 0) return;
    exchange->text.reset(
        static_cast<char*>(std::malloc(static_cast<std::size_t>(exchange->length) + 1)));
    if (!exchange->text) fail(exchange, out, "Malloc failed");
}

void end_body(cli_exchange* exchange, const cli_outputs& out) {
    const std::int32_t length = reply_word(*exchange, 0);
    if (length <= 0) return exchange_end(exchange, 0);
    if (length < out.msg_size) return enter(exchange, message);
    errno = 0;  // no system call failed
    fail(exchange, out, "Failed to read socket");
}

void end_message(cli_exchange* exchange, const cli_outputs& out) {
    out.msg[reply_word(*exchange, 0)] = '\0';
    exchange_end(exchange, 0);
}

void end_phase(cli_exchange* exchange, const cli_outputs& out) {
    if (exchange->phase == head) return end_head(exchange, out);
    if (exchange->phase == body) return end_body(exchange, out);
    end_message(exchange, out);
}

// The output is the caller's as soon as it is whole, whatever becomes of the message.
void hand_over(cli_exchange* exchange, const cli_outputs& out) {
    const auto length = static_cast<std::size_t>(exchange->length);
    if (exchange->phase != body || !exchange->text || exchange->moved < length) return;
    exchange->text.get()[length] = '\0';
    *out.text = exchange->text.release();
}

// Returns whether receiving may go on at once.
bool receive_some(cli_exchange* exchange, const cli_outputs& out) {
    std::array<iovec, 2> pieces = expected(exchange, out);
    const std::span<iovec> rest = rest_of(pieces, exchange->moved);
    if (rest.empty()) {
        end_phase(exchange, out);
        return !exchange->ended;
    }
    msghdr message = message_of(rest);
    const ssize_t got = recvmsg(exchange->fd.get(), &message, MSG_DONTWAIT);
    if (got > 0) {
        exchange->moved += static_cast<std::size_t>(got);
        hand_over(exchange, out);
        return true;
    }
    if (got < 0 && tp_socket_no_error(errno)) return errno == EINTR;
    if (got == 0) errno = 0;  // an early end is no failure of a system call
    fail(exchange, out, "Failed to read socket");
    return false;
}

}  // namespace

exchange_start cli_exchange_begin(cli_exchange* exchange, const cli_request& request,
                                  const cli_outputs& out, bool alone) {
    const bool is_fresh = exchange->phase == fresh;
    if (is_fresh && !prepare(exchange, request, out)) return exchange_start::begun;
    const char* failed = connect_helper(exchange, alone);
    if (failed != nullptr && !alone && exchange_is_shortage(errno)) {
        exchange_close(exchange);
        return exchange_start::later;
    }
    if (failed == nullptr && !state_lengths(exchange)) failed = "Failed to write socket";
    if (failed != nullptr) {
        fail(exchange, out, failed);
        return exchange_start::begun;
    }
    enter(exchange, sending);
    while (exchange->phase == sending && send_some(exchange, out)) {
    }
    return exchange_start::begun;
}

void cli_exchange_step(cli_exchange* exchange, const cli_outputs& out) {
    bool goes_on = true;
    while (goes_on && exchange->phase == sending)
        goes_on = send_some(exchange, out);
    // Between sending and receiving, the answer is not there yet.
    while (goes_on && exchange->phase != sending && !exchange->ended)
        goes_on = receive_some(exchange, out);
}

short cli_exchange_events(const cli_exchange& exchange) {
    return exchange.phase == sending ? POLLOUT : POLLIN;
}

bool cli_exchange_is_sent(const cli_exchange& exchange) {
    return exchange.ended || exchange.phase >= head;
}

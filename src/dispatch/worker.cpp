#include "dispatch/worker.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcgiapp.h>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/ownership.h"

#include "runtime/database.h"
#include "runtime/log.h"
#include "runtime/request.h"
#include "runtime/wait.h"

#include "dispatch/program_name.h"
#include "dispatch/serve.h"
#include "dispatch/worker_state.h"

namespace {

#if defined(WMS_WORKER_CHECKS)
constexpr bool is_checked = true;
#else
constexpr bool is_checked = false;
#endif

constexpr int requests_default = 1000;
constexpr int requests_max = 1'000'000;
constexpr int no_socket = -1;  // the library must not accept

struct worker {
    FCGX_Request connection{};
    controller_databases databases;
    bool is_abandoned = false;  // the client of this request has left
    const char* caller_role;
    entry_name entry;
};

FCGX_Request& connection_of(void* context) {
    return *static_cast<FCGX_Request*>(context);
}

int counted(std::size_t size) {
    return static_cast<int>(std::min<std::size_t>(size, INT_MAX));
}

long read_stream(void* context, void* bytes, std::size_t size) {
    FCGX_Stream* const in = connection_of(context).in;
    const int got = FCGX_GetStr(static_cast<char*>(bytes), counted(size), in);
    return got == 0 && size > 0 && FCGX_GetError(in) != 0 ? -1 : got;
}

// The library's buffer is there already, so this works without memory, too.
bool write_stream(void* context, const void* bytes, std::size_t size) {
    FCGX_Stream* const out = connection_of(context).out;
    const auto* next = static_cast<const char*>(bytes);
    while (size > 0) {
        const int put = counted(size);
        if (FCGX_PutStr(next, put, out) != put) return false;
        next += put;
        size -= static_cast<std::size_t>(put);
    }
    return true;
}

void finish_stream(void* context) {
    FCGX_Finish_r(&connection_of(context));
}

request_streams streams_of(FCGX_Request& connection) {
    return {.variables = connection.envp,
            .read = read_stream,
            .write = write_stream,
            .finish = finish_stream,
            .context = &connection,
            .connection = connection.ipcFd};
}

bool is_listening(int fd) {
    int listening = 0;
    socklen_t size = sizeof listening;
    return ::getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &size) == 0 && listening != 0;
}

// Puts something that nobody can connect to in the place of the listening socket: a process that
// waits there wakes up, and one that serves a request finds out afterwards. No moment is missed.
void stop_listening(int /*signal*/) {
    const int saved = errno;
    ::dup2(STDERR_FILENO, STDIN_FILENO);
    errno = saved;
}

bool handle_signals() {
    struct sigaction action {};
    action.sa_handler = stop_listening;
    action.sa_flags = SA_RESTART;
    return ::sigaction(SIGTERM, &action, nullptr) == 0 &&
           ::sigaction(SIGUSR1, &action, nullptr) == 0;
}

// How many requests to serve; none when the variable holds anything else.
std::optional<int> request_limit() {
    const char* const text = std::getenv("WMS_WORKER_REQUESTS");
    if (text == nullptr) return requests_default;
    const std::string_view number = text;
    const char* const end = number.data() + number.size();
    int limit = 0;
    const auto [stop, error] = std::from_chars(number.data(), end, limit);
    if (error != std::errc{} || stop != end || limit < 1 || limit > requests_max) {
        return std::nullopt;
    }
    return limit;
}

// Whether the other side has closed the connection, whatever it sent before.
bool has_hung_up(const unique_fd& fd) {
    pollfd entry = {.fd = fd.get(), .events = 0, .revents = 0};
    return ::poll(&entry, 1, 0) > 0;
}

// The next connection that somebody waits at; none when there will be no more. Clients that leave
// at once fill the queue with connections that nobody takes an answer from.
unique_fd accept_connection() {
    for (;;) {
        unique_fd fd{::accept4(STDIN_FILENO, nullptr, nullptr, SOCK_CLOEXEC)};
        if (!fd && errno != EINTR && errno != ECONNABORTED) return fd;
        if (fd && !has_hung_up(fd)) return fd;
    }
}

// Waits for a request. Returns false when there will be none.
bool accept_request(worker& self) {
    FCGX_Request& connection = self.connection;
    do {
        // The library, when it accepts by itself, drops a connection that a signal or two seconds
        // come before the first byte of.
        connection.ipcFd = accept_connection().release();
        if (connection.ipcFd < 0) return false;
        connection.keepConnection = 1;  // a connection that is there is read from
    } while (FCGX_Accept_r(&connection) != 0);
    // The library keeps a connection open where the server asks for it. One that stays idle would
    // keep this process from all others, and a process that retires would cut off the next request.
    connection.keepConnection = 0;
    return true;
}

void serve(worker& self) {
    request_record request;
    request.streams = streams_of(self.connection);
    request_begin(request, self.caller_role);
    if (databases_renew(&self.databases, &request.response) == 0) {
        request_serve(request, self.databases, self.entry);
    }
    self.is_abandoned = client_has_left();
    if (self.is_abandoned) {
        controller_log(log_debug,
                       "The client has left, and the request has ended without an answer.");
    } else {
        request_answer(request);
    }
    databases_settle(&self.databases);
}

bool has_body(const FCGX_Request& connection) {
    const char* const length = FCGX_GetParam("CONTENT_LENGTH", connection.envp);
    return length != nullptr && *length != '\0' && std::string_view{length} != "0";
}

// Sends what is left of the answer and closes the connection. A server that still sends would lose
// the answer by that, so the library waits until it has closed its side. There is no need to where
// the end of the request has been seen; it is there with the variables when no body follows them.
void finish(FCGX_Request& connection) {
    FCGX_FClose(connection.err);
    FCGX_FClose(connection.out);
    const bool seen_end = !has_body(connection) && FCGX_GetChar(connection.in) == EOF;
    if (seen_end) FCGX_Detach(&connection);
    FCGX_Finish_r(&connection);
}

// Closes the connection without a byte.
void drop(FCGX_Request& connection) {
    FCGX_Detach(&connection);
    FCGX_Free(&connection, 1);
}

// As serve. Returns false when the request left something behind.
bool serve_checked(worker& self) {
    const worker_state before = worker_state_now(self.databases);
    serve(self);
    const char* const left = worker_state_difference(before, worker_state_now(self.databases));
    if (left == nullptr) return true;
    const request_record record;
    controller_log(log_error, "A request changed what it must leave as it was: %s", left);
    return false;
}

// The owner and mode of a socket that is a file say who may connect, and a connection within this
// system tells at once when its other end is closed. Waiting for one is left to accept(2).
bool make_socket_ready() {
    int domain = 0;
    socklen_t size = sizeof domain;
    if (::getsockopt(STDIN_FILENO, SOL_SOCKET, SO_DOMAIN, &domain, &size) != 0) return false;
    return domain == AF_UNIX && ::fcntl(STDIN_FILENO, F_SETFL, 0) == 0;
}

// What can be had before the first request. Databases that are down are that request's business.
bool prepare(worker& self) {
    request_record record;
    request_begin(record, self.caller_role);
    process_begin(true);
    // The library sets handlers only where there are none yet.
    if (!handle_signals() || FCGX_Init() != 0 || !database_init()) return false;
    static_cast<void>(databases_renew(&self.databases, &record.response));
    return FCGX_InitRequest(&self.connection, no_socket, 0) == 0;
}

}  // namespace

bool worker_requested() {
    return std::getenv("GATEWAY_INTERFACE") == nullptr && is_listening(STDIN_FILENO);
}

int worker_run(const char* caller_role, const char* argument0) {
    const std::optional<int> limit = request_limit();
    if (!limit) {
        std::fprintf(stderr, "WMS_WORKER_REQUESTS is not a number from 1 to %d\n", requests_max);
        return 1;
    }
    if (!make_socket_ready()) {
        std::fputs("The listening socket is not a UNIX socket\n", stderr);
        return 1;
    }
    worker self{.databases = {}, .caller_role = caller_role, .entry = entry_name_of(argument0)};
    if (!prepare(self)) {
        std::fputs("The worker cannot be prepared\n", stderr);
        return 1;
    }
    for (int served = 0; served < *limit; ++served) {
        if (!accept_request(self)) return is_listening(STDIN_FILENO) ? 1 : 0;
        const bool clean = is_checked ? serve_checked(self) : (serve(self), true);
        (self.is_abandoned ? drop : finish)(self.connection);
        if (!clean) return 1;
    }
    return 0;
}

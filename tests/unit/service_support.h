// Stand-ins for the services that the program talks to.
// REQUIRES: scripts/sandbox.sh, with postgres for the session table; one test program at a time.
#pragma once

#include <arpa/inet.h>
#include <chrono>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <syslog.h>
#include <thread>

#include "platform/paths.h"
#include "platform/system_log.h"

#include "runtime/database.h"
#include "runtime/request.h"
#include "runtime/socket.h"

#include "auth/session_store.h"

#include "input_support.h"

// A log of the program's own.
struct private_devices : testing::Environment {
    void SetUp() override { ASSERT_NO_FATAL_FAILURE(fresh_folder("/dev", "mode=755")); }
};
inline testing::Environment* const the_private_devices =
    testing::AddGlobalTestEnvironment(new private_devices);

inline std::string text_of(const wms_strbuf& buffer) {
    return {buffer.data, static_cast<std::size_t>(buffer.length)};
}

// `text` with NULs behind it up to `size`, as the fields of a block are.
inline std::string padded(std::string text, std::size_t size) {
    text.resize(size);
    return text;
}

inline void set_variables(request_record* request,
                          const std::vector<std::pair<const char*, const char*>>& variables) {
    for (const auto& [name, value] : variables) {
        EXPECT_EQ(cgi_set_var(&request->input, name, value), 0);
    }
}

inline unique_fd bind_local(const char* path, int type) {
    unique_fd fd(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, path, sizeof addr.sun_path - 1);
    unlink(path);
    EXPECT_EQ(bind(fd.get(), reinterpret_cast<const sockaddr*>(&addr), sizeof addr), 0);
    return fd;
}

struct log_recorder {
    unique_fd fd = bind_local("/dev/log", SOCK_DGRAM | SOCK_NONBLOCK);
    log_recorder() {
        closelog();
        system_log_open();
    }
    // The next line as "<priority>text", without what the logger put between but, if asked for, the
    // name; empty if there is none.
    std::string next(bool with_name = false) const {
        char line[8192];
        const ssize_t got = recv(fd.get(), line, sizeof line, 0);
        if (got <= 0) return "";
        const std::string_view whole(line, static_cast<std::size_t>(got));
        const std::string_view head = whole.substr(0, whole.find('['));
        return std::string(whole.substr(0, whole.find('>') + 1)) +
               std::string(with_name ? head.substr(head.rfind(' ') + 1) : "") +
               std::string(with_name ? ": " : "") +
               std::string(whole.substr(whole.find("]: ") + 3));
    }
};

// Waits until the thread is in this system call.
inline void await_call(pid_t thread, long number) {
    const std::string path = "/proc/" + std::to_string(thread) + "/syscall";
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!contents(path.c_str()).starts_with(std::to_string(number) + ' ')) {
        ASSERT_LT(std::chrono::steady_clock::now(), limit) << contents(path.c_str());
        std::this_thread::yield();
    }
}

inline std::string wire_word(std::size_t value) {
    const std::uint32_t word = htonl(static_cast<std::uint32_t>(value));
    return {reinterpret_cast<const char*>(&word), sizeof word};
}

inline std::string wire_reply(const std::string& output, const std::string& message) {
    return wire_word(7) + wire_word(output.size()) + output + wire_word(message.size()) + message;
}

// The fields of one request to the helper.
inline std::vector<std::string> read_request(int fd) {
    std::vector<std::string> fields;
    std::uint32_t length = 0;
    while (fields.size() < 4 && recv(fd, &length, 4, MSG_WAITALL) == 4) {
        std::string& field = fields.emplace_back(ntohl(length), '\0');
        static_cast<void>(recv(fd, field.data(), field.size(), MSG_WAITALL));
    }
    return fields;
}

// Takes one request and answers it byte by byte. Who connects and says nothing is not answered.
struct fake_helper {
    unique_fd listener;
    std::vector<std::string> fields;
    std::jthread worker;

    explicit fake_helper(const std::string& reply, const char* path = paths::cli_helper_socket)
        : listener(bind_local(path, SOCK_STREAM)) {
        EXPECT_EQ(listen(listener.get(), 1), 0);
        worker = std::jthread([this, reply] {
            while (fields.empty()) {
                const unique_fd peer(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
                if (!peer) return;
                fields = read_request(peer.get());
                for (const char byte : fields.empty() ? "" : reply)
                    send(peer.get(), &byte, 1, MSG_NOSIGNAL);
            }
        });
    }
    ~fake_helper() { asked(); }
    // The request's fields; none when nobody came.
    const std::vector<std::string>& asked() {
        shutdown(listener.get(), SHUT_RDWR);
        if (worker.joinable()) worker.join();
        return fields;
    }
};

// Sends from the socket's port, but from another address of this host.
inline void send_from_elsewhere(int fd, std::string bytes, sockaddr_in to) {
    iovec piece = {.iov_base = bytes.data(), .iov_len = bytes.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo))] = {};
    msghdr message = {};
    message.msg_name = &to;
    message.msg_namelen = sizeof to;
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* const head = CMSG_FIRSTHDR(&message);
    head->cmsg_level = IPPROTO_IP;
    head->cmsg_type = IP_PKTINFO;
    head->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
    in_pktinfo source = {};
    source.ipi_spec_dst.s_addr = inet_addr("127.0.0.2");
    std::memcpy(CMSG_DATA(head), &source, sizeof source);
    EXPECT_EQ(sendmsg(fd, &message, 0), ssize_t(bytes.size()));
}

// Takes one datagram. Strangers answer it first, from another port and from another address, and
// then, unless it is silent, the service.
struct fake_service {
    unique_fd fd;
    std::string received;
    std::jthread worker;

    fake_service(int port, const std::string& forged, const std::string& reply, bool silent = false)
        : fd(tp_udp_listen(port)) {
        worker = std::jthread([this, forged, reply, silent] {
            sockaddr_in from = {};
            char query[2048];
            const long got = tp_socket_read(fd.get(), query, sizeof query, &from, true);
            received.assign(query, static_cast<std::size_t>(got));
            const unique_fd stranger(tp_udp_connect(nullptr, 0, true));
            const auto* const to = reinterpret_cast<const sockaddr*>(&from);
            sendto(stranger.get(), forged.data(), forged.size(), 0, to, sizeof from);
            send_from_elsewhere(fd.get(), forged, from);
            if (!silent) sendto(fd.get(), reply.data(), reply.size(), 0, to, sizeof from);
        });
    }
    const std::string& asked() {
        if (worker.joinable()) worker.join();
        return received;
    }
};

// The session table, empty.
struct sessions : testing::Test {
    request_record request;
    db_conn db;
    std::string sid;     // of the session that was created last
    std::string reason;  // why none was

    void SetUp() override {
        ASSERT_TRUE(database_init());
        db = database_connect(paths::db_wms);
        ASSERT_TRUE(database_is_open(db)) << database_error(db.get());
        sql("DELETE FROM http_session");
    }
    // Runs statements of the test's own; the first value of the last result.
    std::string sql(const std::string& statements) const {
        const db_result result{PQexec(db.get(), statements.c_str())};
        return PQntuples(result.get()) > 0 ? PQgetvalue(result.get(), 0, 0) : "";
    }
    int create(const std::string& ip, const std::string& user, const std::string& role,
               const std::string& path = "/", bool rac = false) {
        scoped_strbuf scratch;
        char made[session_sid_size];
        const int result = wuic_session_create(db.get(), scratch, made, ip.c_str(), user.c_str(),
                                               role.c_str(), rac, path.c_str());
        sid = made;
        reason = result != 0 ? text_of(scratch.buf) : "";
        return result;
    }
};

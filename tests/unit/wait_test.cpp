// A request whose client has left does not wait any more: for the helper, the fast path, a message
// block, a socket, or a database to be connected.
#include "runtime/wait.h"

#include <csignal>
#include <sys/wait.h>

#include "backend/command_batch.h"
#include "backend/fast_path.h"
#include "backend/message_block.h"

#include "service_support.h"

namespace {

bool run_command(request_record* request) {
    return !command_run(&request->session, "show").complete;
}

bool ask_fast_path(request_record* /*request*/) {
    char* text = nullptr;
    char msg[64];
    std::int32_t length = 0;
    return wuic_fpcli_execute("u", "r", "c", &text, &length, msg, sizeof msg) < 0;
}

bool send_block(request_record* /*request*/) {
    char byte = 0;
    return SendMsgBlock(&byte, 1, paths::auth_service_port, &byte, 1) < 0;
}

bool open_databases(request_record* request) {
    setenv("PGHOST", "/tmp", 1);
    controller_databases databases;
    return databases_renew(&databases, &request->response) < 0;
}

bool open_database(request_record* /*request*/) {
    setenv("PGHOST", "/tmp", 1);
    return !database_is_open(database_connect(paths::db_gap));
}

bool read_socket(request_record* /*request*/) {
    const unique_fd silent(tp_udp_connect(nullptr, 0, true));
    char byte = 0;
    return tp_socket_read(silent.get(), &byte, 1, nullptr, true) == -1;
}

TEST(Wait, ARequestWhoseClientLeftEnds) {
    const unique_fd helper = bind_local(paths::cli_helper_socket, SOCK_STREAM);
    const unique_fd postgres = bind_local("/tmp/.s.PGSQL.5432", SOCK_STREAM);
    ASSERT_EQ(listen(helper.get(), 0) + listen(postgres.get(), 8), 0);
    const unique_fd fast_path(tp_udp_listen(paths::fast_path_port));
    const unique_fd auth_service(tp_udp_listen(paths::auth_service_port));
    const struct {
        const char* service;
        bool (*fails)(request_record*);
        long call;
    } rows[] = {{"helper", run_command, SYS_poll},
                {"helper, whose queue holds the first one still", run_command, SYS_connect},
                {"fast path", ask_fast_path, SYS_poll},
                {"message block", send_block, SYS_poll},
                {"the databases", open_databases, SYS_poll},
                {"a database", open_database, SYS_poll},
                {"a socket", read_socket, SYS_poll}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.service);
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        const pid_t worker = fork();
        if (worker == 0) {
            close(ends[1]);
            alarm(60);
            request_record request;
            request.streams.connection = ends[0];
            // From then on at once: the same call begins nothing.
            _exit(row.fails(&request) && request.client_left && row.fails(&request) ? 0 : 1);
        }
        await_call(worker, row.call);
        close(ends[0]);
        close(ends[1]);
        int status = -1;
        EXPECT_EQ(waitpid(worker, &status, 0), worker);
        EXPECT_EQ(status, 0);
    }
}

}  // namespace

// A worker whose client has left does not wait any more: for the helper, the fast path, a message
// block, or its databases to be connected.
#include "runtime/wait.h"

#include <csignal>
#include <sys/wait.h>

#include "backend/command_list.h"
#include "backend/fast_path.h"
#include "backend/message_block.h"

#include "service_support.h"

namespace {

void run_command(request_record* request) {
    static_cast<void>(command_run(&request->session, "show"));
}

void ask_fast_path(request_record* /*request*/) {
    char* text = nullptr;
    char msg[64];
    std::int32_t length = 0;
    static_cast<void>(wuic_fpcli_execute("u", "r", "c", &text, &length, msg, sizeof msg));
}

void send_block(request_record* /*request*/) {
    char byte = 0;
    static_cast<void>(SendMsgBlock(&byte, 1, paths::auth_service_port, &byte, 1));
}

void open_databases(request_record* request) {
    setenv("PGHOST", "/tmp", 1);
    controller_databases databases;
    static_cast<void>(databases_renew(&databases, &request->response));
}

TEST(Wait, AWorkerWhoseClientLeftEnds) {
    const unique_fd helper = bind_local(paths::cli_helper_socket, SOCK_STREAM);
    const unique_fd postgres = bind_local("/tmp/.s.PGSQL.5432", SOCK_STREAM);
    ASSERT_EQ(listen(helper.get(), 0) + listen(postgres.get(), 8), 0);
    const unique_fd fast_path(tp_udp_listen(paths::fast_path_port));
    const unique_fd auth_service(tp_udp_listen(paths::auth_service_port));
    const struct {
        const char* service;
        void (*ask)(request_record*);
        long call;
    } rows[] = {{"helper", run_command, SYS_poll},
                {"helper, whose queue holds the first one still", run_command, SYS_connect},
                {"fast path", ask_fast_path, SYS_poll},
                {"message block", send_block, SYS_poll},
                {"databases", open_databases, SYS_poll}};
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
            row.ask(&request);
            _exit(1);
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

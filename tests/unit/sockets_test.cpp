// Socket helpers: retries, full-length transfers, connections and addresses.
#include <csignal>
#include <set>
#include <sys/time.h>

#include "service_support.h"

namespace {

int ends[2];
volatile std::sig_atomic_t alarms = 0;

void answer_the_fifth_time(int) {
    alarms = alarms + 1;
    if (alarms == 5 && write(ends[1], "half", 4) == 4) close(ends[1]);
}

TEST(Sockets, InterruptedReadGoesOn) {
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    struct sigaction action = {};
    action.sa_handler = answer_the_fifth_time;  // no SA_RESTART: recv(2) fails with EINTR
    ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
    const itimerval every_millisecond = {{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &every_millisecond, nullptr);
    char got[9] = "";
    EXPECT_EQ(tp_socket_nread(ends[0], got, 8, nullptr), 4);
    EXPECT_EQ(errno, 0) << "an early end is no error";
    const itimerval never = {};
    setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_STREQ(got, "half");
    EXPECT_EQ(tp_socket_nwrite(ends[0], "x", 1, nullptr), -1);
    EXPECT_EQ(errno, EPIPE) << "and no signal";
}

TEST(Sockets, FullAndEmptySocketsAreWaitedFor) {
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0);
    std::string got(4 << 20, '\0');  // far more than a socket holds
    const std::string sent(got.size(), 's');
    const long size = static_cast<long>(got.size());
    EXPECT_EQ(tp_socket_read(ends[0], got.data(), 1, nullptr, false), -2);
    std::thread peer(
        [&] { EXPECT_EQ(tp_socket_nwrite(ends[1], sent.data(), size, nullptr), size); });
    EXPECT_EQ(tp_socket_nread(ends[0], got.data(), size, nullptr), size);
    peer.join();
    EXPECT_EQ(got, sent);
}

TEST(Sockets, Connections) {
    const unique_fd listener(tp_tcp_listen(4711, 0));
    const unique_fd client(tp_tcp_connect("localhost", 4711));
    sockaddr_in peer = {};
    const unique_fd server(tp_tcp_accept(listener.get(), &peer));
    EXPECT_EQ(peer.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
}

TEST(Sockets, AddressesAreChosenAmongOrRefused) {
    std::ofstream("/tmp/hosts")
        << "10.1.1.1 three.test\n10.1.1.2 three.test\n10.1.1.3 three.test\n";
    ASSERT_EQ(mount("/tmp/hosts", "/etc/hosts", nullptr, MS_BIND, nullptr), 0);
    sockaddr_in addr = {};
    const auto address = [&](int which) {
        EXPECT_EQ(tp_socket_mkaddr(&addr, "three.test", 80, which), 0);
        return addr.sin_addr.s_addr;
    };
    const in_addr_t first = address(0);
    const in_addr_t last = address(2);
    const std::set<in_addr_t> all{first, address(1), last};
    EXPECT_EQ(all.size(), 3U);
    EXPECT_TRUE(all.contains(address(-2)));
    for (const auto& [which, expected] : {std::pair{7, last}, {-1, first}, {-3, last}, {-4, first}})
        EXPECT_EQ(address(which), expected) << which;

    EXPECT_EQ(tp_socket_mkaddr(&addr, nullptr, 80, -1), -1);
    EXPECT_EQ(tp_socket_mkaddr(&addr, "no-such-name.invalid", 80, -1), -1);
    for (const int port : {0, 65536})
        EXPECT_EQ(tp_socket_mkaddr(&addr, "127.0.0.1", port, -1), -1) << port;
}

}  // namespace

// Socket helpers: retries, full-length transfers, connections and addresses.
#include <arpa/inet.h>
#include <atomic>
#include <csignal>
#include <fstream>
#include <set>
#include <string>
#include <sys/time.h>
#include <thread>

#include <gtest/gtest.h>

#include "runtime/socket.h"

#include "private_world.h"

namespace {

struct socket_pair {
    unique_fd near;
    unique_fd far;
    explicit socket_pair(int flags = 0) {
        int ends[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0, ends), 0);
        near.reset(ends[0]);
        far.reset(ends[1]);
    }
};

std::atomic<int> alarms = 0;

TEST(Sockets, InterruptedReadGoesOn) {
    struct sigaction count = {};
    count.sa_handler = [](int) { ++alarms; };  // no SA_RESTART: recv(2) fails with EINTR
    ASSERT_EQ(sigaction(SIGALRM, &count, nullptr), 0);
    socket_pair pair;
    std::thread peer([&] {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr);  // so that the reader gets the signals
        while (alarms < 5)
            sched_yield();
        EXPECT_EQ(tp_socket_nwrite(pair.far.get(), "half", 4, nullptr), 4);
        pair.far.reset();
    });
    const itimerval every_millisecond = {{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &every_millisecond, nullptr);
    char got[9] = "";
    EXPECT_EQ(tp_socket_nread(pair.near.get(), got, 8, nullptr), 4);
    EXPECT_EQ(errno, 0) << "an early end is no error";
    const itimerval never = {};
    setitimer(ITIMER_REAL, &never, nullptr);
    peer.join();
    EXPECT_STREQ(got, "half");
}

TEST(Sockets, NothingMoves) {
    socket_pair pair;
    pair.far.reset();
    EXPECT_EQ(tp_socket_nread(pair.near.get(), nullptr, -1, nullptr), 0);
    EXPECT_EQ(tp_socket_nwrite(pair.near.get(), "x", 1, nullptr), -1);
    EXPECT_EQ(errno, EPIPE) << "and no signal";
}

TEST(Sockets, FullAndEmptySocketsAreWaitedFor) {
    socket_pair pair(SOCK_NONBLOCK);
    std::string got(4 << 20, '\0');  // far more than a socket holds
    const std::string sent(got.size(), 's');
    const long size = static_cast<long>(got.size());
    EXPECT_EQ(tp_socket_read(pair.near.get(), got.data(), 1, nullptr, false), -2);
    std::thread peer(
        [&] { EXPECT_EQ(tp_socket_nwrite(pair.far.get(), sent.data(), size, nullptr), size); });
    EXPECT_EQ(tp_socket_nread(pair.near.get(), got.data(), size, nullptr), size);
    peer.join();
    EXPECT_EQ(got, sent);
}

int port_of(int fd) {
    sockaddr_in addr = {};
    socklen_t size = sizeof addr;
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &size), 0);
    return ntohs(addr.sin_port);
}

TEST(Sockets, Connections) {
    unique_fd listener(tp_tcp_listen(0, 0));
    const int port = port_of(listener.get());
    const unique_fd client(tp_tcp_connect("localhost", port));
    sockaddr_in peer = {};
    const unique_fd server(tp_tcp_accept(listener.get(), &peer));
    EXPECT_TRUE(server);
    EXPECT_EQ(ntohs(peer.sin_port), port_of(client.get()));
    listener.reset();
    EXPECT_EQ(tp_tcp_connect("127.0.0.1", port), -1);

    const unique_fd service(tp_udp_listen(0));
    const unique_fd asker(tp_udp_connect("127.0.0.1", port_of(service.get()), false));
    char got[4] = "";
    EXPECT_EQ(tp_socket_write(asker.get(), "ask", 3, nullptr, true), 3);
    EXPECT_EQ(tp_socket_read(service.get(), got, sizeof got, &peer, true), 3);
    EXPECT_EQ(ntohs(peer.sin_port), port_of(asker.get()));
}

in_addr_t address_of(int which) {
    sockaddr_in addr = {};
    EXPECT_EQ(tp_socket_mkaddr(&addr, "three.test", 80, which), 0);
    return addr.sin_addr.s_addr;
}

TEST(Sockets, AddressesOfANameAreChosenAmong) {
    std::ofstream("/tmp/hosts")
        << "10.1.1.1 three.test\n10.1.1.2 three.test\n10.1.1.3 three.test\n";
    ASSERT_EQ(mount("/tmp/hosts", "/etc/hosts", nullptr, MS_BIND, nullptr), 0);
    const in_addr_t first = address_of(0);
    const in_addr_t last = address_of(2);
    const std::set<in_addr_t> all{first, address_of(1), last};
    EXPECT_EQ(all.size(), 3U);
    const std::pair<int, in_addr_t> rows[] = {{7, last}, {-1, first}, {-3, last}, {-4, first}};
    for (const auto& [which, expected] : rows)
        EXPECT_EQ(address_of(which), expected) << which;
    EXPECT_TRUE(all.contains(address_of(-2)));
}

TEST(Sockets, AddressesThatAreTakenAndRefused) {
    sockaddr_in addr = {};
    EXPECT_EQ(tp_socket_mkaddr(&addr, "192.0.2.7", 65535, -1), 0);
    EXPECT_EQ(addr.sin_addr.s_addr, inet_addr("192.0.2.7"));
    EXPECT_EQ(tp_socket_mkaddr(&addr, nullptr, 80, -1), -1);
    EXPECT_EQ(tp_socket_mkaddr(&addr, "", 80, -1), -1);
    EXPECT_EQ(tp_socket_mkaddr(&addr, "127.0.0.1", 0, -1), -1);
    EXPECT_EQ(tp_socket_mkaddr(&addr, "127.0.0.1", 65536, -1), -1);
    EXPECT_EQ(tp_socket_mkaddr(&addr, "no-such-name.invalid", 80, -1), -1);
}

}  // namespace

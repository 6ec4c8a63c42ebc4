// IPv4 TCP and UDP sockets as plain descriptors; -1 means failure throughout. A transient failure
// is retried in place where the caller asks for it, waiting with poll(2); there are no time limits.
// Once a request's client has left nothing is connected to, sent or waited for (runtime/wait.h): -1
// with errno ECANCELED.
#pragma once

#include <cstddef>
#include <netinet/in.h>

// True for EAGAIN, ETIMEDOUT and EINTR.
bool tp_socket_no_error(int err);

// Fills an IPv4 address from a dotted quad or a name. Where a name has several, `which` takes one
// by its index from 0, the last for an index too high; -3 is the last too, -2 any at random, and -1
// or less than -3 the first. Returns 0, or -1 for a missing host, a port outside 1 to 65535 or a
// failed resolution.
[[nodiscard]] int tp_socket_mkaddr(sockaddr_in* addr, const char* host, int port, int which);

// Each returns a close-on-exec descriptor that the caller owns, or -1.
[[nodiscard]] int tp_tcp_connect(const char* host, int port);
[[nodiscard]] int tp_tcp_listen(int port, int backlog);  // all addresses; backlog below 1 means 5
[[nodiscard]] int tp_tcp_accept(int fd, sockaddr_in* peer);
[[nodiscard]] int tp_udp_connect(const char* host, int port, bool unconnected);
[[nodiscard]] int tp_udp_listen(int port);

// One recvfrom(2) or sendto(2); the address may be null. A transient failure is waited out with
// `retry`, and -2 without; any other is -1. Else returns the bytes moved.
[[nodiscard]] long tp_socket_read(int fd, void* buf, std::size_t len, sockaddr_in* from,
                                  bool retry);
[[nodiscard]] long tp_socket_write(int fd, const void* buf, std::size_t len, const sockaddr_in* to,
                                   bool retry);

// Loop until `len` bytes have moved. Returns the count so far when the peer closed or a failure
// came after some bytes; -1 when nothing moved. errno tells why; it is 0 after an early end.
[[nodiscard]] long tp_socket_nread(int fd, void* buf, long len, sockaddr_in* from);
[[nodiscard]] long tp_socket_nwrite(int fd, const void* buf, long len, const sockaddr_in* to);

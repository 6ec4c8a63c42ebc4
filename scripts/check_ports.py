#!/usr/bin/python3
"""Ends with a message when an address that the demonstration needs is taken.

    check_ports.py LISTEN PORT
"""

import errno
import socket
import sys

# The controller's services have fixed places; whoever has them is perhaps another run.sh.
CONTROLLER_PORTS = (8375, 8227, 8479, 8465)


def taken(kind, address, port):
    with socket.socket(socket.AF_INET, kind) as sock:
        if kind == socket.SOCK_STREAM:
            sock.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        try:
            sock.bind((address, port))
        except OSError as error:
            if error.errno == errno.EADDRNOTAVAIL:
                sys.exit("run.sh: this machine has no address %s" % address)
            return error.errno == errno.EADDRINUSE  # a low port may only be root's, who starts the server
        except OverflowError:
            sys.exit("run.sh: no port number: %d" % port)
    return False


def main():
    listen, port = sys.argv[1], int(sys.argv[2])
    for udp in CONTROLLER_PORTS:
        if taken(socket.SOCK_DGRAM, "127.0.0.1", udp):
            sys.exit("run.sh: UDP port %d of 127.0.0.1, which the simulated controller needs, is in use; "
                     "is another run.sh running?" % udp)
    if taken(socket.SOCK_STREAM, listen, port):
        sys.exit("run.sh: TCP port %d of %s is in use; choose another with --port" % (port, listen))


if __name__ == "__main__":
    main()

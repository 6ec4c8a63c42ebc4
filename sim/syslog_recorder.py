#!/usr/bin/python3
"""Records what is sent to a syslog socket: one line a datagram, control bytes escaped."""

import argparse
import os
import signal
import socket
import sys


def as_line(datagram):
    """Printable ASCII stays; a backslash is doubled, every other byte becomes \\xNN."""
    return "".join("\\\\" if byte == 0x5C else chr(byte) if 0x20 <= byte < 0x7F
                   else "\\x%02x" % byte for byte in datagram)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--socket", required=True)
    parser.add_argument("--file", required=True)
    options = parser.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    sock = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    try:
        if os.path.lexists(options.socket):
            os.unlink(options.socket)
        sock.bind(options.socket)
        os.chmod(options.socket, 0o666)
        record = open(options.file, "a", encoding="ascii")
    except OSError as error:
        sys.exit("syslog_recorder: %s: %s" % (error.filename or options.socket, error.strerror))
    print("ready", flush=True)
    try:
        while True:
            record.write(as_line(sock.recv(65536)) + "\n")
            record.flush()
    finally:
        os.unlink(options.socket)


if __name__ == "__main__":
    main()

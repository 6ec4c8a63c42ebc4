#!/usr/bin/python3
"""Inside the sandbox: the documents of many commands from a warm worker, beside controllers on
which each command takes 20 ms, and beside the same commands sent one by one. Both take turns.
Prints the table of docs/performance.md.

A worker's time is that of the whole request, from its connection to the end of the answer. That is the
handler's and some tenths of a millisecond: the session's lookup, and this client."""

import re
import socket
import statistics
import struct
import subprocess
import sys
import time

sys.path.insert(0, "tests/e2e")

import fcgi  # noqa: E402
import harness  # noqa: E402

BUILD = "build/bench/bench/"
MILLISECONDS = 20
RUNS = 20
HELPERS = {"side": "side by side", "serial": "one after the other"}
DOCUMENTS = {"one command": harness.EXECUTE + "?show%20clock&UIDQORIN=",
             "controller's view": "/monitor-summary-data?operand=controller-summary&UIDQORIN=",
             "role policy": "/screens/cmnutil/getRolePolicy.xml?UIDQORIN="}


class Coprocess:
    """A program that answers lines with lines, until this ends."""

    def __init__(self, *command):
        self._process = subprocess.Popen([BUILD + command[0], *command[1:]], text=True,
                                         stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def line(self):
        found = self._process.stdout.readline()
        assert found, (self._process.args, self._process.poll())
        return found

    def ask(self):
        self._process.stdin.write("\n")
        self._process.stdin.flush()
        return float(self.line())

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._process.kill()
        self._process.communicate()


def commands_sent():
    """What the helper was asked since it was asked this last, in any order."""
    fields = (b"", b"", b"", b"commands")
    with socket.socket(socket.AF_UNIX) as peer:
        peer.connect(str(harness.HELPER_SOCKET))
        peer.sendall(b"".join(struct.pack("!I", len(field)) + field for field in fields))
        with peer.makefile("rb") as reply:
            _, length = struct.unpack("!II", reply.read(8))
            return sorted(reply.read(length).decode().splitlines())


def measure(worker, url, name):
    """(number of commands, medians in ms one by one and sent ahead)"""
    variables = {"QORIN_AUTH_SESSION_ID": SESSION}

    def from_worker():
        started = time.perf_counter()
        output = worker.output(url, variables)
        took = (time.perf_counter() - started) * 1000
        assert not re.search(b"<(status>)?error", output, re.IGNORECASE), output[-400:]
        return took

    commands_sent()
    from_worker()
    sent = commands_sent()
    serial = Coprocess("one_by_one", *(["view"] if name == "controller's view" else sent))
    with serial:
        serial.ask()
        assert commands_sent() == sent, sent
        times = [(serial.ask(), from_worker()) for _ in range(RUNS)]
    return (len(sent), *map(statistics.median, zip(*times)))


def main():
    print("\n## Documents of many commands, of %d ms each: medians of %d [ms]\n" % (MILLISECONDS, RUNS))
    print("| Helper | Handler | Commands | One by one | Sent ahead | In times of one command | "
          "In times of one by one |\n|---|---|---|---|---|---|---|")
    for way, helper in HELPERS.items():
        with Coprocess("slow_helper", way, str(MILLISECONDS)) as controller, \
                fcgi.Workers("/run/wms/dashboard.sock") as worker:
            controller.line()
            for name, url in DOCUMENTS.items():
                count, serial, ahead = measure(worker, url + SESSION, name)
                one = serial if name == "one command" else one
                print("| %s | %s | %d | %.1f | %.1f | %.1f | %.2f |" %
                      (helper, name, count, serial, ahead, ahead / one, ahead / serial), flush=True)


SESSION = harness.add_session(ip="192.0.2.7")
main()

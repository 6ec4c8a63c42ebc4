#!/usr/bin/python3
"""Inside the sandbox: what our own code adds to an ordinary request of a warm worker. Prints the
tables of docs/performance.md.

    overhead.py ROUNDS SECONDS

Instructions are callgrind's, of a worker that serves many requests less those of one that serves
one. Processor time is the kernel's account of the workers while wrk asks, the peers in turn."""

import os
import re
import statistics
import subprocess
import sys
from pathlib import Path

sys.path.insert(0, "bench/peers")
import beside_peers  # noqa: E402
import setup  # noqa: E402

REQUESTS = 200
PROGRAM = Path("build/release/wms.cgi")
PARTS = {"database": "libpq, below our calls of it", "helper": "the exchange with the helper",
         "fastcgi": "libfcgi, below our calls of it"}
TIMED = {"bare_fastcgi": beside_peers.ROWS["bare_fastcgi"],
         "minimal_fastcgi": beside_peers.ROWS["minimal_fastcgi"],
         "our_worker": "ours, warm worker that does not retire"}


def part_of(function, library):
    """The part of a request's work that a function is the way into; None for our own code."""
    if "libpq" in library:
        return "database"
    if re.match(r"(wuic_cli_execute|cli_run)", function):
        return "helper"
    return "fastcgi" if function.startswith("FCGX_") else None


class Profile:
    """A callgrind output file: instructions in all, and below the calls into each part."""

    def __init__(self, path):
        self.total, self.parts = 0, dict.fromkeys(PARTS, 0)
        self._names = {}
        self._at = {"fn": "", "ob": "", "cfn": "", "cob": ""}
        lines = iter(Path(path).read_text().splitlines())
        for line in lines:
            name = re.match(r"(c?fn|c?ob)=(?:\((\d+)\))? ?(.*)", line)
            if name:
                self._enter(*name.groups())
            elif line.startswith("calls="):
                self._call(int(next(lines).split()[1]))
            elif line.startswith("totals:"):
                self.total = int(line.split()[1])

    def _enter(self, kind, number, text):
        space = self._names.setdefault(kind[-2:], {})
        if text:
            space[number] = text
        self._at[kind] = space.get(number, text)
        if kind == "fn":
            self._at["cob"] = self._at["ob"]

    def _call(self, cost):
        inner = part_of(self._at["cfn"], self._at["cob"])
        if inner is not None and inner != part_of(self._at["fn"], self._at["ob"]):
            self.parts[inner] += cost
        self._at["cob"] = self._at["ob"]


def ask(count):
    """That many requests, one after the other on one connection; all must succeed."""
    output = subprocess.run(["curl", "-sS", "-H", "Cookie: " + setup.COOKIE,
                             setup.url("our_worker") + "#[1-%d]" % count],
                            stdout=subprocess.PIPE, check=True, text=True).stdout
    if output != setup.REPLY * count:
        raise SystemExit("the worker under callgrind answers " + output[-400:])


def profile(count):
    """Of a worker that ends after `count` requests. It is started by its mere name, as it does not
    know itself by its file there."""
    socket, result = setup.PEERS / "our_worker.sock", "/run/wms/callgrind.%d" % count
    socket.unlink(missing_ok=True)
    worker = setup.start(setup.on_socket(socket) + [
        "/usr/bin/valgrind", "--tool=callgrind", "--callgrind-out-file=" + result, PROGRAM.name,
    ], "callgrind", WMS_WORKER_REQUESTS=str(count),
        PATH="%s:%s" % (PROGRAM.parent.resolve(), os.environ["PATH"]))
    setup.wait_until(socket.exists, "the worker under callgrind")
    ask(count)
    worker.wait(timeout=60)
    return Profile(result)


def instructions():
    """Of one request: in all, and by part."""
    one, many = profile(1), profile(REQUESTS + 1)
    parts = {part: (many.parts[part] - one.parts[part]) / REQUESTS for part in PARTS}
    return (many.total - one.total) / REQUESTS, parts


def print_instructions(total, parts):
    print("\n## Instructions of one request in a warm worker\n")
    print("| | instructions |\n|---|---|")
    for part, text in PARTS.items():
        print("| %s | %d |" % (text, parts[part]))
    print("| our own code | %d |\n| in all | %d |" % (total - sum(parts.values()), total))


def ticks_of(folder, name):
    """User and system time that a process has had so far, if it is a worker of that peer."""
    try:
        stat = (folder / "stat").read_text()
        environment = (folder / "environ").read_bytes().split(b"\0")
    except OSError:  # it has just ended
        return 0, 0
    if b"PEER=" + name.encode() not in environment or "(multiwatch)" in stat:
        return 0, 0
    user, system = stat.rpartition(")")[2].split()[11:13]
    return int(user), int(system)


def times(name):
    """User and system time in microseconds that the workers of a peer have had so far."""
    found = [ticks_of(folder, name) for folder in Path("/proc").glob("[0-9]*")]
    return [sum(ticks) * 1e6 / os.sysconf("SC_CLK_TCK") for ticks in zip(*found)]


def processor_time(name, seconds, size):
    """User and system time of one request in microseconds, at one connection."""
    before = times(name)
    requests = sum(beside_peers.load(name, 1, piece, size).requests
                   for piece in beside_peers.pieces(seconds))
    return [(after - first) / requests for first, after in zip(before, times(name))]


def print_times(rounds, seconds, sizes):
    found = {name: [] for name in TIMED}
    for _ in range(rounds):
        for name, results in found.items():
            results.append(processor_time(name, seconds, sizes[name]))
    print("\n## Processor time of a request [us]: medians of %d rounds of %d s\n" %
          (rounds, seconds))
    print("| | user | system |\n|---|---|---|")
    medians = {name: [statistics.median(values) for values in zip(*results)]
               for name, results in found.items()}
    for name, text in TIMED.items():
        print("| %s | %.0f | %.0f |" % (text, *medians[name]))
    return medians["our_worker"][0]


def main():
    rounds, seconds = int(sys.argv[1]), int(sys.argv[2])
    setup.prepare()
    setup.start_server()
    total, parts = instructions()
    print_instructions(total, parts)
    (setup.PEERS / "our_worker.sock").unlink(missing_ok=True)
    setup.serve_fastcgi("bare_fastcgi", [setup.BUILD / "bare_fastcgi"])
    setup.serve_fastcgi("minimal_fastcgi", [setup.BUILD / "minimal_fastcgi"])
    setup.serve_fastcgi("our_worker", [setup.OUR_PROGRAM], WMS_WORKER_REQUESTS="1000000")
    # The server leaves a socket alone for a while that nobody served.
    setup.wait_until(lambda: all(map(setup.answer, TIMED)), "one of the workers")
    user = print_times(rounds, seconds, setup.check_answers(TIMED))
    print("\nOur own code, estimated: %.1f us, its part of the instructions of the user time." %
          (user * (total - sum(parts.values())) / total))


main()

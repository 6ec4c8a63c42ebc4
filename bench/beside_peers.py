#!/usr/bin/python3
"""Inside the sandbox: the same request through one HTTP server to the program and to peers, which
take turns. Prints the table of docs/performance.md.

    beside_peers.py ROUNDS SECONDS

A round is so many seconds of each row, in pieces of 2 s at most: all rows have a piece before any
has its next. So whatever else the machine does for a while meets all of them alike."""

import json
import os
import statistics
import subprocess
import sys
from pathlib import Path
from typing import NamedTuple, Optional

sys.path.insert(0, "bench/peers")
import setup  # noqa: E402  (pylint: disable=wrong-import-position)

CONNECTIONS = (1, 8)
PIECE = 2
ROWS = {"static": "static file", "bare_cgi": "CGI in C that does nothing",
        "minimal_cgi": "minimal CGI in C", "our_cgi": "ours, plain CGI",
        "bare_fastcgi": "FastCGI in C that does nothing",
        "minimal_fastcgi": "minimal FastCGI in C",
        "our_worker": "ours, warm worker, 10,000 requests each, as deployed",
        "our_default": "ours, warm worker, 1,000 requests each, the default",
        "php": "PHP under FastCGI", "php_one": "PHP under FastCGI, one connection"}
SHARES = {"helper": "the helper's exchange alone", "query": "the session's query alone"}
GOALS = (("our_worker", "minimal_fastcgi", "1.15"), ("our_worker", "php", "0.77"),
         ("our_worker", "php_one", "0.77"), ("our_cgi", "minimal_cgi", "1.00"),
         ("our_default", "minimal_fastcgi", "-"), ("our_default", "php", "-"),
         ("our_default", "php_one", "-"))


class Run(NamedTuple):
    """What a piece found out; of the shares there is only the first."""
    p50: float  # in ms
    rate: Optional[float] = None  # requests a second
    requests: int = 0
    busy: Optional[float] = None  # of all processors, in us a request


def busy_time():
    """Of all processors since the machine's start, in microseconds: everything but idle, waiting
    for a disk, and what another machine took."""
    user, nice, system, _, _, irq, softirq = map(int, Path("/proc/stat").read_text().split()[1:8])
    return (user + nice + system + irq + softirq) * 1e6 / os.sysconf("SC_CLK_TCK")


def load(name, connections, seconds, size):
    """One run of wrk. Answers of another size than `size` end everything: a refusal would count as a
    quick success, as its status is 200, too. Only at its end may wrk leave each connection in the
    middle of an answer, of which it counts the bytes but not the request: so much is let pass."""
    command = ["wrk", "-t1", "-c%d" % connections, "-d%ds" % seconds, "--timeout", "30s",
               "-H", "Cookie: " + setup.COOKIE, "-s", "bench/peers/report.lua", setup.url(name)]
    before = busy_time()
    output = subprocess.run(command, stdout=subprocess.PIPE, check=True, text=True).stdout
    busy = busy_time() - before
    result = json.loads(output.splitlines()[-1])
    requests = result["requests"]
    cut_off = result["bytes"] - requests * size
    if result["errors"] or not requests or not 0 <= cut_off <= connections * (size - 1):
        raise SystemExit("%s, %d connections, answers of %d bytes: %s" %
                         (name, connections, size, output))
    return Run(result["p50"] / 1000, requests / result["seconds"], requests, busy / requests)


def share(name, connections, seconds):
    """As load; no more of it goes on at once than there are workers."""
    command = [setup.BUILD / "share", name, setup.SESSION, str(min(connections, setup.WORKERS)),
               str(seconds)]
    output = subprocess.run(command, stdout=subprocess.PIPE, check=True, text=True).stdout
    return Run(float(output) / 1000)


def pieces(seconds):
    return [PIECE] * (seconds // PIECE) + [seconds % PIECE] * (seconds % PIECE > 0)


def measure(rounds, seconds, sizes):
    """(name, connections) -> rounds, each a list of its pieces' runs."""
    found = {(name, count): [[] for _ in range(rounds)]
             for count in CONNECTIONS for name in {**ROWS, **SHARES}}
    for name in ROWS:
        load(name, max(CONNECTIONS), PIECE, sizes[name])
    for number in range(rounds):
        for piece in pieces(seconds):
            for (name, count), results in found.items():
                results[number].append(share(name, count, piece) if name in SHARES else
                                       load(name, count, piece, sizes[name]))
    return found


def median_of(runs, what):
    return statistics.median(getattr(run, what) for run in runs)


def spread(values):
    return "%.3f (%.3f to %.3f)" % (statistics.median(values), min(values), max(values))


def print_table(found):
    print("| | %s | requests a second, %d | processor time, %d [us of all processes] |" % (
        " | ".join("p50 [ms], %d connection%s" % (count, "s" * (count > 1))
                   for count in CONNECTIONS), max(CONNECTIONS), max(CONNECTIONS)))
    print("|---|" + "---|" * (len(CONNECTIONS) + 2))
    for name, text in {**ROWS, **SHARES}.items():
        cells = [spread([median_of(runs, "p50") for runs in found[name, count]])
                 for count in CONNECTIONS]
        runs = [run for of_round in found[name, max(CONNECTIONS)] for run in of_round]
        cells += ["-", "-"] if name in SHARES else ["%.0f" % median_of(runs, "rate"),
                                                    "%.0f" % median_of(runs, "busy")]
        print("| %s | %s |" % (text, " | ".join(cells)))


def print_goals(found):
    """A round's ratio is the median of those of its pieces, which followed each other closely."""
    print("\n| p50, ratio by round | connections | ratio | at most |\n|---|---|---|---|")
    for ours, peer, most in GOALS:
        for count in CONNECTIONS:
            ratios = [statistics.median(mine.p50 / other.p50 for mine, other in zip(*both))
                      for both in zip(found[ours, count], found[peer, count])]
            print("| %s / %s | %d | %s | %s |" %
                  (ROWS[ours], ROWS[peer], count, spread(ratios), most))


def main():
    rounds, seconds = int(sys.argv[1]), int(sys.argv[2])
    setup.start_all()
    sizes = setup.check_answers(setup.PORTS)
    print("\n## The same request beside peers: medians of %d rounds of %d s\n" % (rounds, seconds))
    found = measure(rounds, seconds, sizes)
    print_table(found)
    print_goals(found)
    setup.check_answers(setup.PORTS)


if __name__ == "__main__":
    main()

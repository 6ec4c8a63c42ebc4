#!/usr/bin/python3
"""Inside the sandbox: the same request through one HTTP server to the program and to peers, which
take turns. Prints the table of docs/performance.md.

    beside_peers.py ROUNDS SECONDS
"""

import json
import statistics
import subprocess
import sys

sys.path.insert(0, "bench/peers")
import setup  # noqa: E402  (pylint: disable=wrong-import-position)

CONNECTIONS = (1, 8)
ROWS = {"static": "static file", "bare_cgi": "CGI in C that does nothing",
        "minimal_cgi": "minimal CGI in C", "our_cgi": "ours, plain CGI",
        "bare_fastcgi": "FastCGI in C that does nothing",
        "minimal_fastcgi": "minimal FastCGI in C", "our_worker": "ours, warm worker",
        "php": "PHP under FastCGI", "php_one": "PHP under FastCGI, one connection"}
SHARES = {"helper": "the helper's exchange alone", "query": "the session's query alone"}
GOALS = (("our_worker", "minimal_fastcgi", 1.15), ("our_worker", "php", 1 / 1.3),
         ("our_worker", "php_one", 1 / 1.3),
         ("our_cgi", "minimal_cgi", 1.0))


def load(name, connections, seconds):
    """p50 in ms and requests a second of one run of wrk; a single wrong answer ends everything."""
    command = ["wrk", "-t1", "-c%d" % connections, "-d%ds" % seconds, "--timeout", "30s",
               "-H", "Cookie: " + setup.COOKIE, "-s", "bench/peers/report.lua",
               setup.URL % setup.PORTS[name]]
    output = subprocess.run(command, stdout=subprocess.PIPE, check=True, text=True).stdout
    result = json.loads(output.splitlines()[-1])
    if result["errors"] or not result["requests"]:
        raise SystemExit("%s, %d connections: %s" % (name, connections, output))
    return result["p50"] / 1000, result["requests"] / result["seconds"]


def share(name, connections, seconds):
    """As load; no more of it goes on at once than there are workers."""
    command = [setup.BUILD / "share", name, setup.SESSION, str(min(connections, setup.WORKERS)),
               str(seconds)]
    output = subprocess.run(command, stdout=subprocess.PIPE, check=True, text=True).stdout
    return float(output) / 1000, None


def measure(rounds, seconds):
    """(name, connections) -> results, one a round."""
    found = {(name, count): [] for name in {**ROWS, **SHARES} for count in CONNECTIONS}
    for name in setup.PORTS:
        load(name, max(CONNECTIONS), seconds)
    for _ in range(rounds):
        for (name, count), results in found.items():
            results.append((share if name in SHARES else load)(name, count, seconds))
    return found


def spread(values):
    return "%.3f (%.3f to %.3f)" % (statistics.median(values), min(values), max(values))


def print_table(found):
    print("| | %s | requests a second, %d |" % (
        " | ".join("p50 [ms], %d connection%s" % (count, "s" * (count > 1))
                   for count in CONNECTIONS), max(CONNECTIONS)))
    print("|---|" + "---|" * (len(CONNECTIONS) + 1))
    for name, text in {**ROWS, **SHARES}.items():
        cells = [spread([p50 for p50, _ in found[name, count]]) for count in CONNECTIONS]
        rates = [rate for _, rate in found[name, max(CONNECTIONS)] if rate is not None]
        cells.append("%.0f" % statistics.median(rates) if rates else "-")
        print("| %s | %s |" % (text, " | ".join(cells)))


def print_goals(found):
    """Of each round's own ratio: the machine's load differs more between rounds than within one."""
    print("\n| p50, ratio by round | connections | ratio | at most |\n|---|---|---|---|")
    for ours, peer, most in GOALS:
        for count in CONNECTIONS:
            ratios = [mine[0] / other[0]
                      for mine, other in zip(found[ours, count], found[peer, count])]
            print("| %s / %s | %d | %s | %.2f |" %
                  (ROWS[ours], ROWS[peer], count, spread(ratios), most))


def main():
    rounds, seconds = int(sys.argv[1]), int(sys.argv[2])
    setup.start_all()
    setup.check_answers(setup.PORTS)
    print("\n## The same request beside peers: medians of %d rounds of %d s\n" % (rounds, seconds))
    found = measure(rounds, seconds)
    print_table(found)
    print_goals(found)
    setup.check_answers(setup.PORTS)


if __name__ == "__main__":
    main()

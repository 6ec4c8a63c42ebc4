#!/usr/bin/python3
"""Inside the sandbox: searches among 20,000 access points and 40,000 radios, beside psql, with and
without the indexes of the schema, and the memory they take. Prints the tables of
docs/benchmarks.md."""

import os
import re
import statistics
import subprocess
import time
from pathlib import Path

RUNS = 20
SEARCH = "build/bench/bench/search_once"
PROGRAM = "/vantor/webui/wms/wms.cgi"
OUTPUT, STATEMENTS, PEAK = "/run/wms/search.out", "/run/wms/search.sql", "/run/wms/search.peak"
SERVER_LOG = Path("/run/wms/postgres.out")
ALL = "class=probes&sort-criteria=name,asc&page-size=%d"
PAGE_SIZES = (10, 500, 40000)
FILTERS = {
    "name, 8 characters": "class=probes&name=ZÜR-0012".replace("Ü", "%C3%9C"),
    "name, 3 characters": "class=probes&name=001",
    "address": "class=probes&ip=10.64.11.",
    "group": "class=probes&apgroup=home",
    "role": "class=probes&role=portal",
    "remote ones": "class=straps",
    "mesh": "class=allmesh",
    "air monitors": "class=amii",
    "air monitors, name": "class=amii&name=001",
    "all, in no order": "class=probes",
}
INDEXES = "global_radio_wired_mac, global_radio_type, global_ap_filters"


def psql(*arguments, database="gapdb", **keywords):
    subprocess.run(["psql", "-Xq", "-v", "ON_ERROR_STOP=1", *arguments, database], check=True,
                   **keywords)


def variables(query):
    return {**os.environ, "GATEWAY_INTERFACE": "CGI/1.1", "REQUEST_METHOD": "GET", "HTTPS": "on",
            "SCRIPT_NAME": "/wlm-search", "QORIN_AUTH_SESSION_ID": "bench",
            "REMOTE_ADDR": "127.0.0.1", "REMOTE_PORT": "40000", "SERVER_ADDR": "127.0.0.1",
            "SERVER_PORT": "443", "QUERY_STRING": query}


def run(command, query=""):
    with open(OUTPUT, "wb") as output:
        started = time.perf_counter()
        subprocess.run(command, env=variables(query), stdout=output, check=True)
        return (time.perf_counter() - started) * 1000


def timed(summary, *commands):
    """Of commands that take turns, so that a busy moment of the machine meets all of them."""
    rounds = [[run(*command) for command in commands] for _ in range(RUNS + 1)]
    return [summary(times) for times in zip(*rounds[1:])]


def alter(setting):
    """Only the superuser may have statements logged."""
    subprocess.run(["setpriv", "--reuid=postgres", "--regid=postgres", "--init-groups", "--",
                    "psql", "-Xqc", "ALTER DATABASE gapdb " + setting], check=True)


def statements(query):
    """What a search sends, as the server logs it."""
    alter("SET log_statement = 'all'")
    begin = SERVER_LOG.stat().st_size
    run([SEARCH], query)
    alter("RESET log_statement")
    lines = SERVER_LOG.read_text()[begin:].splitlines()
    texts = [line.partition("execute <unnamed>: ")[2] for line in lines]
    return "".join(text + ";\n" for text in texts if text)


def beside_psql():
    print("## Whole searches, connect to close, beside psql: medians of %d [ms]\n" % RUNS)
    print("| rows of a page | search | psql | ratio |\n|---|---|---|---|")
    for size in PAGE_SIZES:
        Path(STATEMENTS).write_text(statements(ALL % size))
        search, peer = timed(statistics.median, ([SEARCH], ALL % size),
                             (["psql", "-XAtq", "-f", STATEMENTS, "gapdb"],))
        print("| %d | %.1f | %.1f | %.2f |" % (size, search, peer, search / peer))


def peak(query):
    """Peak memory of the program and the size of its response, in MiB."""
    run(["/usr/bin/time", "-f", "%M", "-o", PEAK, PROGRAM], query)
    return int(Path(PEAK).read_text()) / 1024, os.path.getsize(OUTPUT) / 2**20


def memory():
    print("\n## Peak memory of the program [MiB]\n")
    print("| rows of a page | response | peak | beyond one that finds nothing | "
          "3 times the response and 8 |\n|---|---|---|---|---|")
    base, _ = peak("class=none")
    for size in PAGE_SIZES:
        most, response = peak(ALL % size)
        print("| %d | %.2f | %.1f | %.1f | %.1f |" % (size, response, most, most - base,
                                                      3 * response + 8))


def found():
    counts = re.search(r"<length>(\d+)</length>\n<total>(\d+)<", Path(OUTPUT).read_text())
    return counts[2] if counts[2] != "0" else "-"


def best():
    """Of each filter: the shortest time, and how many were found."""
    return {name: (timed(min, ([SEARCH], query))[0], found()) for name, query in FILTERS.items()}


def indexes():
    print("\n## What the indexes gain: the shortest of %d whole searches [ms]\n" % RUNS)
    print("| filter | found | without | with |\n|---|---|---|---|")
    with_indexes = best()
    psql("-c", "DROP INDEX " + INDEXES)
    for name, (time_without, number) in best().items():
        print("| %s | %s | %.1f | %.1f |" % (name, number, time_without, with_indexes[name][0]))


made = subprocess.run(["sim/access_points.py", "20000"], stdout=subprocess.PIPE, check=True)
psql("-f", "-", input=made.stdout)
psql("-c", "INSERT INTO http_session VALUES ('bench', '127.0.0.1', 'admin', 'root', '', NOW(), NOW(), "
     "1, '/')", database="wms")
beside_psql()
memory()
indexes()

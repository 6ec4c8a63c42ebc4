#!/usr/bin/python3
"""Inside the sandbox, behind nginx and the workers: how long an operator waits while a stranger makes requests
and hangs up. Prints a table of docs/benchmarks.md.

The stranger has 12 connections from another address for 5 s, each for one request, and knows no password. The
operator asks for its permissions, one time after the other, until one that it begins a second after that is answered."""

import contextlib
import http.client
import multiprocessing
import os
import socket
import ssl
import statistics
import sys
import threading
import time
from pathlib import Path
from urllib.parse import urlsplit

sys.path.insert(0, "tests/e2e")

import harness  # noqa: E402
from running import processes  # noqa: E402

CONNECTIONS, SECONDS, AFTERWARDS = 12, 5, 1
HELPER_SECONDS = 0.3
STRANGER = "127.0.0.2"
ASKED = "/get-permissions"
FORM = b"username=admin&password=guess"
REQUESTS = {
    "POST /v1/api/login": b"POST /v1/api/login HTTP/1.1\r\nHost: localhost\r\nContent-Type: "
                          b"application/x-www-form-urlencoded\r\nContent-Length: %d\r\n\r\n%s" % (len(FORM), FORM),
    "GET /heart-beat": b"GET /heart-beat HTTP/1.1\r\nHost: localhost\r\n\r\n"}


def abort_requests(request, seconds_open, ends):
    """Makes requests until it is time to end; returns how many were sent."""
    target, sent = urlsplit(harness.URL), 0
    context = ssl._create_unverified_context()
    while time.monotonic() < ends:
        try:
            with socket.create_connection((target.hostname, target.port), 10, (STRANGER, 0)) as plain, \
                    context.wrap_socket(plain) as connection:
                connection.sendall(request)
                sent += 1
                time.sleep(seconds_open)
        except OSError:
            pass  # refused, or not answered in time, as a server may
    return sent


def attack(request, seconds_open, ends, result):
    """A process of its own, so that the operator's is not slowed down."""
    counts = []
    threads = [threading.Thread(target=lambda: counts.append(abort_requests(request, seconds_open, ends)))
               for _ in range(CONNECTIONS)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    result.put(sum(counts))


def ask(connection, session):
    """One answer, or what went wrong; a connection that has ended is made anew."""
    try:
        connection.request("GET", ASKED, headers=harness.as_session(session))
        reply = connection.getresponse()
        return reply.status, reply.read()
    except (OSError, http.client.HTTPException) as error:
        connection.close()
        return 0, repr(error).encode()


class Workers(threading.Thread):
    """Watches the workers' manager start workers; none lives for as short a time as there is between two looks."""

    def __init__(self):
        super().__init__()
        manager = min(pid for pid, process in processes().items() if process.name == "multiwatch")
        self._children = Path("/proc/%d/task/%d/children" % (manager, manager))
        self._over = threading.Event()
        self.seen = self._now()

    def _now(self):
        return set(self._children.read_text().split())

    def run(self):
        while not self._over.wait(0.01):
            self.seen |= self._now()

    def started(self):
        self._over.set()
        self.join()
        return len(self.seen) - harness.WORKERS


def commands():
    """How many the command service has seen."""
    return sum("command" in exchange for exchange in harness.traffic())


def log_in(operator):
    """The operator's session and the right answer, when nothing of earlier requests is left: those that
    wait for a worker are served before these."""
    harness.clean_state()
    session = harness.add_session(ip="127.0.0.1")
    for _ in range(20 * harness.WORKERS):  # until all workers are warm
        right = ask(operator, session)
        assert right[0] == 200 and b"<status>Ok<" in right[1], right
    harness.wait_until(lambda: len(Workers().seen) == harness.WORKERS, "all workers")
    return session, right


def measure(request, seconds_open):
    """(requests sent, workers started, commands, wrong answers, times in ms)"""
    with contextlib.closing(harness.connect(300)) as operator:
        session, right = log_in(operator)
        if seconds_open:
            harness.plan(delay=HELPER_SECONDS, times=1000000000)
        before = commands()
        workers, sent, times, wrong = Workers(), multiprocessing.Queue(), [], 0
        ends = time.monotonic() + SECONDS
        stranger = multiprocessing.Process(target=attack, args=(request, seconds_open, ends, sent))
        stranger.start()
        workers.start()
        began = 0
        while began < ends + AFTERWARDS:  # so the last one waits for all that the stranger left
            began = time.monotonic()
            answer = ask(operator, session)
            times.append((time.monotonic() - began) * 1000)
            wrong += answer != right
    stranger.join()
    return sent.get(), workers.started(), commands() - before, wrong, times


def main():
    print("\n## An operator beside aborted requests, the HTTP server's limits %s\n" %
          ("as deployed" if os.environ.get("WMS_LIMITS") == "deployed" else "off"))
    print("| Request | Closed | Sent | Workers started | Commands | Operator's answers | Wrong | "
          "Median wait [ms] | Worst wait [ms] |\n|---|---|---|---|---|---|---|---|---|")
    for name, request in REQUESTS.items():
        for closed, seconds_open in (("at once", 0), ("while the helper takes 0.3 s", HELPER_SECONDS / 2)):
            *counts, times = measure(request, seconds_open)
            sent, started, asked, wrong = counts
            print("| %s | %s | %d | %d | %d | %d | %d | %.1f | %.0f |" % (
                name, closed, sent, started, asked, len(times), wrong, statistics.median(times), max(times)),
                flush=True)
    harness.clean_state()


main()

#!/usr/bin/python3
"""Inside the sandbox: what whole requests cost, and how that grows. Prints tables of the program's
processor time at three sizes, of what it allocates and copies, and of its peak memory, as plain CGI
and in a warm worker. Ends with 1 when a cost grows much faster than its size, or the memory is more
than it may be."""

import os
import random
import re
import subprocess
import sys
from pathlib import Path

sys.path.insert(0, "tests/e2e")

import fcgi  # noqa: E402
import harness  # noqa: E402

RUNS = 15
GROWTH_MAX = 3.0
SPARE_MIB = 8
PAIR = 40  # bytes of a pair's record
COMMAND = "/screens/cmnutil/execCommandReturnResult.xml?"
DASHBOARD = "/monitor-summary-data?operand=controller-summary"
BODY, PEAK, COUNTS, OUTPUT = (Path("/run/wms/bench." + name) for name in (
    "body", "peak", "counts", "output"))
COUNTER = "build/bench/libcount_calls.so"
BOUNDARY = b"XyZZy42"
PART = b'--%s\r\nContent-Disposition: form-data; name="n%06d"\r\n\r\nv\r\n'


class Request:
    """One request that can be made again. `plans` are orders for the simulated controller."""

    def __init__(self, path, body=b"", kind="application/x-www-form-urlencoded", output=None):
        self.path, self.body, self.kind, self.output = path, body, kind, output

    def variables(self):
        of_body = {"REQUEST_METHOD": "POST", "CONTENT_TYPE": self.kind,
                   "CONTENT_LENGTH": str(len(self.body))}
        return {"QORIN_AUTH_SESSION_ID": SESSION, **(of_body if self.body else {})}

    def run(self, *prefix, **more):
        """Returns the processor time, in milliseconds, and the size of the response."""
        harness.order("reset")
        if self.output is not None:
            harness.plan(times=100, match="show", output=self.output)
        BODY.write_bytes(self.body)
        variables = {**self.variables(), **more}
        with BODY.open("rb") as stdin, OUTPUT.open("wb") as stdout:
            child = subprocess.Popen([*prefix, harness.PROGRAM], stdin=stdin, stdout=stdout,
                                     env=harness.cgi_variables(self.path, variables))
            _, status, used = os.wait4(child.pid, 0)
        child.returncode = status
        assert status == 0, status
        return (used.ru_utime + used.ru_stime) * 1000, OUTPUT.stat().st_size

    def time(self):
        return min(self.run()[0] for _ in range(RUNS))

    def peak(self):
        """In MiB; measured by a small process, since a child begins with its parent's peak."""
        self.run("/usr/bin/time", "-f", "%M", "-o", str(PEAK))
        return int(PEAK.read_text()) / 1024

    def worker_peak(self):
        """The same of a warm worker that has served it twice: what the first left would add up."""
        with fcgi.Workers("/run/wms/bench.sock") as worker:
            answers = [worker.output(self.path, self.variables(), self.body) for _ in range(2)]
            assert answers == [OUTPUT.read_bytes()] * 2, answers
            status = Path("/proc/%d/status" % worker.running[0].pid).read_text()
        return int(re.search(r"VmHWM:\s*(\d+) kB", status)[1]) / 1024

    def counts(self):
        _, size = self.run(LD_PRELOAD=os.path.abspath(COUNTER), COUNT_CALLS=str(COUNTS))
        return [*map(int, COUNTS.read_text().split()), size]


def table_reply(size):
    row = "<r><c>ap-%05d</c><c>Hall 3</c><c>10.64.0.7</c><c>Up 3d:4h</c><c>R&amp;D</c><c></c></r>\n"
    rows = "".join(row % number for number in range(size // (len(row) + 1)))
    return '<re><t tn="AP" nc="6">%s</t></re>\n' % rows


def file_body(size):
    return (harness.multipart(("UIDQORIN", SESSION.encode()),
                              ("file", random.Random(1).randbytes(size - 400), "image.bin"))[0],
            "multipart/form-data; boundary=" + BOUNDARY.decode())


def command(reply_size=None):
    return Request(COMMAND + "show%20clock&UIDQORIN=" + SESSION,
                   output=None if reply_size is None else table_reply(reply_size))


def search(rows):
    return Request("/wlm-search?class=probes&sort-criteria=name,asc&page-size=%d" % rows)


def growth():
    stages = (
        ("command, reply of 200, 800, 3200 KB", lambda n: command(n << 10), (200, 800, 3200)),
        ("dashboard, replies of 50, 200, 800 KB",
         lambda n: Request(DASHBOARD, output=table_reply(n << 10)), (50, 200, 800)),
        ("search, page of 1000, 4000, 16000 rows", search, (1000, 4000, 16000)),
        ("post to memory, 5, 20, 80 MiB",
         lambda n: Request("/heart-beat", *file_body(n << 20)), (5, 20, 80)),
        ("post to the spool, 5, 20, 80 MiB",
         lambda n: Request("/wms-os-upload.html", *file_body(n << 20)), (5, 20, 80)),
    )
    base = Request("/heart-beat").time()
    counted = search(0).time()
    print("\n## Processor time of the program\n")
    print("Beyond a request that does nothing, %.1f ms; of a search, beyond one that only counts what is "
          "found, %.1f ms.\n" % (base, counted))
    print("| stage | small [ms] | 4 times | 16 times | growth per byte or row |\n|---|---|---|---|---|")
    linear = True
    for name, make, sizes in stages:
        rest = counted if make is search else base
        small, middle, large = (make(size).time() - rest for size in sizes)
        ratio = large / max(small, 0.5) / 16
        linear = linear and ratio <= GROWTH_MAX
        print("| %s | %.1f | %.1f | %.1f | %.2f |" % (name, small, middle, large, ratio), flush=True)
    return linear


def calls():
    print("\n## What a request allocates and copies\n")
    print("| request | response [bytes] | allocations, own | with libraries | "
          "copied in blocks of 4 KiB and more, own | with libraries |\n|---|---|---|---|---|---|")
    for name, request in (
            ("no session", Request("/heart-beat")), ("command", command()),
            ("command, reply of 200 KB", command(200 << 10)),
            ("command, reply of 8 MB", command(8 << 20)),
            ("dashboard, replies of 200 KB", Request(DASHBOARD, output=table_reply(200 << 10))),
            ("search, 500 rows", search(500))):
        own, whole, own_copied, copied, size = request.counts()
        print("| %s | %d | %d | %d | %d | %d |" % (name, size, own, whole, own_copied, copied))


def shapes(size):
    """(name, request, pairs) of posts that fill the memory that a body may take."""
    page = "/heart-beat"
    fields = size // 80
    body, kind = file_body(size)
    yield "one field", Request(page, b"cmd=" + b"a" * (size - 4)), 1
    yield "one escaped field", Request(page, b"cmd=" + b"%41+" * (size // 4 - 1)), 1
    yield "a million fields", Request(page, b"".join(
        b"k%08x=%069d&" % (number * 2654435761 & 0xFFFFFFFF, number) for number in range(fields))
        [:-1]), fields
    yield "multipart, a file", Request(page, body, kind), 2
    parts = b"".join(PART % (BOUNDARY, number * 7919 % 1000003) for number in range(fields - 1))
    yield ("multipart, a million parts",
           Request(page, parts + b"--%s--\r\n" % BOUNDARY, kind), fields)
    yield "spooled, a file", Request("/wms-os-upload.html", body, kind), 2


def memory():
    print("\n## Peak memory of posts of 80 MiB\n")
    print("| body | its size [MiB] | pairs [MiB] | peak [MiB] | beyond both | peak of a warm worker | "
          "beyond both |\n|---|---|---|---|---|---|---|")
    fits = True
    for name, request, pairs in shapes(80 << 20):
        body, records = len(request.body) / 2**20, pairs * PAIR / 2**20
        allowed = records + (0 if name.startswith("spooled") else body)
        cells = [body, records]
        for most in (request.peak(), request.worker_peak()):
            fits = fits and most - allowed <= SPARE_MIB
            cells += [most, most - allowed]
        print("| %s | %s |" % (name, " | ".join(map("%.1f".__mod__, cells))), flush=True)
    return fits


made = subprocess.run(["sim/access_points.py", "20000"], stdout=subprocess.PIPE, check=True)
subprocess.run(["psql", "-Xq", "-v", "ON_ERROR_STOP=1", "gapdb"], input=made.stdout, check=True)
SESSION = harness.add_session(ip="192.0.2.7")
is_linear = growth()
calls()
is_within = memory()
sys.exit(0 if is_linear and is_within else 1)

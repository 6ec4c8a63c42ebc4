"""A mix of requests to everything that is served, clients that send it side by side, and a record
of all that the system holds, to be compared before and after."""

import http.client
import itertools
import os
import random
import re
import ssl
import statistics
import threading
import time
from collections import Counter
from dataclasses import dataclass, field
from pathlib import Path
from urllib.parse import quote, urlencode

import harness

ROLES = {"admin": "root", "standard": "standard", "reader": "read-only",
         "operator": "network-operations", "guest": "guest-provisioning"}
NOBODY, STALE = "nobody", "stale"
FORM = {"Content-Type": "application/x-www-form-urlencoded"}
CMN = "/screens/cmnutil/"
TIME_WAIT = "06"  # a state that is the kernel's own affair
FOREIGN = "00000000-0000-4000-8000-000000000000"
# Differs between two answers to the same request: identifiers, times of day, days.
VARIABLE = re.compile(rb"[0-9a-f]{8}(?:-[0-9a-f]{4}){3}-[0-9a-f]{12}|\d\d:\d\d:\d\d|"
                      rb"\b(?:Mon|Tue|Wed|Thu|Fri|Sat|Sun)\b[^<\n]*")
# Of the connection, not of the answer; how its end is told depends on how fast the program was.
HOP_HEADERS = {"date", "keep-alive", "connection", "content-length", "transfer-encoding"}
# All sessions together stay below the limit.
LOGINS, FREE = threading.BoundedSemaphore(50), threading.BoundedSemaphore(1000)


@dataclass(frozen=True)
class Errand:
    """What one client does in one go, as one user: (method, path, body, headers) each. $SID is the
    identifier of its session, the one that a login in it made if there was one."""
    who: str
    steps: tuple
    turn: threading.BoundedSemaphore = field(default=FREE, repr=False)


def get(path):
    return "GET", path, b"", {}


def form(path, **fields):
    return "POST", path, urlencode(fields, safe="$").encode(), FORM


def parts(path, *fields):
    body, headers = harness.multipart(*fields)
    return "POST", path, body, headers


def command(page, text):
    return get("%s%s?%s&UIDQORIN=$SID" % (CMN, page, quote(text)))


def api(target, body=None):
    path = "/v1/configuration/%s%sUIDQORIN=$SID" % (target, "&" if "?" in target else "?")
    return ("GET" if body is None else "POST"), path, body or b"", {}


def search(**fields):
    return form("/wlm-search", **{name.replace("_", "-"): text for name, text in fields.items()})


# What each kind of user asks for. Nothing of it changes what another one gets: what is written is
# what stands there already.
ASKED = [
    command("execCommandReturnResult.xml", "show hostname"),
    command("execCommandReturnResult.xml", "show user-table rows 1 1@@menu"),
    command("execCommandReturnResult.xml", "wuic:get-running-config-clrtxt?appid=1"),
    get(CMN + "execCommandReturnResult.xml?show%20hostname&UIDQORIN=" + FOREIGN),
    form(CMN + "execCommandPostReturnResult.xml", cmd="write memory", UIDQORIN="$SID"),
    form(CMN + "execCommandPostReturnResult.xml", cmd="write memory", UIDQORIN=FOREIGN),
    command("execCommandsReturnResult.xml", "show ap essid,no paging,show inventory"),
    command("execMultipleCommands.xml", "g1/0/1,f1/0;?trusted;shutdown"),
    command("execSimple.xml", "write memory"), command("execFPCliCommand.xml", "show cpuload"),
    get(CMN + "execUiQuery.xml?query=stations&UIDQORIN=$SID"),
    get(CMN + "telm?msgType=1&srcIP=10.10.4.11"), get(CMN + "getRolePolicy.xml"),
    get("/getRunningConfig.xml?8214"), get("/monitor-summary-data"),
    get("/monitor-summary-data?operand=controller-summary"), get("/x/get-permissions"),
    parts("/x/cr-save", ("operand", b"<qorin><cr/></qorin>" * 2000)), get("/x/cr-load"),
    form("/x/plog-export", operand="a,b\n1,2\n", type="1"),
    form(CMN + "rfmon_wlans.csv", operand="a,b\n", type="2"),
    api("object/vlan"), api("container/system?config_path=/hq"), api("object/none"),
    api("showcommand?json=1&command=show+hostname"), api("object/ntp", b'{"server":"10.1.1.1"}'),
    api("object/fileUpload?file_name=map.svg", b"<svg/>"), api("object/ntp", b"{}\0"),
    search(**{"class": "probes", "sort_criteria": "name,asc", "page_size": "100"}),
    search(**{"class": "straps", "name": "o'b\\"}), search(**{"class": "allmesh"}),
    search(**{"class": "amii", "sort_criteria": "name,desc"}),
    search(**{"class": "amii", "sort_criteria": "mac,asc"}),
]

# What needs no session, or makes one.
LOGIN = "/v1/api/login"
ANYBODY = [
    form(LOGIN, username="admin", password="wrong"), form(LOGIN, username="admin"),
    form(LOGIN, username="token", password="wlan-Demo6"), get("/v1/api/logout"),
    parts(LOGIN, ("username", b"reader"), ("password", b"no"), ("f", b"x" * 65536, "f.bin")),
    parts(LOGIN, ("username", b"reader"), ("password", b"no"), ("f", b"x", ".profile")),
    ("DELETE", "/v1/api/login", b"", {}), ("HEAD", "/v1/api/login", b"", {}),
    get("/v1/api/login?a=%3CScRiPt%3E"), get("/no/such/opcode?opcode=a%26b%3C"),
    get("/v1/api/login?" + "x=1&" * 20000),
]
VISITS = [(LOGIN, user, "wlan-Demo%d" % number) for number, user in
          ((1, "admin"), (2, "reader"), (3, "guest"), (4, "standard"), (5, "operator"))]


def visit(path, user, password):
    work = command("execCommandReturnResult.xml", "show hostname")
    return Errand(NOBODY, (form(path, username=user, password=password), work,
                           get("/v1/api/logout"), work), LOGINS)


def table_keys():
    table = (harness.CHECKOUT / "src/dispatch/dispatch_table.cpp").read_text()
    return re.findall(r'\.name = "([^"]+)"', table)


def mix():
    everybody = [*ROLES, NOBODY, STALE]
    errands = [Errand(who, (step,)) for who in everybody for step in ASKED]
    errands += [Errand(NOBODY, (step,)) for step in ANYBODY]
    errands += [visit(*one) for one in VISITS]
    # Every key of the dispatch table, as one user each. A logout would end a session of others.
    keys = [key for key in table_keys() if not key.endswith("/logout")]
    assert len(keys) > 150, "the dispatch table is written in another way"
    errands += [Errand(who, (get(key if key.startswith("/") else "/x/" + key),))
                for key, who in zip(keys, itertools.cycle(everybody))]
    image = ("file", bytes(range(256)) * 100, "image.bin")
    page = CMN + "wms-os-upload.html"
    return errands + [Errand(who, (parts(page, ("UIDQORIN", b"$SID"), image),))
                      for who in ("admin", "standard", "reader")]


class Client:
    """One client with one connection that it keeps. It begins another when it has been idle, since
    the server ends such connections."""
    context = ssl._create_unverified_context()

    def __init__(self, sessions):
        self._sessions = sessions
        self._used = time.monotonic()
        self._connection = harness.connect(120, self.context)

    def close(self):
        self._connection.close()

    def _ask(self, step, sid):
        method, path, body, headers = step
        headers = {**headers, **(harness.as_session(sid) if sid else {})}
        if time.monotonic() - self._used > 0.5:
            self.close()
        self._connection.request(method, path.replace("$SID", sid or FOREIGN),
                                 body.replace(b"$SID", sid.encode()) or None, headers)
        reply = self._connection.getresponse()
        response = harness.Response(reply.status, reply.getheaders(), reply.read())
        self._used = time.monotonic()
        return response

    def perform(self, errand, durations=None):
        """The answers, without what may differ."""
        sid = self._sessions[errand.who]
        answers = []
        with errand.turn:
            for step in errand.steps:
                began = time.monotonic()
                response = self._ask(step, sid)
                if durations is not None:
                    durations.append(time.monotonic() - began)
                made = re.search('"UIDQORIN":"([^"]+)"', response.text)
                sid = made[1] if made else sid
                answers.append(masked(response))
        return answers


def masked(response):
    headers = sorted((name.lower(), VARIABLE.sub(b"#", value.encode()))
                     for name, value in response.headers if name.lower() not in HOP_HEADERS)
    return response.status, headers, VARIABLE.sub(b"#", response.body)


@dataclass
class Outcome:
    durations: list = field(default_factory=list)
    wrong: list = field(default_factory=list)
    rounds: int = 0  # how often the whole mix was handed out
    seconds: float = 0
    own_seconds: float = 0  # of processor time that the clients took

    def figures(self):
        times = sorted(1000 * took for took in self.durations)
        cuts = statistics.quantiles(times, n=100)
        return ("%d requests in %.1f s, %.1f/s; median %.0f ms, 95 %% %.0f ms, 99 %% %.0f ms, longest "
                "%.0f ms; the clients took %.1f s of processor time" % (
                    len(times), self.seconds, len(times) / self.seconds, cuts[49], cuts[94], cuts[98],
                    times[-1], self.own_seconds))


def run(errands, expected, sessions, clients, keep_on):
    """Clients that take errand after errand off a common list, round after round of the mix, each in
    another order, while keep_on(outcome)."""
    dice, lock = random.Random(1), threading.Lock()
    outcome, pending = Outcome(), []

    def next_errand():
        with lock:
            if not keep_on(outcome):
                return None
            if not pending:
                pending.extend(dice.sample(range(len(errands)), len(errands)))
            number = pending.pop()
            outcome.rounds += 0 if pending else 1
            return number

    def work():
        client = Client(sessions)
        while (number := next_errand()) is not None:
            try:
                got = client.perform(errands[number], outcome.durations)
            except (OSError, http.client.HTTPException) as error:
                got = repr(error)
                client.close()
            if got != expected[number]:
                outcome.wrong.append((errands[number], expected[number], got))
        client.close()

    threads = [threading.Thread(target=work) for _ in range(clients)]
    began, own = time.monotonic(), time.process_time()
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    outcome.seconds = time.monotonic() - began
    outcome.own_seconds = time.process_time() - own
    return outcome


def files(*folders):
    return sorted(str(path) for folder in folders for path in Path(folder).rglob("*")
                  if "/postgresql/data/" not in str(path))


# How command lines begin that the HTTP server and PostgreSQL have; one that has ended and was not yet waited for has
# a name alone. What ends and when is these servers' own affair.
HTTP_SERVER, ENDED, POSTGRES = b"/usr/sbin/apache2", (b"apache2\n", b"postgres\n"), b"postgres"


def processes():
    """(command line, number of descriptors) of each but ourselves and what we started."""
    for folder in Path("/proc").glob("[0-9]*"):
        try:
            name = (folder / "cmdline").read_bytes().replace(b"\0", b" ") or (folder / "comm").read_bytes()
            if int(folder.name) != os.getpid() and name not in ENDED:
                yield name, len(list((folder / "fd").iterdir()))
        except (FileNotFoundError, ProcessLookupError):
            continue  # has ended meanwhile


def sockets():
    for kind in ("tcp", "udp", "unix"):
        for line in Path("/proc/net", kind).read_text().splitlines()[1:]:
            if kind != "tcp" or line.split()[3] != TIME_WAIT:
                yield kind


def connections():
    return harness.sql("SELECT datname, COUNT(*) FROM pg_stat_activity WHERE backend_type = "
                       "'client backend' AND pid <> pg_backend_pid() GROUP BY 1")


def holdings():
    """All that may be left behind, a text each. The HTTP server and PostgreSQL come with as many
    processes as they see fit: of these it is the descriptors of the one that has most, and the
    connections."""
    seen, most = Counter(), Counter()
    for name, descriptors in processes():
        if not name.startswith((POSTGRES, HTTP_SERVER)):
            seen[name] += 1
        if not name.startswith(POSTGRES):
            most[name] = max(most[name], descriptors)
    return {str(held) for held in itertools.chain(
        seen.items(), most.items(), Counter(sockets()).items(),
        files("/tmp", "/flash", "/run", "/dev/shm", "/vantor"), connections(),
        harness.sql("SELECT * FROM pg_locks WHERE locktype = 'advisory'"),
        harness.sql("SELECT * FROM http_session"),
        ((kind, line.split()[:2]) for kind in ("sem", "shm", "msg")
         for line in Path("/proc/sysvipc", kind).read_text().splitlines()))}


def at_rest():
    """The holdings when the last request is over and the last connection closed."""
    harness.wait_until(lambda: not connections() and Counter(sockets())["tcp"] == 1, "rest")
    return holdings()

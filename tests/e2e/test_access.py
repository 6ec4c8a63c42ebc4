"""Every row of access.tsv, for every role and without a session, by GET, by POST and by opcode, with
its token, with another session's and with none, from the controller's own pages and from those of other
sites: served or refused as the table states.

The table states the access rules a second time, in words of its own:
  roles       who is served in a session; "any" is every role, unknown ones too
  no session  whether the row is served without one
  token       the methods that need the session's token
  setup       whether it is served while the controller has its factory-default configuration
  other site  the method by which a page of another site may call it
  opcode      whether the field "opcode" reaches it under another path
"""

import contextlib
import csv
import re
import threading
from collections import Counter
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path
from urllib.parse import urlencode

import harness

ROWS = list(csv.DictReader(Path(__file__).with_name("access.tsv").open(), delimiter="\t"))
ROLES = ["root", "standard", "read-only", "network-operations", "guest-provisioning",
         "location-api-mgmt", "snmpv3-user", "nbapi-mgmt", "ap-provisioning", "Read-Only"]
WITHOUT = ["nobody", "stale"]  # no cookie; one whose session is gone
TOKENS = ["right", "foreign", "missing"]
OTHER_SITES = ["cross-site", "same-site"]  # what a browser says of a page that calls
OWN_SITES = ["same-origin", "none", "Cross-Site", "cross-site, none"]  # the last two are nobody's

SERVED = "served"
NO_PERMISSION = harness.ERROR_DOCUMENT % harness.NO_PERMISSION
NO_TOKEN = harness.ERROR_DOCUMENT % "SID Validation failed"
NO_API_TOKEN = ('{"_global_result": {"status": 1, "status_str": '
                '"Invalid authentication token(UIDQORIN) in request URL"}}')
NO_LOGIN = harness.ERROR_DOCUMENT % "Unauthorized request, authentication failed"
NO_API_LOGIN = ('{"_global_result": {"status":"1", "status_str": '
                '"Unauthorized request, authentication failed"}}\r\n')
REFUSALS = {NO_PERMISSION: (200, "text/xml"), NO_TOKEN: (200, "text/xml"),
            NO_API_TOKEN: (401, "application/json"),
            NO_LOGIN: (401, "text/xml"), NO_API_LOGIN: (401, "application/json")}

API = "/v1/configuration"
UPLOADS = ("captiveportal_import.html", "wms-os-upload.html")
# Whoever gets through by mistake has something run, stored or sent.
WORK = [("cmd", "show hostname"), ("query", "x"), ("msgType", "1"), ("srcIP", "192.0.2.1"),
        ("operand", "<a/>")]
THREADS = 8
one_upload_at_a_time = threading.Lock()  # all of them go through one spool file
local = threading.local()


@dataclass(frozen=True)
class Case:
    row: int
    who: str
    method: str
    by_opcode: bool
    token: str
    site: str = ""

    @property
    def name(self):
        return ROWS[self.row]["name"] + ("/object/vlan" if ROWS[self.row]["name"] == API else "")

    @property
    def path(self):
        """By opcode the page itself would say the contrary."""
        if self.by_opcode:
            return "/screens/wms/wms.login" if self.verdict in (NO_PERMISSION, NO_TOKEN, NO_API_TOKEN) else "/nowhere"
        return self.name if self.name.startswith("/") else "/x/" + self.name

    @property
    def sid(self):
        return "" if self.who == "nobody" else "%s.%d" % (self.who, self.row)

    @property
    def is_upload(self):
        return self.method == "POST" and self.name in UPLOADS and not self.by_opcode

    @property
    def verdict(self):
        row = ROWS[self.row]
        if self.site in OTHER_SITES and row["other site"] != self.method:
            return NO_PERMISSION
        if self.by_opcode and row["opcode"] == "no":
            return NO_API_LOGIN if "api" in self.name else NO_LOGIN
        if self.who in WITHOUT:
            return SERVED if row["no session"] == "yes" else NO_PERMISSION
        if row["roles"] != "any" and self.who not in row["roles"].split():
            return NO_PERMISSION
        if self.method in row["token"].split() and self.token != "right":
            return NO_API_TOKEN if row["name"] == API else NO_TOKEN
        return SERVED


def all_cases():
    for number, row in enumerate(ROWS):
        for turn, who in enumerate(ROLES + WITHOUT):
            # What the key is taken from is decided before roles are: some of them, each by one method.
            by_opcode = [(("GET", "POST")[turn % 2], True)] * ((turn + number) % 4 == 0)
            for way in (("GET", False), ("POST", False), *by_opcode):
                # A token matters only where one is asked for, and of whom it is.
                right = Case(number, who, *way, "right")
                asked = row["token"] != "-" and who in ROLES and right.verdict == SERVED
                tokens = TOKENS if asked else ["foreign"] if row["token"] == "-" else ["right"]
                yield from (Case(number, who, *way, token) for token in tokens)
        for way in (("GET", False), ("POST", False), ("GET", True)):
            for site in (*OTHER_SITES, OWN_SITES[number % len(OWN_SITES)]):
                yield Case(number, "root", *way, "right", site)


def chosen(cases):
    """All of them, or of each row and verdict one, another one for each row."""
    if harness.WHOLE_TABLES:
        return cases
    groups = {}
    for case in cases:
        groups.setdefault((case.row, case.verdict, case.site in OTHER_SITES), []).append(case)
    return [group[key[0] * 7 % len(group)] for key, group in groups.items()]


def target_and_body(case):
    token = {"right": case.sid, "foreign": "foreign", "missing": ""}[case.token]
    fields = [("opcode", case.name)] * case.by_opcode + WORK + [("UIDQORIN", token)] * bool(token)
    if case.method == "GET":
        return case.path + "?" + urlencode(fields), b"", {}
    target = case.path + ("?UIDQORIN=" + token if ROWS[case.row]["name"] == API else "")
    if case.is_upload:
        parts = [(name, value.encode()) for name, value in fields]
        return target, *harness.multipart(*parts, ("file", b"image", "image.bin"))
    return target, urlencode(fields).encode(), harness.form_headers()


def send(case):
    """Over this thread's connection."""
    if not hasattr(local, "connection"):
        local.connection = harness.connect()
    target, body, headers = target_and_body(case)
    if case.sid:
        headers = {**headers, **harness.as_session(case.sid)}
    if case.site:
        headers = {**headers, "Sec-Fetch-Site": case.site}
    with one_upload_at_a_time if case.is_upload else contextlib.nullcontext():
        local.connection.request(case.method, target, body or None, headers)
        reply = local.connection.getresponse()
        return harness.Response(reply.status, reply.getheaders(), reply.read())


def is_as_stated(case, response):
    if case.verdict == SERVED:
        return response.status < 500 and response.text not in REFUSALS
    return (response.text == case.verdict
            and (response.cookies() == [] or case.verdict == NO_API_LOGIN)
            and (response.status, response.header("Content-Type")) == REFUSALS[case.verdict])


def run(cases):
    with ThreadPoolExecutor(THREADS) as pool:
        answers = zip(cases, pool.map(send, cases))
        return [(case, response) for case, response in answers if not is_as_stated(case, response)]


def make_sessions():
    harness.sql("INSERT INTO http_session SELECT role || '.' || n, '192.0.2.9', 'u', role, '', NOW(), "
                "NOW(), 1, '/' FROM unnest('{%s}'::text[]) role, generate_series(0, %d) n"
                % (",".join(ROLES), len(ROWS) - 1))
    harness.add_session(sid="foreign")


def lasting_state():
    """Sessions, and files with their content; but not the trace, in which refusals are noted."""
    files = {path: path.read_bytes() for folder in ("/flash", "/tmp")
             for path in Path(folder).rglob("*") if path.is_file() and path.name != "ooo"}
    return sorted(harness.sql("SELECT * FROM http_session")), files


def refusals_logged():
    """How often who was refused what, as the log has it."""
    patterns = (r"no permission to execute opcode/program (\S+)\.$",
                r"SID Validation failed (GET|POST) URI:(\S+)$")
    found = [match.groups() for line in harness.log_lines() for pattern in patterns
             for match in re.finditer(pattern, line)]
    return Counter(tuple(part.removeprefix("/x/") for part in groups) for groups in found)


def refusals_stated(cases):
    return Counter((case.name,) if case.verdict == NO_PERMISSION
                   else (case.method, case.path.removeprefix("/x/"))
                   for case in cases if case.verdict not in (NO_LOGIN, NO_API_LOGIN))


def test_who_is_refused_gets_nothing_done():
    make_sessions()
    harness.IMAGE.write_bytes(b"staged")
    cases = chosen([case for case in all_cases() if case.verdict != SERVED])
    before = lasting_state()
    assert run(cases) == []
    assert harness.traffic() == []
    assert lasting_state() == before
    assert refusals_logged() == refusals_stated(cases)
    elsewhere = [case for case in cases if case.verdict in (NO_LOGIN, NO_API_LOGIN)]
    assert harness.logins_refused() == [harness.login_refused("other-path", "")] * len(elsewhere) != []


def test_who_is_admitted_is_served():
    make_sessions()
    cases = chosen([case for case in all_cases() if case.verdict == SERVED])
    assert run(cases) == []
    assert refusals_logged() == Counter()
    assert harness.traffic() != []


def test_the_factory_default_state_serves_the_setup_rows_alone():
    harness.FACTORY_DEFAULT.touch()
    rows = [number for number, row in enumerate(ROWS)
            if harness.WHOLE_TABLES or row["setup"] == "yes" or number % 10 == 0]
    cases = [Case(number, "root", "GET", False, "right") for number in rows]
    with ThreadPoolExecutor(THREADS) as pool:
        pages = list(pool.map(send, cases))
    served = [case.name for case, page in zip(cases, pages)
              if "<title>Initial setup</title>" not in page.text]
    assert served == [ROWS[number]["name"] for number in rows if ROWS[number]["setup"] == "yes"]

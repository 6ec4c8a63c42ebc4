"""Memory that runs out: every allocation of a request fails in turn. What comes is the answer, a
document that stands for what failed, or the memory error; whole, and with nothing left behind."""

import functools
import os
import re
import subprocess
import xml.etree.ElementTree as ET
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path
from typing import Callable
from urllib.parse import urlencode

import pytest

import harness

LIBRARY = harness.CHECKOUT / "build" / os.environ.get("WMS_PRESET", "") / "libfailing_allocations.so"
SID = "5f0c8a52-7a4e-4a55-9d6f-0d3f5a1c9b77"
SIDE_BY_SIDE = 4
BATCH = 32
ANY_UUID = re.compile(rb"[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}")
REPORTS = Path("/flash/upload/custom-reports.xml")
OLD, NEW = b"<old/>" * 900, b"<new/>" * 2000
FOLDERS = [Path(name) for name in ("/tmp", "/flash", "/flash/config", "/flash/upload")]


def document(reason):
    return harness.XML_HEAD.decode() + harness.ERROR_DOCUMENT % reason


MEMORY_ERROR = document("Memory allocation failure")
# Beside it, what the system answers to the failure of a part that has an answer of its own.
FOR_ALL = [re.escape(MEMORY_ERROR), document("can't connect to db: [^<]+")]
FORM = [re.escape(document("Restricted characters encountered"))]
SESSION = [re.escape(document(harness.NO_PERMISSION))]
NO_REPLY = "Malloc failed: Cannot allocate memory"


@dataclass
class Request:
    path: str
    env: dict
    body: bytes = b""
    also: tuple = ()  # patterns of whole answers
    before: Callable = lambda number: None
    after: Callable = lambda response, right: None
    side_by_side: int = SIDE_BY_SIDE


def posted(content_type, body):
    return {"REQUEST_METHOD": "POST", "CONTENT_TYPE": content_type, "CONTENT_LENGTH": str(len(body))}


def with_session(**keywords):
    return {"QORIN_AUTH_SESSION_ID": SID, **keywords}


def form(path, fields, also, **keywords):
    body = urlencode(fields).encode()
    return Request(path, with_session(**posted("application/x-www-form-urlencoded", body)), body,
                   (*FORM, *SESSION, *also), **keywords)


def multipart(path, *parts, also=(), **keywords):
    body, headers = harness.multipart(*parts)
    return Request(path, with_session(**posted(headers["Content-Type"], body)), body,
                   (*FORM, *SESSION, *also), side_by_side=1, **keywords)


def screen(path, *also, **keywords):
    return Request(path, with_session(), also=(*FORM, *SESSION, *also), **keywords)


def one_session_if_told(response, right):
    """A login's session is there if and only if the client was told of it."""
    there = [row[0].encode() for row in harness.sql("DELETE FROM http_session RETURNING sid")]
    told = re.findall(rb'"UIDQORIN":"([^"]+)"', response)
    assert (there, len(told)) == (told, 1 if right else 0)


def replaces(path, new):
    """Whatever fails, the file is the old one or the new one, whole."""
    def is_whole(response, right):
        assert path.read_bytes() in ((new,) if right else (OLD, new))
    return {"before": lambda number: path.write_bytes(OLD), "after": is_whole}


def log_in():
    body = urlencode({"username": "admin", "password": "wlan-Demo1"}).encode()
    refused = ('(?s)Status: 401 Unauthorized\r\n.*"status":"1", "status_str": "Unauthorized request, '
               "(authentication failed|can't update session)\"}}\r\n")
    return Request("/v1/api/login", posted("application/x-www-form-urlencoded", body), body,
                   (*FORM, refused), after=one_session_if_told, side_by_side=1)


JSON_HEAD = "Content-Type: application/json\r\nExpires: 0\r\n\r\n"
REQUESTS = {
    "refusal": Request("/nowhere", {}),
    "setup-page": Request("/screens/wms/wms.login", {}),
    "command": screen("%s?show%%20hostname&UIDQORIN=%s" % (harness.EXECUTE, SID),
                      harness.XML_HEAD.decode() + "<re><ERROR>%s</ERROR></re>" % NO_REPLY),
    "form": form("/screens/cmnutil/execCommandPostReturnResult.xml",
                 {"cmd": "show hostname", "UIDQORIN": SID},
                 [harness.XML_HEAD.decode() + "<re><ERROR>%s</ERROR></re>" % NO_REPLY]),
    "configuration": screen("/v1/configuration/object/hostname?UIDQORIN=" + SID,
                            JSON_HEAD + re.escape('{"Error": "Invalid URL string"}'), JSON_HEAD),
    "role-policy": screen("/screens/cmnutil/getRolePolicy.xml",
                          r"(?s)%s<rawdata>\n.*</rawdata>\n?" % harness.XML_HEAD.decode()),
    "dashboard": screen(
        "/monitor-summary-data", r"(?s)%s<qorin><status>ok</status>\n.*</cli>\n(</qorin>\n)?" %
        harness.XML_HEAD.decode()),
    "search": screen(
        "/wlm-search?class=probes&name=ap&sort-criteria=name,asc",
        re.escape(document("Internal error")),
        r"%s<qorin>\n<status>OK</status>\n%s" % (harness.XML_HEAD.decode(),
                                               document("out of memory\n?")),
        r"%s<qorin>\n(<status>OK</status>\n){2}<start>0</start>\n<length>0</length>\n"
        r"<total>0</total>\n</qorin>\n" % harness.XML_HEAD.decode()),
    "save": multipart("/screens/wms/cr-save", ("operand", NEW), **replaces(REPORTS, NEW)),
    "upload": multipart("/screens/cmnutil/wms-os-upload.html", ("UIDQORIN", SID.encode()),
                        ("file", NEW * 20, "image.bin"),
                        also=[r"(?s)%s.*System has low free memory and/or low free disk space\..*" %
                              harness.XML_HEAD.decode()],
                        **replaces(harness.IMAGE, NEW * 20)),
    "login": log_in(),
    "logout": Request("/v1/api/logout", with_session(),
                      before=lambda number: harness.add_session(sid=SID),
                      after=lambda *_: harness.sql("DELETE FROM http_session"), side_by_side=1),
}


def run(request, number, onward):
    """One run in which the allocation of this number fails. (Was there one?, the answer)"""
    env = {**request.env, "LD_PRELOAD": str(LIBRARY), "WMS_FAIL_ALLOCATION": str(number)}
    if onward:
        env["WMS_FAIL_ONWARD"] = "1"
    request.before(number)
    done = subprocess.run([harness.PROGRAM], env=harness.cgi_variables(request.path, env),
                          input=request.body, capture_output=True, timeout=60, check=False)
    assert done.returncode == 0, (number, done)
    return b"allocation failed" in done.stderr, ANY_UUID.sub(b"UUID", done.stdout), done.stdout


def assert_well_formed(answer):
    """But for two: a search that breaks off and a dashboard without its database end early."""
    body = answer.partition(b"\r\n\r\n")[2]
    if answer.startswith(b"Content-Type: text/xml") and answer.count(b"Content-Type") == 1:
        ET.fromstring(body + (b"</qorin>" if body.endswith(b"</cli>\n") else b""))


def check(request, number, answer, raw, right):
    text = answer.decode("latin-1")
    assert right or any(re.fullmatch(pattern, text) for pattern in (*FOR_ALL, *request.also)), (
        number, text)
    assert_well_formed(answer)
    request.after(raw, right)


def files():
    return {path for folder in FOLDERS for path in folder.iterdir()} - {Path("/tmp/ooo"), REPORTS, harness.IMAGE}


@functools.cache
def first_allocation_of_a_request():
    """About the number of those before it is read: the same for all, and met by the first row."""
    low, high = 1, 4096
    while high - low > 1:
        middle = (low + high) // 2
        low, high = (middle, high) if run(REQUESTS["refusal"], middle, True)[0] else (low, middle)
    return max(1, low - 12)


def fail_each(request, first, onward, step):
    """Returns how many failed. The last run, in which none did, tells the right answer."""
    _, expected, raw = run(request, 0, onward)
    request.after(raw, True)
    number = first
    with ThreadPoolExecutor(request.side_by_side) as pool:
        while True:
            batch = range(number, number + BATCH * step, step)
            if request.side_by_side == 1:
                runs = (run(request, each, onward) for each in batch)
            else:
                runs = pool.map(lambda each: run(request, each, onward), batch)
            for failed, answer, raw in runs:
                check(request, number, answer, raw, answer == expected)
                if not failed:
                    assert answer == expected
                    return number - first
                number += step


@pytest.mark.parametrize("onward", [False, True], ids=["once", "onward"])
@pytest.mark.parametrize("name", REQUESTS)
def test_each_allocation_fails(name, onward):
    request = REQUESTS[name]
    if name == "setup-page":
        harness.FACTORY_DEFAULT.touch()
    if name not in ("login", "logout"):
        harness.add_session(sid=SID)
    left = files()
    first = 1 if name == "refusal" else first_allocation_of_a_request()
    assert fail_each(request, first, onward, 4 if onward else 1) >= 8
    assert files() == left
    assert harness.session_count() == (0 if name in ("login", "logout") else 1)

"""Runs the tables in cases/. A case tells one request and everything that may come of it.

The request:
  session   whose row is put into the table first: a name below, or the row; its cookie is sent
  path, query   $SID is the session's identifier, here and everywhere
  form      fields of a POST; or body_sent, for a POST of just that
  method, headers, cookie     as they go out
  plans     misbehaviour of the controller (see sim/faults.py)
  env, argv0   start the program by hand, with these variables ("absent": without) and this entry 0
The outcome:
  body, pattern   the whole body, or an expression for all of it
  reason    that of the generic error document;  error   the text of an ERROR reply
  refused   no permission, and the key that the log names (empty: whichever)
  token     the token was refused, and what the log says
  api       the text of a refusal by the JSON API
  status, type, cookies    200, text/xml and none unless given
  traffic   what the controller received, in order, the keys that matter ("~" opens an expression),
            or just how often it was asked; nothing unless given
  log       texts that lines of the error log contain; nothing is logged unless given
  login     a refused login's reason, and the user and the address that its line names; none unless given
  rows      sessions afterwards; as before unless given
A table "default" fills in what a case leaves out.
"""

import re
import tomllib
from pathlib import Path
from urllib.parse import urlencode

import pytest

import harness

PIN_COOKIE = "CPnextpin=; path=/; expires=Sat, 01-Jan-1970 00:00:00 GMT;"
API_REFUSAL = '{"_global_result": {"status":"1", "status_str": "Unauthorized request, %s"}}\r\n'

SESSIONS = {
    "none": None,
    "admin": {"user": "admin", "role": "root"},
    "standard": {"user": "standard", "role": "standard"},
    "reader": {"user": "reader", "role": "read-only"},
    "guest": {"user": "guest", "role": "guest-provisioning"},
}
KEYS = {
    "session", "path", "query", "form", "body_sent", "method", "headers", "cookie", "plans", "env",
    "argv0", "body", "pattern", "reason", "error", "refused", "token", "api", "status", "type",
    "cookies", "traffic", "log", "login", "rows",
}

# What a case may say of the answer: one of these, so that its own replaces the default's.
ANSWERS = {"body", "pattern", "reason", "error", "refused", "token", "api"}

BY_HAND = {"env", "argv0"}


def load_cases():
    for path in sorted(Path(__file__).with_name("cases").glob("*.toml")):
        cases = tomllib.loads(path.read_text(encoding="utf-8"))
        default = cases.pop("default", {})
        for name, case in cases.items():
            assert not set(case) - KEYS, (path, name, set(case) - KEYS)
            own = {key: value for key, value in default.items()
                   if key not in ANSWERS or not ANSWERS & set(case)}
            case = {**own, **case}
            yield pytest.param(case, id="%s: %s" % (path.stem, name),
                               marks=[pytest.mark.cgi] if BY_HAND & set(case) else [])


def fill(value, sid):
    if isinstance(value, str):
        return value.replace("$SID", sid)
    if isinstance(value, list):
        return [fill(item, sid) for item in value]
    if isinstance(value, dict):
        return {key: fill(item, sid) for key, item in value.items()}
    return value


def send(case, sid):
    posted = "form" in case or "body_sent" in case
    method = case.get("method", "POST" if posted else "GET")
    body = b""
    if method != "GET" and posted:
        body = case.get("body_sent", urlencode(case.get("form", {}))).encode()
    path = case.get("path", "/") + ("?" + case["query"] if "query" in case else "")
    if BY_HAND & set(case):
        return send_by_hand(case, sid, path, method, body)
    headers = harness.form_headers(case.get("headers")) if body else case.get("headers", {})
    cookie = case.get("cookie", "SESSION=" + sid if sid else None)
    if cookie is not None:
        headers = {**headers, "Cookie": cookie}
    return harness.http_request(path, method, body, headers)


def send_by_hand(case, sid, path, method, body):
    env = {"REQUEST_METHOD": method}
    if method == "POST":
        env.update(CONTENT_TYPE="application/x-www-form-urlencoded", CONTENT_LENGTH=str(len(body)))
    if sid:
        env["QORIN_AUTH_SESSION_ID"] = sid
    env.update(case.get("env", {}))
    env = {name: None if value == "absent" else value for name, value in env.items()}
    return harness.cgi_request(path, env, body, case.get("argv0", harness.PROGRAM))


def expand(case):
    """The outcome with its short forms written out."""
    outcome = {"status": 200, "type": "text/xml", "cookies": [], "traffic": [], "log": [], "login": []}
    if "refused" in case:
        case = {**case, "reason": harness.NO_PERMISSION}
        outcome["log"] = ["no permission to execute opcode/program " + case["refused"]]
    if "token" in case:
        case = {**case, "reason": "SID Validation failed"}
        outcome["log"] = case["token"] + ["SID Validation failed "]
    if "api" in case:
        outcome.update(status=401, type="application/json", body=API_REFUSAL % case["api"],
                       cookies=["=(null); path=/;secure=;", PIN_COOKIE])
    if "reason" in case:
        outcome["body"] = harness.ERROR_DOCUMENT % case["reason"]
    if "error" in case:
        outcome["body"] = "<re><ERROR>%s</ERROR></re>" % case["error"]
    return {**outcome, **case}


def check_traffic(want):
    seen = harness.traffic()
    if isinstance(want, int):
        want = [{"channel": "helper"}] * want
    assert len(seen) == len(want), seen
    for line, part in zip(seen, want):
        for key, value in part.items():
            if isinstance(value, str) and value.startswith("~"):
                assert re.fullmatch(value[1:], line[key]), line
            else:
                assert line[key] == value, line


def check(response, want):
    if "pattern" in want:
        assert re.fullmatch(want["pattern"], response.text, re.DOTALL), response.text
    else:
        assert response.text == want["body"]
    assert response.status == want["status"]
    assert response.header("Content-Type") == want["type"]
    assert response.cookies() == want["cookies"]
    check_traffic(want["traffic"])
    for text in want["log"]:
        harness.assert_logged(text)
    assert want["log"] or not harness.log_lines(), harness.log_lines()
    refused = harness.login_refused(*want["login"]) if want["login"] else None
    assert harness.logins_refused() == [refused] * bool(refused)


@pytest.mark.parametrize("case", load_cases())
def test_case(case):
    row = case.get("session")
    row = SESSIONS[row] if isinstance(row, str) else row
    sid = harness.add_session(**row) if row else ""
    case = fill(case, sid)
    for plan in case.get("plans", []):
        harness.plan(**plan)
    response = send(case, sid)
    check(response, expand(case))
    assert harness.session_count() == case.get("rows", 1 if sid else 0)

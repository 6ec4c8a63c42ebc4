"""Runs the tables in cases/. A case tells one request and everything that may come of it.

The request:
  session   a row to put into the table first (user, role, ip, sid); its cookie is sent
  path      with the query; $SID is the session's identifier, here and everywhere
  form      fields of a POST; or body_sent, for a POST of just that
  method, headers, cookie     as they go out
  plans     misbehaviour of the controller (see sim/faults.py)
  env, argv0   start the program by hand, with these variables and this entry 0
The outcome:
  body, pattern, reason, error, api   the whole body; an expression for all of it; the reason of the
            generic error document; the text of an ERROR reply; the text of a refusal of the JSON API
  status, type, cookies    200, text/xml and none unless given
  traffic   what the controller received, in order, the keys that matter; nothing unless given;
            "~" opens an expression
  log       texts that lines of the error log contain; nothing is logged unless given
  rows      sessions afterwards; as before unless given
"""

import re
import tomllib
from pathlib import Path
from urllib.parse import urlencode

import pytest

import harness

PIN_COOKIE = "CPnextpin=; path=/; expires=Sat, 01-Jan-1970 00:00:00 GMT;"
API_REFUSAL = '{"_global_result": {"status":"1", "status_str": "%s"}}\r\n'

REQUEST_KEYS = {"name", "session", "path", "form", "body_sent", "method", "headers", "cookie",
                "plans", "env", "argv0"}
OUTCOME_KEYS = {"body", "pattern", "reason", "error", "api", "status", "type", "cookies",
                "traffic", "log", "rows"}


def load_cases():
    for path in sorted(Path(__file__).with_name("cases").glob("*.toml")):
        for case in tomllib.loads(path.read_text(encoding="utf-8"))["case"]:
            unknown = set(case) - REQUEST_KEYS - OUTCOME_KEYS
            assert not unknown, (path, case["name"], unknown)
            yield pytest.param(case, id="%s: %s" % (path.stem, case["name"]))


def fill(value, sid):
    if isinstance(value, str):
        return value.replace("$SID", sid)
    if isinstance(value, list):
        return [fill(item, sid) for item in value]
    if isinstance(value, dict):
        return {key: fill(item, sid) for key, item in value.items()}
    return value


def body_of(case):
    if "form" in case:
        return urlencode(case["form"]).encode()
    return case.get("body_sent", "").encode("utf-8")


def send(case, sid):
    body = body_of(case)
    method = case.get("method", "POST" if "form" in case or "body_sent" in case else "GET")
    if "env" in case or "argv0" in case:
        return send_by_hand(case, sid, method, body)
    headers = harness.form_headers(case.get("headers")) if body else case.get("headers", {})
    cookie = case.get("cookie", "SESSION=" + sid if sid else None)
    if cookie is not None:
        headers = {**headers, "Cookie": cookie}
    return harness.http_request(case["path"], method, body, headers)


def send_by_hand(case, sid, method, body):
    env = {"REQUEST_METHOD": method}
    if method == "POST":
        env.update(CONTENT_TYPE="application/x-www-form-urlencoded", CONTENT_LENGTH=str(len(body)))
    if sid:
        env["QORIN_AUTH_SESSION_ID"] = sid
    env.update(case.get("env", {}))
    env = {name: None if value == "absent" else value for name, value in env.items()}
    return harness.cgi_request(case.get("path", "/"), env, body, case.get("argv0", harness.PROGRAM))


def expand(case):
    """The outcome with its short forms written out."""
    outcome = {"status": 200, "type": "text/xml", "cookies": [], "traffic": [], "log": []}
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
    if want["cookies"] != "any":
        assert response.cookies() == want["cookies"]
    check_traffic(want["traffic"])
    for text in want["log"]:
        harness.assert_logged(text)
    assert want["log"] or not harness.log_lines(), harness.log_lines()


@pytest.mark.parametrize("case", load_cases())
def test_case(case):
    sid = harness.add_session(**case["session"]) if "session" in case else ""
    case = fill(case, sid)
    for plan in case.get("plans", []):
        harness.plan(**plan)
    response = send(case, sid)
    check(response, expand(case))
    assert harness.session_count() == case.get("rows", 1 if sid else 0)

"""What a login leaves behind: the answer to the byte, the session's row, what the controller saw."""

import contextlib
import json
import re
from concurrent.futures import ThreadPoolExecutor
from urllib.parse import parse_qsl

import psycopg2
import pytest

import harness

LOGIN = "/v1/api/login"
PIN_COOKIE = "CPnextpin=; path=/; expires=Sat, 01-Jan-1970 00:00:00 GMT;"
UUID = "[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}"


def login(user="admin", password="wlan-Demo1"):
    return harness.post_form(LOGIN, {"username": user, "password": password})


def refused(text):
    return '{"_global_result": {"status":"1", "status_str": "%s"}}\r\n' % text


def rows():
    return harness.sql("SELECT sid, ip, _user, role, admin, path, "
                       "abs(extract(epoch FROM NOW() - created_time)) < 60, "
                       "modified_time = created_time FROM http_session")


def test_a_login_is_answered_recorded_and_usable():
    response = login()
    sid = json.loads(response.text)["_global_result"]["UIDQORIN"]
    assert re.fullmatch(UUID, sid)
    assert response.text == ('{"_global_result": {"status":"0", "status_str": "You\'ve logged in '
                             'successfully.", "UIDQORIN":"%s"}}\r\n' % sid)
    assert response.cookies() == ["SESSION=%s; path=/;secure=;" % sid, PIN_COOKIE]
    assert rows() == [[sid, "127.0.0.1", "admin", "root", "1", "/", "t", "t"]]
    assert harness.execute(sid).text == harness.SHOW_HOSTNAME
    auth, command = harness.traffic()
    assert (auth["user"], auth["ip"], auth["sid"]) == ("", "", "")
    assert auth["command"].startswith("wuic:auth?uid=admin&passwd=wlan%2DDemo1&srcip=127%2E0%2E0%2E1")
    assert [name for name, _ in parse_qsl(auth["command"].partition("?")[2])] == [
        "uid", "passwd", "srcip", "srcport", "dstip", "dstport"]
    assert (command["user"], command["ip"], command["sid"]) == ("admin", "127.0.0.1", sid)
    assert harness.http_request("/v1/api/logout", headers=harness.as_session(sid)).status == 200
    assert rows() == []
    assert harness.NO_PERMISSION in harness.execute(sid).text


def test_the_64th_session_is_the_last():
    harness.sql("INSERT INTO http_session SELECT 's' || n, '192.0.2.1', 'u', 'read-only', '', "
                "NOW(), NOW(), 1, '/' FROM generate_series(1, 63) n")
    assert login().status == 200
    response = login()
    assert (response.status, response.text) == (
        401, refused("Unauthorized request, session limit reached"))
    assert harness.session_count() == 64
    assert harness.logins_refused() == [harness.login_refused("session-limit")]
    harness.assert_logged("Reached session limit: 64")
    harness.assert_logged("WebUI session limit reached: 64. Can't create any more WebUI sessions.")


@pytest.mark.parametrize("level", ["read committed", "serializable"])
def test_of_many_logins_at_once_only_the_64th_is_the_last(level):
    """60 exist. The table is closed to changes until all of 32 more, or as many as there are workers, have
    counted or wait to; and whatever isolation the database gives by default, four of them come through."""
    at_once = harness.WORKERS or 32
    harness.sql("ALTER DATABASE wms SET default_transaction_isolation = '%s'" % level)
    harness.end_connections("wms")
    harness.sql("INSERT INTO http_session SELECT 's' || n, '192.0.2.1', 'u', 'read-only', '', "
                "NOW(), NOW(), 1, '/' FROM generate_series(1, 60) n")
    waiting = "SELECT COUNT(*) FROM pg_stat_activity WHERE datname = 'wms' AND wait_event_type = 'Lock'"
    try:
        with ThreadPoolExecutor(at_once) as pool, contextlib.closing(psycopg2.connect("dbname=wms")) as gate:
            gate.cursor().execute("LOCK TABLE http_session IN SHARE ROW EXCLUSIVE MODE")
            logins = [pool.submit(login) for _ in range(at_once)]
            harness.wait_until(lambda: harness.sql(waiting) == [[str(at_once)]], "logins that wait")
            gate.commit()
            answers = [one.result() for one in logins]
    finally:
        harness.sql("ALTER DATABASE wms RESET default_transaction_isolation")
        harness.end_connections("wms")
    assert sorted(answer.status for answer in answers) == [200] * 4 + [401] * (at_once - 4)
    assert {answer.text for answer in answers if answer.status == 401} == {
        refused("Unauthorized request, session limit reached")}
    sids = {json.loads(answer.text)["_global_result"].get("UIDQORIN") for answer in answers}
    assert harness.session_count() == 64
    assert {row[0] for row in rows() if row[2] == "admin"} == sids - {None}


def test_a_session_that_cannot_be_stored_is_no_login():
    harness.sql("ALTER TABLE http_session ADD CONSTRAINT nobody CHECK (_user = '')")
    try:
        response = login()
    finally:
        harness.sql("ALTER TABLE http_session DROP CONSTRAINT nobody")
    assert (response.status, response.text) == (
        401, refused("Unauthorized request, can't update session"))
    assert harness.logins_refused() == [harness.login_refused("not-stored")]
    for text in ("session: ", "session (main): "):
        pattern = re.escape("Can't update a new " + text) + r"[0-9a-f]{8}\.\.\., ERROR: .*\"nobody\""
        assert any(re.search(pattern, line) for line in harness.log_lines()), pattern
    assert not any(re.search(UUID, line) for line in harness.log_lines())  # in the reason neither


def test_the_log_tells_why_a_login_was_refused():
    with harness.helper_moved_aside():
        assert login().text == refused("Unauthorized request, authentication failed")
    assert login(password="x").status == 401
    harness.log_settled()
    # Lines that follow carry the program's own name again, over the same connection.
    assert harness.execute("nobody").status == 200
    assert [line.split("[")[0].split()[-1] for line in harness.log_lines()] == ["httpd"]
    harness.FACTORY_DEFAULT.touch()
    setup = harness.post_form("/screens/cmnutil/setupdata.xml", {"opcode": LOGIN, "username": "admin"})
    assert setup.status == 401
    assert harness.logins_refused() == [
        harness.login_refused(reason) for reason in ("service-silent", "wrong-password", "other-path")]

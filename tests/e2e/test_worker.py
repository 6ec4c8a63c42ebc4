"""Warm workers, asked directly: what one serves is what a fresh process serves, nothing of a request
or of the worker itself is seen by the next one, and databases, signals and peers may come and go."""

import contextlib
import difflib
import functools
import os
import re
import signal
import socket
import subprocess
from pathlib import Path

import pytest

import fcgi
import harness
import running
import test_access
from harness import WHOLE_TABLES

SOCKET = "/run/wms/worker.sock"
HOSTNAME = harness.XML_HEAD + harness.SHOW_HOSTNAME.encode()
REFUSED = harness.XML_HEAD + (harness.ERROR_DOCUMENT % harness.NO_PERMISSION).encode()
PASSING = [(pattern.encode(), b"$PASSING") for pattern in (
    r"[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}", r"\w{3}, \d\d \w{3} \d{4} \d\d:\d\d:\d\d GMT",
    r"\d{4}-\d\d-\d\d", r"\d\d:\d\d:\d\d(\.\d+)?", r"\b1\d{9}\b", r"/tmp/cli-\w{6}")]

workers = functools.partial(fcgi.Workers, SOCKET)


def command(sid):
    """URL and variables of a command in a session."""
    return "%s?show%%20hostname&UIDQORIN=%s" % (harness.EXECUTE, sid), {"QORIN_AUTH_SESSION_ID": sid}


def cgi_output(url="/", env=None, stdin=b""):
    return subprocess.run([harness.PROGRAM], env=harness.cgi_variables(url, env), input=stdin,
                          capture_output=True, timeout=60, check=True).stdout


# Every endpoint


class Case(test_access.Case):
    sid = property(lambda case: "" if case.who == "nobody" else case.who)


def make_sessions():
    """One for each role: logins have room."""
    harness.sql("DELETE FROM http_session; INSERT INTO http_session SELECT role, '192.0.2.9', 'u', role, "
                "'', NOW(), NOW(), 1, '/' FROM unnest('{%s}'::text[]) role"
                % ",".join(test_access.ROLES))


def endpoint_requests():
    """Each row of the table twice, for two roles and by two methods, with its token; the first is
    admitted."""
    roles = test_access.ROLES + ["nobody"]
    for row in range(len(test_access.ROWS)):
        yield Case(row, "root", "POST" if row % 2 else "GET", False, "right")
        yield Case(row, roles[row % len(roles)], "GET" if row % 2 else "POST", False, "right")


def as_variables(case):
    url, body, headers = test_access.target_and_body(case)
    return url, {"REQUEST_METHOD": case.method, "CONTENT_TYPE": headers.get("Content-Type"),
                 "CONTENT_LENGTH": str(len(body)) if body else None,
                 "QORIN_AUTH_SESSION_ID": case.sid or None}, body


def outputs(cases, ask):
    """By case; every run begins with the same sessions and files."""
    harness.clean_state()
    found = {}
    make_sessions()
    for case in cases:
        output = ask(*as_variables(case))
        for pattern, mark in PASSING:
            output = re.sub(pattern, mark, output)
        found[case] = output
        for path in harness.LEFTOVERS:  # what one stores the next one shows
            path.unlink(missing_ok=True)
        if "logout" in case.name:
            make_sessions()
    return found


def differences(case, right, served):
    """The lines in which two outputs differ."""
    if right == served:
        return []
    return [case.name, case.method] + [line for line in difflib.ndiff(
        right.decode("latin-1").splitlines(), served.decode("latin-1").splitlines())
        if not line.startswith(" ")]


def test_a_worker_answers_as_fresh_processes_do_whatever_came_before():
    """Every row is asked for, since a worker of a test build ends when one leaves anything behind."""
    cases = list(endpoint_requests())
    compared = [case for case in cases if WHOLE_TABLES or case.row % 7 == 0]
    fresh = outputs(compared, cgi_output)
    with workers() as warm:
        for order in (cases, compared[::-1]):
            served = outputs(order, warm.output)
            assert [difference for case in compared
                    for difference in differences(case, fresh[case], served[case])] == []
        assert warm.ended == []


# What a worker is, and what it is not


def test_nothing_of_the_workers_own_environment_is_a_variable_of_a_request(admin):
    url, env = command(admin)
    own = {**env, "REQUEST_METHOD": "POST", "CONTENT_LENGTH": "5", "QUERY_STRING": url.partition("?")[2]}
    with workers(**own) as warm:
        assert warm.output(url) == REFUSED
        assert warm.output(url, {"QORIN_AUTH_SESSION_ID": admin}) == HOSTNAME
        assert warm.output(url, {**env, "QUERY_STRING": None}) != HOSTNAME
        assert warm.output(url, {**env, "REQUEST_METHOD": None}) == cgi_output(
            url, {**env, "REQUEST_METHOD": None})


def test_an_argument_does_not_keep_it_from_serving(admin):
    with workers(arguments=["wuic", "softwareVersion"]) as warm:
        assert warm.output(*command(admin)) == HOSTNAME


def run_on_socket(variables, is_listening=True):
    """The program with a socket that nobody knows as its standard input."""
    with socket.socket(socket.AF_UNIX) as given:
        given.bind(SOCKET)
        os.unlink(SOCKET)
        if is_listening:
            given.listen()
        return subprocess.run([harness.PROGRAM], env=variables, stdin=given, capture_output=True,
                              timeout=60, check=False)


@pytest.mark.parametrize("listening, gateway", [(True, "CGI/1.1"), (False, "CGI/1.1"), (False, None)])
def test_a_process_that_is_no_worker_answers_on_its_standard_output(admin, listening, gateway):
    url, env = command(admin)
    done = run_on_socket(harness.cgi_variables(url, {**env, "GATEWAY_INTERFACE": gateway}), listening)
    assert (done.returncode, done.stdout) == (0, HOSTNAME)


def test_a_tcp_socket_is_not_served():
    with socket.create_server(("127.0.0.1", 0)) as given:
        done = subprocess.run([harness.PROGRAM], env={}, stdin=given, capture_output=True, timeout=60,
                              check=False)
    assert (done.returncode, done.stdout) == (1, b"") and b"UNIX" in done.stderr, done


@pytest.mark.parametrize("count", ["", "0", "-1", "1000001", "3x", " 3", "+3", "99999999999"])
def test_another_number_of_requests_is_refused(count):
    done = run_on_socket({"WMS_WORKER_REQUESTS": count})
    assert (done.returncode, done.stdout, done.stderr.count(b"\n")) == (1, b"", 1), done
    assert b"WMS_WORKER_REQUESTS" in done.stderr


def test_a_cgi_program_loads_the_database_library_and_what_the_c_library_brings():
    listed = subprocess.run(["readelf", "-d", harness.PROGRAM], capture_output=True, text=True,
                            check=True).stdout
    needed = re.findall(r"NEEDED.*\[(.*)\]", listed)
    if os.environ.get("WMS_PRESET") == "release":
        assert [name for name in needed if not name.startswith(("libc.", "ld-linux"))] == ["libpq.so.5"]
    assert "libpq.so.5" in needed and not any("fcgi" in name for name in needed)


# Coming and going


@pytest.mark.parametrize("limit", [1, 3])
def test_a_worker_retires_after_so_many_requests(limit):
    """That none is lost meanwhile is tested through the HTTP server."""
    with workers(requests=limit) as warm:
        for _ in range(4 * limit):
            warm.output()
        harness.wait_until(lambda: len(warm.ended) >= 4, "workers that retire")
        assert len(warm.ended) == 4


@contextlib.contextmanager
def held(warm, admin, stdin=b"", **plan):
    """A request that the helper has taken and does not answer before "release"."""
    harness.plan(hold=True, **plan)
    connection = warm.begin(*command(admin), stdin=stdin)
    harness.wait_until(lambda: harness.order("pending")["pending"] == 0, "the command")
    yield connection
    harness.order("release")


def test_a_worker_that_is_told_to_end_finishes_its_request(admin):
    with workers() as warm:
        first = warm.running[0]
        with held(warm, admin) as connection:
            first.send_signal(signal.SIGTERM)
            waiting = warm.begin(*command(admin))
        assert connection.output() == HOSTNAME
        assert waiting.output() == HOSTNAME
        assert warm.running[0].pid != first.pid


def waits_for_connection(process):
    """Whether it waits in a call for its listening socket; None when it waits for nothing."""
    call = Path("/proc/%d/syscall" % process.pid).read_text().split()
    return call[1] == "0x0" if len(call) > 1 else None


def test_a_worker_that_is_told_to_end_before_the_first_byte_serves_what_follows(admin):
    with workers() as warm:
        first = warm.running[0]
        harness.wait_until(lambda: waits_for_connection(first), "the worker's readiness")
        connection = fcgi.Connection(SOCKET)
        harness.wait_until(lambda: waits_for_connection(first) is False, "the connection's acceptance")
        first.send_signal(signal.SIGTERM)
        assert connection.send(*command(admin)).output() == HOSTNAME
        harness.wait_until(lambda: warm.ended == [(0, b"")], "its end")


def test_the_answer_does_not_wait_for_the_requests_end(admin):
    url, env = command(admin)
    with workers() as warm:
        connection = fcgi.Connection(SOCKET)
        connection.send(url, env, ended=False)
        assert connection.output() == HOSTNAME
        assert warm.output(url, env) == HOSTNAME
        assert warm.ended == []


def test_bytes_of_the_request_that_nobody_read_do_not_end_it(admin):
    with workers() as warm:
        with held(warm, admin, stdin=b"x" * 20000) as connection:
            connection.socket.shutdown(socket.SHUT_WR)
        assert connection.output() == HOSTNAME
        assert warm.ended == []


# Databases


def test_databases_may_restart_and_be_down_at_the_start(admin):
    with contextlib.ExitStack() as later, workers() as warm:
        assert warm.output(*command(admin)) == HOSTNAME
        with running.POSTGRES.stopped():
            starts_down = later.enter_context(fcgi.Workers(SOCKET + "2"))
            for one in (warm, starts_down, warm):
                page = harness.response_of(one.output(*command(admin)))
                assert re.fullmatch(harness.ERROR_DOCUMENT % "can't connect to db: .*", page.text, re.DOTALL)
            harness.assert_logged("can't connect to WMS db: ")
        for one in (warm, starts_down, warm):
            assert one.output(*command(admin)) == HOSTNAME
            assert one.ended == []


def end_blocked_backends():
    """Ends what waits for a lock; true when there was such a backend."""
    return harness.sql("SELECT pg_terminate_backend(pid) FROM pg_stat_activity "
                       "WHERE wait_event_type = 'Lock' AND usename = 'root'", "postgres") != []


@contextlib.contextmanager
def table_locked(mode="ACCESS EXCLUSIVE"):
    """Nobody can look a session up, or in mode SHARE make one, until the block ends."""
    with subprocess.Popen(["psql", "-Xq", "wms"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                          text=True) as psql:
        psql.stdin.write("BEGIN; LOCK TABLE http_session IN %s MODE;\n\\echo locked\n" % mode)
        psql.stdin.flush()
        assert psql.stdout.readline() == "locked\n"
        yield
        psql.stdin.close()


@pytest.mark.parametrize("losses, expected", [(1, HOSTNAME), (2, REFUSED)])
def test_a_session_query_that_is_lost_is_repeated_once(admin, losses, expected):
    with workers() as warm:
        warm.output(*command(admin))
        with table_locked():
            connection = warm.begin(*command(admin))
            for _ in range(losses):
                harness.wait_until(end_blocked_backends, "the query")
        assert connection.output() == expected
        assert warm.output(*command(admin)) == HOSTNAME
        assert warm.ended == []


def test_a_lost_connection_is_renewed_before_the_request(admin):
    """Without a line in the log."""
    with workers() as warm:
        for _ in range(3):
            assert warm.output(*command(admin)) == HOSTNAME
            backends = [Path("/proc", pid) for pid, _ in harness.sql(
                "SELECT pid, pg_terminate_backend(pid) FROM pg_stat_activity "
                "WHERE usename = 'root' AND pid <> pg_backend_pid()", "postgres")]
            assert len(backends) == 4
            harness.wait_until(lambda: not any(map(Path.exists, backends)), "the backends' end")
        assert warm.ended == []
    assert harness.log_lines() == []

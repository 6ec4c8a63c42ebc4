"""Clients that leave before they have their answer: the worker ends their requests, begins nothing more for
them, and serves on."""

import fcntl
import itertools
import os
import select
from pathlib import Path

import pytest

import fcgi
import harness
import kinds
import running
import test_access
import test_worker
from harness import WHOLE_TABLES
from test_worker import HOSTNAME, command, held, table_locked, waits_for_connection, workers

LOGIN = b"username=admin&password=wlan-Demo1"
AS_LOGIN = {"REQUEST_METHOD": "POST", "CONTENT_TYPE": "application/x-www-form-urlencoded",
            "CONTENT_LENGTH": str(len(LOGIN))}
PORTS = "/screens/cmnutil/execMultipleCommands.xml?f1/0,g1/1;?shutdown;no%20shutdown"
LEFT = "The client has left"
CHANNELS = ("helper", "fast")
ABANDONED_AT_LEAST = 200


def commands_received():
    return [exchange["command"] for exchange in harness.traffic()]


def test_the_rest_of_a_list_is_not_sent(admin):
    Path("/tmp/http_log_level").write_text("web 7\n")
    url = "/screens/cmnutil/execCommandsReturnResult.xml?show%20clock,show%20hostname,show%20version"
    with workers() as warm:
        harness.plan(hold=True)
        with warm.begin("%s&UIDQORIN=%s" % (url, admin), {"QORIN_AUTH_SESSION_ID": admin}).socket:
            harness.simctl.order(harness.CONTROL, "wait-held")
        assert warm.output(*command(admin)) == HOSTNAME
        assert commands_received() == ["show clock", "show hostname"]
        assert [LEFT in line for line in harness.log_lines(7)].count(True) == 1
        assert (harness.log_lines(), warm.ended) == ([], [])
        harness.order("release")


def test_who_has_left_before_the_request_is_read_asks_for_nothing(admin):
    with workers() as warm:
        with held(warm, admin) as connection:
            for _ in range(100):
                warm.begin("/v1/api/login", AS_LOGIN, LOGIN).close()
        assert connection.output() == HOSTNAME
        assert warm.output(*command(admin)) == HOSTNAME
        assert commands_received() == ["show hostname"] * 2
        assert (harness.session_count(), warm.ended) == (1, [])


@pytest.mark.parametrize("mode", ["ACCESS EXCLUSIVE", "SHARE"])
def test_a_session_is_not_made_for_who_has_left_meanwhile(admin, mode):
    """Before the sessions are counted, or before one is written. The transaction is ended, and the next login
    waits for nothing."""
    waiting = "SELECT 1 FROM pg_stat_activity WHERE wait_event_type = 'Lock' AND usename = 'root'"
    with workers() as warm:
        with table_locked(mode):
            with warm.begin("/v1/api/login", AS_LOGIN, LOGIN).socket:
                harness.wait_until(lambda: harness.sql(waiting, "postgres"), "the query")
        assert b"200 OK" in warm.output("/v1/api/login", AS_LOGIN, LOGIN)
        assert (harness.session_count(), warm.ended) == (2, [])
        assert harness.logins_refused() == []  # it was cut short


def test_an_upload_whose_client_leaves_in_its_middle_or_before_its_turn_is_forgotten(admin):
    path, method, body, headers = kinds.request("upload", admin)
    env = {"REQUEST_METHOD": method, "CONTENT_TYPE": headers["Content-Type"],
           "CONTENT_LENGTH": str(len(body)), "QORIN_AUTH_SESSION_ID": admin}
    with workers() as warm:
        assert b"not implemented" in warm.output(path, env, body)
        harness.IMAGE.write_bytes(b"earlier")
        warm.begin(path, env, body[:len(body) // 2]).close()
        assert warm.output(*command(admin)) == HOSTNAME
        with open("/run/wms-upload.lock", "rb") as turn:
            fcntl.flock(turn, fcntl.LOCK_EX)
            with warm.begin(path, env, body).socket:
                harness.wait_until(lambda: "-> FLOCK" in Path("/proc/locks").read_text(), "the wait for its turn")
        assert warm.output(*command(admin)) == HOSTNAME
        assert harness.IMAGE.read_bytes() == b"earlier" and warm.ended == []
        assert not any(path.exists() for path in harness.UPLOADING)


# Every endpoint at each of its waits


def every_request():
    """Of a session that is there: URL, variables and body. A logout would end it, and asks nobody."""
    for row, method in itertools.product(range(len(test_access.ROWS)), ("GET", "POST")):
        case = test_worker.Case(row, "root", method, False, "right")
        if "logout" not in case.name:
            yield test_worker.as_variables(case)
    yield "/v1/api/login", AS_LOGIN, LOGIN
    yield PORTS + "&UIDQORIN=root", {"QORIN_AUTH_SESSION_ID": "root"}, b""


def is_answered(connection):
    return bool(select.select([connection.socket], [], [], 0)[0])


def is_taken():
    return harness.order("pending")["pending"] == 0


def leave_at(warm, request, channel, number):
    """Leaves while the service of the channel keeps the request's message of that number; false when it
    sends fewer."""
    if number:
        harness.plan(channel=channel, times=number)
    harness.plan(channel=channel, hold=True)
    connection = warm.begin(*request)
    harness.wait_until(lambda: is_answered(connection) or is_taken(), "the message or the answer")
    left = is_taken()
    connection.close()
    # The service keeps silent, and the worker serves all the same.
    assert warm.output() != b""
    harness.order("release" if left else "reset")
    return left


def leave_at_each_wait(warm, request):
    return sum(next(number for number in itertools.count() if not leave_at(warm, request, channel, number))
               for channel in CHANNELS)


def holdings(process):
    """What a worker that serves nothing holds, of the system and for itself."""
    folder = Path("/proc/%d" % process.pid)
    children = [pid for pid, other in running.processes().items() if other.parent == process.pid]
    return len(os.listdir(folder / "fd")), children, running.files()


def memory(process):
    """In KiB; the sanitizers keep what was freed, and look for leaks themselves."""
    lines = dict(line.split(":") for line in Path("/proc/%d/status" % process.pid).read_text().splitlines())
    return int(lines["VmData"].split()[0]) if WHOLE_TABLES else 0


def test_a_worker_is_as_before_whatever_request_was_abandoned_at_whatever_wait(admin):
    test_worker.make_sessions()
    admin = harness.add_session()
    with workers(requests=100000) as warm:
        process = warm.running[0]
        asking = [request for request in every_request() if leave_at_each_wait(warm, request)]
        assert len(asking) > 20
        assert warm.output(*command(admin)) == HOSTNAME
        before, used = holdings(process), memory(process)
        abandoned = 0
        while abandoned < ABANDONED_AT_LEAST:
            test_worker.make_sessions()
            abandoned += sum(leave_at_each_wait(warm, request) for request in asking)
        admin = harness.add_session()
        assert warm.output(*command(admin)) == HOSTNAME
        assert (holdings(process), warm.ended) == (before, [])
        assert memory(process) - used <= 256
        harness.wait_until(lambda: waits_for_connection(process), "the worker's rest")

"""How requests reach the warm workers through the HTTP server, and how workers come and go."""

import contextlib
import grp
import os
import signal
import stat
import subprocess
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import pytest

import harness
from running import processes

pytestmark = pytest.mark.warm
SOCKET = Path("/run/wms-workers/fastcgi.sock")
CLIENTS, REQUESTS = 8, 2000


def pids(name):
    return {pid for pid, process in processes().items() if process.name == name}


def workers():
    return pids("wms.cgi")


def all_there():
    return len(workers()) == harness.WORKERS


def replace_workers(number, environment=None):
    """Ends their manager by a signal and starts another one, with a new socket at the same place."""
    manager = pids("multiwatch").pop()
    os.kill(manager, number)
    harness.wait_until(lambda: manager not in processes() and not workers(), "the end of all workers")
    subprocess.Popen([harness.CHECKOUT / "scripts/workers.sh", str(harness.WORKERS)], start_new_session=True,
                     env={**os.environ, **(environment or {})}, stdin=subprocess.DEVNULL)
    harness.wait_until(all_there, "all workers")


@pytest.fixture
def retiring(request):
    replace_workers(signal.SIGTERM, {"WMS_WORKER_REQUESTS": str(request.param)})
    yield request.param
    replace_workers(signal.SIGKILL)  # they end with their manager however it ends


def login():
    return harness.post_form("/v1/api/login", {"username": "admin", "password": "wlan-Demo1"})


def ask(connection, sid, number=0):
    connection.request("GET", "%s?ping%%20%d&UIDQORIN=%s" % (harness.EXECUTE, number, sid),
                       headers=harness.as_session(sid))


def ask_in_turn(sid, numbers):
    """Over one connection: for each number, whether its own answer came."""
    with contextlib.closing(harness.connect()) as connection:
        for number in numbers:
            ask(connection, sid, number)
            reply = connection.getresponse()
            yield reply.status == 200 and b'"Target">%d<' % number in reply.read()


def opened_connections():
    return int(harness.sql("SELECT sessions FROM pg_stat_database WHERE datname = 'gapdb'")[0][0])


@pytest.mark.parametrize("retiring", [1, 3], indirect=True)
def test_no_request_is_lost_when_workers_retire(admin, retiring):
    before = opened_connections()
    with ThreadPoolExecutor(CLIENTS) as pool:
        shares = [range(client, REQUESTS, CLIENTS) for client in range(CLIENTS)]
        answers = sum(pool.map(lambda share: list(ask_in_turn(admin, share)), shares), [])
    assert (len(answers), answers.count(False)) == (REQUESTS, 0)
    harness.wait_until(lambda: opened_connections() - before >= REQUESTS // retiring - harness.WORKERS,
                       "as many workers as that takes")


@contextlib.contextmanager
def all_held(sid):
    """The connections of clients, one to each worker, whose commands the helper keeps."""
    harness.plan(hold=True, times=harness.WORKERS)
    with contextlib.ExitStack() as stack:
        held = [stack.enter_context(contextlib.closing(harness.connect())) for _ in range(harness.WORKERS)]
        for connection in held:
            ask(connection, sid)
        harness.simctl.order(harness.CONTROL, "wait-held", count=harness.WORKERS)
        yield held
    harness.order("release")


def test_workers_that_a_silent_helper_holds_are_free_when_their_clients_are_gone(admin):
    before = workers()
    with all_held(admin) as held:
        for connection in held:
            connection.close()
        assert login().status == 200
        harness.wait_until(lambda: all_there() and before.isdisjoint(workers()), "new workers")


def test_a_request_waits_while_all_workers_are_held(admin):
    with all_held(admin) as held, ThreadPoolExecutor(CLIENTS) as pool:
        waiting = [pool.submit(login) for _ in range(CLIENTS)]
        harness.order("release")
        assert [one.result().status for one in waiting] == [200] * CLIENTS
        assert [connection.getresponse().status for connection in held] == [200] * harness.WORKERS


def test_the_place_of_a_killed_worker_is_taken_anew(admin):
    """Those that serve cost their own requests alone; idle ones cost none."""
    with all_held(admin) as held:
        for pid in workers():
            os.kill(pid, signal.SIGKILL)
        assert login().status == 200
        assert {connection.getresponse().status for connection in held} == {502}
    harness.wait_until(all_there, "all workers")
    for pid in workers():
        os.kill(pid, signal.SIGKILL)
    assert login().status == 200
    harness.wait_until(all_there, "all workers")


def test_slow_clients_hold_no_worker():
    with contextlib.ExitStack() as stack:
        for _ in range(2 * harness.WORKERS):
            slow = stack.enter_context(contextlib.closing(harness.connect()))
            slow.putrequest("POST", "/v1/api/login")
            slow.putheader("Content-Length", "1000")
            slow.endheaders(b"username=")
        assert login().status == 200


@pytest.mark.parametrize("path, mode", [(SOCKET.parent, "drwxr-x---"), (SOCKET, "srw-rw----")])
def test_only_the_http_server_reaches_the_workers(path, mode):
    facts = path.stat()
    assert (stat.filemode(facts.st_mode), facts.st_uid, grp.getgrgid(facts.st_gid).gr_name) == (mode, 0, "www-data")


@pytest.mark.parametrize("method, path, status", [
    ("TRACE", "/", 405), ("GET", "/a%00b", 400), ("GET", "/?" + "a" * 30000, 414), ("GET", "/?" + "a" * 28000, 200),
], ids=["trace", "zero byte", "too long", "longest"])
def test_what_the_server_refuses_itself_and_what_fits(method, path, status):
    """The query is handed on twice, and the cookie's value with it."""
    response = harness.http_request(path, method, headers={"Cookie": "SESSION=" + "a" * 20000})
    assert response.status == status

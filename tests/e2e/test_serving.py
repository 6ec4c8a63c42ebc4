"""How requests reach the warm workers through the HTTP server, and how workers come and go."""

import contextlib
import os
import signal
import subprocess
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import pytest

import harness
from running import processes

pytestmark = pytest.mark.warm
CLIENTS, REQUESTS = 8, 2000


def workers(name="wms.cgi"):
    return {pid for pid, process in processes().items() if process.name == name}


def await_workers():
    harness.wait_until(lambda: len(workers()) == harness.WORKERS, "all workers")


def kill_all():
    killed = workers()
    for pid in killed:
        os.kill(pid, signal.SIGKILL)
    harness.wait_until(lambda: killed.isdisjoint(workers()), "the end of those workers")


def replace_workers(number, environment=None):
    """Ends their manager by a signal and starts another one, with a new socket at the same place."""
    manager = min(workers("multiwatch"))  # not one that it is about to start
    os.kill(manager, number)
    harness.wait_until(lambda: manager not in processes() and not workers(), "the end of all workers")
    subprocess.Popen([harness.CHECKOUT / "scripts/workers.sh", str(harness.WORKERS)], start_new_session=True,
                     env={**os.environ, **(environment or {})}, stdin=subprocess.DEVNULL)
    await_workers()


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


@pytest.mark.parametrize("retiring", [1, 3], indirect=True)
def test_no_request_is_lost_when_workers_retire(admin, retiring):
    sessions = "SELECT sessions FROM pg_stat_database WHERE datname = 'gapdb'"
    before = int(harness.sql(sessions)[0][0])
    with ThreadPoolExecutor(CLIENTS) as pool:
        shares = [range(client, REQUESTS, CLIENTS) for client in range(CLIENTS)]
        answers = sum(pool.map(lambda share: list(ask_in_turn(admin, share)), shares), [])
    assert (len(answers), answers.count(False)) == (REQUESTS, 0)
    started = REQUESTS // retiring - harness.WORKERS
    harness.wait_until(lambda: int(harness.sql(sessions)[0][0]) - before >= started, "as many workers as that takes")


def connect_all(stack, number):
    return [stack.enter_context(contextlib.closing(harness.connect())) for _ in range(number)]


@contextlib.contextmanager
def all_held(sid):
    """The connections of clients, one to each worker, whose commands the helper keeps."""
    await_workers()
    harness.plan(hold=True, times=harness.WORKERS)
    with contextlib.ExitStack() as stack:
        held = connect_all(stack, harness.WORKERS)
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
    assert before == workers()


def test_a_request_waits_while_all_workers_are_held(admin):
    with all_held(admin) as held, ThreadPoolExecutor(CLIENTS) as pool:
        waiting = [pool.submit(login) for _ in range(CLIENTS)]
        harness.order("release")
        assert [one.result().status for one in waiting] == [200] * CLIENTS
        assert [connection.getresponse().status for connection in held] == [200] * harness.WORKERS


def test_the_place_of_a_killed_worker_is_taken_anew(admin):
    """Those that serve cost their own requests alone; idle ones cost none."""
    with all_held(admin) as held:
        kill_all()
        assert login().status == 200
        assert {connection.getresponse().status for connection in held} == {502}
    kill_all()
    assert login().status == 200


def test_slow_clients_hold_no_worker():
    """Another one's login comes between the two halves of theirs."""
    with contextlib.ExitStack() as stack:
        slow = connect_all(stack, 2 * harness.WORKERS)
        for client in slow:
            client.putrequest("POST", "/v1/api/login")
            client.putheader("Content-Length", "20")
            client.endheaders(b"username=")
        assert login().status == 200
        for client in slow:
            client.send(b"&password=x")
        assert {client.getresponse().status for client in slow} == {401}


@pytest.mark.parametrize("name, mode", [("", 0o40750), ("fastcgi.sock", 0o140660)])
def test_only_the_http_server_reaches_the_workers(name, mode):
    path = Path("/run/wms-workers") / name
    assert (path.stat().st_mode, path.owner(), path.group()) == (mode, "root", "www-data")


@pytest.mark.parametrize("method, path, status", [
    ("TRACE", "/", 405), ("GET", "/a%00b", 400), ("GET", "/?" + "a" * 30000, 414), ("GET", "/?" + "a" * 28000, 200),
], ids=["trace", "zero byte", "too long", "longest"])
def test_what_the_server_refuses_itself_and_what_fits(method, path, status):
    response = harness.http_request(path, method, headers={"Cookie": "SESSION=" + "a" * 20000})
    assert response.status == status

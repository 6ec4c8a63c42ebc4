"""One fault at a time, and what each kind of handler makes of it: the whole answer and the lines in
the log. Nothing is left behind, and the next request is answered as if nothing had been."""

import contextlib
import re
import signal
import socket
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import psycopg2
import pytest

import harness
import running
from harness import WHOLE_TABLES, literal, sql
from kinds import (ASK_THE_HELPER, HANDLERS, LOGGED_OUT, NO_PERMISSION, NOT_STORED, ask, ask_all, by_hand,
                   chosen, error, plain, request, settled, with_reply, without_reply)

ESSID = "show ap essid"
LAST_COMMAND = "show wms monitor-summary"
GRANT = "role=root&path=/"


@pytest.fixture(scope="module", autouse=True)
def access_point():
    sql("INSERT INTO global_ap_table (wired_mac, name, cpsec_denied) VALUES ('00:00:5e', 'lobby', '1')",
        "gapdb")
    yield
    sql("TRUNCATE global_ap_table", "gapdb")


@pytest.fixture(autouse=True)
def traceless(fresh):
    with running.nothing_left_behind():
        yield


@pytest.fixture(scope="module")
def undisturbed():
    """What handlers answer when all is well, as far as they have been asked."""
    return {}


@pytest.fixture
def as_ever(admin, undisturbed):
    """Learns before the fault what these handlers answer, and sees after it that they do so again."""
    asked = set()

    def learn(handlers):
        asked.update(handlers)
        undisturbed.update(ask_all(asked - set(undisturbed), harness.add_session()))
        sql("DELETE FROM http_session WHERE sid <> " + literal(admin))
        return {handler: undisturbed[handler] for handler in handlers}

    yield learn
    sql("DELETE FROM http_session")
    sid = harness.add_session()
    assert ask_all(asked, sid) == {handler: undisturbed[handler] for handler in asked}
    assert harness.session_count() == ("logout" not in asked)


# The CLI helper.

READ = "Failed to read socket: Success"


@contextlib.contextmanager
def deaf_helper():
    with harness.helper_moved_aside(), socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as server:
        server.bind(str(harness.HELPER_SOCKET))
        yield


UNREACHABLE = {
    "no helper": (harness.helper_moved_aside, "Failed to connect socket: No such file or directory"),
    "a helper that does not listen": (deaf_helper, "Failed to connect socket: Connection refused"),
}


@pytest.mark.parametrize("fault", UNREACHABLE)
def test_unreachable(admin, as_ever, fault):
    answers = as_ever(chosen(HANDLERS))
    world, message = UNREACHABLE[fault]
    with world():
        assert ask_all(answers, admin) == {
            handler: without_reply(handler, message, answer) for handler, answer in answers.items()}


def assert_without_reply(handler, seen, message, answer, only=None):
    """As without_reply, of which the message is a pattern."""
    wanted = without_reply(handler, "\0", answer, only)
    assert seen[:2] == wanted[:2]
    assert re.fullmatch(re.escape(wanted[2]).replace("\0", message), seen[2]), seen


@pytest.mark.parametrize("handler", chosen(ASK_THE_HELPER))
def test_a_helper_that_is_silent_and_is_then_killed(admin, as_ever, handler):
    answer = as_ever([handler])[handler]
    harness.plan(silent=True)
    with ThreadPoolExecutor(1) as pool:
        asked = pool.submit(ask, handler, admin)
        harness.order("wait-held")
        with running.CONTROLLER.stopped(signal.SIGKILL):
            # The other commands of the dashboard are sent, half sent, or find nobody.
            message = "Failed to (connect|read|write) socket: .*" if handler == "dashboard" else READ
            assert_without_reply(handler, asked.result(), message, answer)


# What is wrong with one reply, by its true length; what its caller is told, or None: nothing.
REPLIES = {
    "the helper hangs up at once": (lambda n: {"refuse": True}, "Failed to (read|write) socket: .*"),
    "an output that is shorter than told": (lambda n: {"output_length": n + 1}, READ),
    "an output of 2 GiB": (lambda n: {"output_length": 0x7FFFFFFF},
                           "(Failed to read socket: Success|Malloc failed: .*)"),
    "an output that is longer than told": (lambda n: {"output_length": n - 1}, READ),
    "an output of no length": (lambda n: {"output_length": 0}, READ),
    "an output of length -1": (lambda n: {"output_length": 0xFFFFFFFF}, READ),
    "a message that is shorter than told": (lambda n: {"message_length": 5}, READ),
    "a message of 2 GiB": (lambda n: {"message_length": 0x7FFFFFFF}, READ),
    "a message that is longer than told": (lambda n: {"message_length": 2}, "la"),
    "a message of no length": (lambda n: {"message_length": 0}, None),
    "a message of length -1": (lambda n: {"message_length": 0xFFFFFFFF}, None),
}


def plan_reply(handler, sent, plan):
    message = {"message": "late"} if "message_length" in plan else {}
    match = {"match": ESSID} if handler == "dashboard" and "refuse" not in plan else {}
    harness.plan(output=sent, **{"message": "", **message, **match, **plan})


def reply_for(handler):
    return GRANT if handler == "login" else "<re><d>good</d></re>"


@pytest.mark.parametrize("fault", REPLIES)
def test_a_reply(admin, as_ever, fault):
    make_plan, message = REPLIES[fault]
    for handler, answer in as_ever(chosen(ASK_THE_HELPER)).items():
        sent = reply_for(handler)
        plan_reply(handler, sent, make_plan(len(sent)))
        seen = ask(handler, admin)
        # The configuration API passes an output on, whatever message came with it.
        if message is None or (message == "la" and handler == "configuration"):
            assert seen == with_reply(handler, sent, answer, ESSID)
            continue
        # At once means the first exchange, of which the dashboard shows no message.
        only = "wuic basic-info" if "at once" in fault else ESSID
        assert_without_reply(handler, seen, message, answer, only)


@pytest.mark.parametrize("handler", chosen(ASK_THE_HELPER))
def test_a_reply_that_ends_after_any_byte(admin, as_ever, handler):
    answer, sent = as_ever([handler])[handler], reply_for(handler)
    for size in range(0, 4 + 4 + len(sent) + 4, 1 if WHOLE_TABLES else 9):
        plan_reply(handler, sent, {"close_after": size})
        assert ask(handler, admin) == without_reply(handler, READ, answer, ESSID), size


# The database.

UNCONNECTED = 'can\'t connect to db: connection to server on socket "/var/run/postgresql/.s.PGSQL.5432" failed: %s\n'
NO_SERVER = "%s\n\tIs the server running locally and accepting connections on that socket?"
NO_SLOT = "FATAL:  remaining connection slots are reserved for non-replication superuser connections"
FOR_OTHERS = 3  # superuser_reserved_connections


@contextlib.contextmanager
def connections_left(number):
    """So many connections more are admitted."""
    room = 8
    with running.POSTGRES.with_arguments("-c", "max_connections=%d" % room):
        taken = [psycopg2.connect("dbname=userdbv3 user=root")
                 for _ in range(room - FOR_OTHERS - number)]
        try:
            yield
        finally:
            for connection in taken:
                connection.close()


@contextlib.contextmanager
def altered(database, change, back):
    sql(change, database)
    try:
        yield
    finally:
        sql(back, database)


def renamed(database, table):
    return altered(database, "ALTER TABLE %s RENAME TO aside" % table,
                   "ALTER TABLE aside RENAME TO " + table)


def everybody(outcome):
    return {handler: outcome for handler in HANDLERS}


def assert_logged_only(text):
    lines = harness.log_lines()
    assert any(text in line for line in lines) if text else not lines


# Kept: a count that the server refuses is one of none.
NONE_FOUND = (200, "text/xml", "<qorin>\n<status>OK</status>\n<status>OK</status>\n<start>0</start>\n"
              "<length>0</length>\n<total>0</total>\n</qorin>\n")


def cut_short(answer):
    """The dashboard ends where its own connection fails."""
    return *answer[:2], answer[2][:answer[2].index("<cli><id>14</id>")]


# Who answers otherwise than ever, and what the log says then.
DATABASE = {
    "a server that is stopped": (
        running.POSTGRES.stopped, "can't connect to WMS db: ", everybody(
            error(UNCONNECTED % (NO_SERVER % "No such file or directory")))),
    "a server that was killed": (
        lambda: running.POSTGRES.stopped(signal.SIGKILL), "can't connect to WMS db: ",
        everybody(error(UNCONNECTED % (NO_SERVER % "Connection refused")))),
    "no connection left": (
        lambda: connections_left(0), "can't connect to WMS db: ",
        everybody(error(UNCONNECTED % NO_SLOT))),
    "one connection too few": (
        lambda: connections_left(3), "can't connect to ", everybody(error(UNCONNECTED % NO_SLOT))),
    "no connection more than every request has": (
        lambda: connections_left(4), "(): can't connect to ",
        {"dashboard": cut_short, "search": error("Internal error")}),
    "a database that is read only": (
        lambda: altered("postgres", "ALTER DATABASE wms SET default_transaction_read_only = on",
                        "ALTER DATABASE wms RESET default_transaction_read_only"),
        "in a read-only transaction", {"login": NOT_STORED, "logout": LOGGED_OUT}),
    "no table of sessions": (
        lambda: renamed("wms", "http_session"), "Can't retrieve session ", {
            **everybody(NO_PERMISSION), "login": NOT_STORED, "logout": LOGGED_OUT}),
    "no table of access points": (
        lambda: renamed("gapdb", "global_ap_table"), None, {"search": NONE_FOUND}),
}


@pytest.mark.parametrize("fault", DATABASE)
def test_database(admin, as_ever, fault):
    world, log, others = DATABASE[fault]
    wanted = as_ever(HANDLERS if WHOLE_TABLES else chosen(others))
    for handler in set(wanted) & set(others):
        change = others[handler]
        wanted[handler] = change(wanted[handler]) if callable(change) else change
    with world():
        assert ask_all(wanted, admin) == wanted
        assert_logged_only(log)
    assert harness.session_count() == ("logout" not in wanted or "logout" in others)


# Where a request waits when the server is killed or stopped: in an exchange with the helper, or for a
# lock on a table; what it answers then, and what the log says.
UNDER_WAY = {
    "a command": ("command", {"hold": True}, None, None),
    "a request of the configuration": ("configuration", {"hold": True}, None, None),
    "the dashboard, before its own connection": (
        "dashboard", {"hold": True, "match": LAST_COMMAND}, cut_short, "can't connect to WMS db:"),
    "a login, while the password is checked": (
        "login", {"hold": True}, NOT_STORED, "Can't update a new session (main): "),
    "a login, while it stores": (
        "login", ("wms", "LOCK http_session IN SHARE MODE"), NOT_STORED,
        "Can't update a new session (main): "),
    "a logout": ("logout", ("wms", "LOCK http_session IN SHARE MODE"), LOGGED_OUT,
                 "Can't delete session "),
    "the look for a session": ("command", ("wms", "LOCK http_session"), NO_PERMISSION,
                               "Can't retrieve session "),
    "a search": ("search", ("gapdb", "LOCK global_ap_table"), NONE_FOUND, None),
}


@contextlib.contextmanager
def held_up(place):
    """Calls back when the request has come to the place; what held it is let go at the end."""
    if isinstance(place, dict):
        harness.plan(**place)
        yield lambda: harness.order("wait-held")
        return
    database, lock = place
    with contextlib.closing(psycopg2.connect("dbname=%s user=root" % database)) as holder:
        holder.cursor().execute(lock)
        yield lambda: harness.wait_until(
            lambda: sql("SELECT 1 FROM pg_stat_activity WHERE wait_event_type = 'Lock'", "postgres"),
            "a request that waits for the lock")


@pytest.mark.parametrize("number", chosen([signal.SIGKILL, signal.SIGINT]))
@pytest.mark.parametrize("fault", UNDER_WAY)
def test_a_server_that_ends_during(admin, as_ever, fault, number):
    handler, place, change, log = UNDER_WAY[fault]
    answer = as_ever([handler])[handler]
    wanted = change(answer) if callable(change) else change or answer
    with held_up(place) as await_there, ThreadPoolExecutor(1) as pool:
        asked = pool.submit(harness.http_request, *request(handler, admin))
        await_there()
        with running.POSTGRES.stopped(number):
            harness.order("release")
            assert plain(asked.result()) == wanted
            assert_logged_only(log)


def test_a_server_that_ends_during_an_upload(admin, as_ever):
    answer = as_ever(["upload"])["upload"]
    with harness.half_sent(*request("upload", admin)) as rest:
        harness.wait_until(harness.FLASH.joinpath("post.data").exists, "an upload under way")
        with running.POSTGRES.stopped(signal.SIGKILL):
            assert settled("upload", rest()) == answer


def test_a_server_that_is_killed_and_started_between_requests(admin, as_ever):
    as_ever(HANDLERS)
    with running.POSTGRES.stopped(signal.SIGKILL):
        pass


# A row that somebody else wrote; whether it is a session still.
DAMAGED = {
    "a user that is too long": ("_user = repeat('u', 128)", False),
    "a role that is too long": ("role = repeat('r', 128)", False),
    "no user and no role": ("_user = '', role = ''", False),
    "a role that nobody has": ("role = 'root '", False),
    "a role in two lines": ("role = E'read-only\nroot'", False),
    "an address that is too long": ("ip = repeat('1', 200)", True),
    "times without an end": ("modified_time = 'infinity', created_time = '-infinity'", True),
    "times out of the range of most clocks": (
        "modified_time = '4713-01-01 BC', created_time = '294276-12-31'", True),
    "a flag that is none": ("admin = -2147483648, path = repeat('p', 5000)", True),
}


@pytest.mark.parametrize("fault", DAMAGED)
def test_a_damaged_session(admin, fault):
    answers = ask_all(["search", "upload"], admin)
    change, is_session = DAMAGED[fault]
    sql("UPDATE http_session SET " + change)
    assert ask_all(answers, admin) == (answers if is_session else dict.fromkeys(answers, NO_PERMISSION))


# The clock.

@contextlib.contextmanager
def events():
    """One a minute old, and of half an hour, one and a half, and three hours."""
    sql("INSERT INTO event_table (event_type, modified_time) SELECT 7, now() - age * interval '1 minute' "
        "FROM unnest(array[1, 30, 90, 180]) age")
    try:
        yield
    finally:
        sql("DELETE FROM event_table")


EVENT = "<r><c>7</c><c>(.)</c><c>(.)</c></r>\n"
# Only the ages of events are told by the program's own clock; sessions live by the database's.
CLOCKS = {
    "right": ("+0", {"m": "1", "h": "1", "a": "2"}),
    "an hour slow": ("-1h", {"m": "2", "h": "1", "a": "1"}),
    "at its beginning": ("1970-01-01 00:00:01", {"m": "4"}),
    "an hour fast": ("+1h", {"a": "4"}),
    "beyond 32 bits": ("2038-01-19 03:14:09", {"a": "4"}),
    "in the year 9999": ("9999-12-31 23:59:58", {"a": "4"}),
}


@pytest.mark.parametrize("fault", CLOCKS)
def test_a_clock(admin, as_ever, fault):
    wanted = as_ever({"dashboard", *chosen(HANDLERS)})
    time, ages = CLOCKS[fault]
    library = next(Path("/usr/lib").glob("*/faketime/libfaketime.so.1"))
    # A sanitizer's runtime wants to be the first.
    first = "" if WHOLE_TABLES else "libasan.so.8 "
    with events():
        seen = ask_all(wanted, admin, by_hand(LD_PRELOAD=first + str(library), FAKETIME=time))
    assert dict(re.findall(EVENT, seen["dashboard"][2])) == ages
    seen["dashboard"] = *seen["dashboard"][:2], re.sub(EVENT, "", seen["dashboard"][2])
    assert seen == wanted

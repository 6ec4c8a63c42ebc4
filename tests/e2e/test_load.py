"""Everything at once: what 64 clients get is what each request gets alone, and nothing is left."""

import contextlib
import os
import subprocess
import time
from concurrent.futures import ThreadPoolExecutor

import psycopg2
import pytest

import harness
import load

CLIENTS = 64
SECONDS = float(os.environ.get("WMS_LOAD_SECONDS", "60"))
REQUESTS = int(os.environ.get("WMS_LOAD_REQUESTS", "50000"))


@pytest.fixture
def sessions():
    made = {user: harness.add_session(user, role) for user, role in load.ROLES.items()}
    return {**made, load.NOBODY: "", load.STALE: load.FOREIGN.replace("0", "1")}


def alone(errands, sessions):
    """What each errand gets when nobody else asks."""
    client = load.Client(sessions)
    for step in load.ASKED:  # what is written is there from now on
        client.perform(load.Errand("admin", (step,)))
    expected = [client.perform(errand) for errand in errands]
    client.close()
    assert not [(errand, answers) for errand, answers in zip(errands, expected)
                if any(answer[0] >= 500 for answer in answers)]
    return expected


def keep_on():
    """Until the time or the requests are used up, each errand once at least; under the sanitizers
    each once."""
    end = time.monotonic() + (SECONDS if harness.WHOLE_TABLES else 0)
    return lambda outcome: outcome.rounds < 1 or (
        time.monotonic() < end and len(outcome.durations) < REQUESTS)


def test_64_clients_get_what_each_gets_alone_and_nothing_is_left(access_points, sessions):
    errands = load.mix()
    expected = alone(errands, sessions)
    before = load.at_rest()
    outcome = load.run(errands, expected, sessions, CLIENTS, keep_on())
    print("\n%d clients: %s" % (CLIENTS, outcome.figures()))
    for errand, wanted, got in outcome.wrong[:3]:
        print("request:  %.1000s\nexpected: %.2000s\ngot:      %.2000s" % (errand, wanted, got))
    assert not outcome.wrong, len(outcome.wrong)
    with contextlib.suppress(AssertionError):
        harness.wait_until(lambda: load.holdings() == before, "what was there before")
    assert load.holdings() == before


def test_as_many_programs_run_as_there_are_connections_for_and_more_requests_wait(
        access_points, sessions):
    """A search holds five connections while its table is closed."""
    errand = load.Errand("admin", (load.search(**{"class": "amii"}),))
    expected = load.Client(sessions).perform(errand)
    held = ("SELECT COUNT(*) FROM pg_stat_activity WHERE backend_type = 'client backend' "
            "AND pid <> pg_backend_pid()")
    with ThreadPoolExecutor(96) as pool, contextlib.closing(
            psycopg2.connect("dbname=gapdb")) as gate:
        gate.cursor().execute("LOCK TABLE global_radio_table")
        asked = [pool.submit(lambda: load.Client(sessions).perform(errand)) for _ in range(96)]
        harness.wait_until(lambda: harness.sql(held) == [["321"]], "64 searches")
        programs = subprocess.run(["pgrep", "-cx", "wms.cgi"], capture_output=True, text=True, check=False)
        assert programs.stdout == "64\n"
        gate.commit()
        assert [one.result() for one in asked] == [expected] * 96

"""The purge that deploy/ offers to operators."""

import subprocess
from concurrent.futures import ThreadPoolExecutor

from harness import CHECKOUT, add_session, post_form, sql


def purge():
    """With the rights that its unit leaves it."""
    subprocess.run(["setpriv", "--bounding-set=-all", "--no-new-privs", "psql", "-Xq", "-v", "ON_ERROR_STOP=1", "-f",
                    str(CHECKOUT / "deploy/purge/purge.sql"), "wms"], check=True, timeout=60)


def log_in(_=0):
    return post_form("/v1/api/login", {"username": "admin", "password": "wlan-Demo1"}).status


def test_only_sessions_beyond_the_time_out_are_deleted():
    fresh, stale, almost = (add_session() for _ in range(3))
    for sid, seconds in ((stale, 901), (almost, 800)):
        sql("UPDATE http_session SET modified_time = now() - interval '%d seconds' WHERE sid = '%s'"
            % (seconds, sid))
    purge()
    assert {row[0] for row in sql("SELECT sid FROM http_session")} == {fresh, almost}


def test_an_account_that_fills_the_table_keeps_nobody_out_for_long():
    """Of its sessions three each are equally old; the 8 newest are those of two ages and two of a third."""
    other = [add_session(user="reader", sid=name) for name in ("first", "second")]
    sql("INSERT INTO http_session SELECT (n / 3)::text, '192.0.2.1', 'greedy', 'root', '', now() - n / 3 * "
        "interval '1 second', NOW(), 1, '/' FROM generate_series(0, 61) n ORDER BY random()")
    assert log_in() == 401
    purge()
    assert sorted(row[0] for row in sql("SELECT sid FROM http_session")) == sorted(
        list("00011122") + other)
    with ThreadPoolExecutor(2) as pool:
        logins = pool.map(log_in, range(12))
        for _ in range(6):
            purge()
        assert list(logins) == [200] * 12
    purge()
    assert sql("SELECT _user, count(*) FROM http_session GROUP BY _user ORDER BY _user") == [
        ["admin", "8"], ["greedy", "8"], ["reader", "2"]]

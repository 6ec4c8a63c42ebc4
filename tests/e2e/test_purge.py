"""The purge that deploy/ offers to operators."""

import subprocess

from harness import CHECKOUT, add_session, sql


def test_only_sessions_beyond_the_time_out_are_deleted():
    fresh, stale, almost = (add_session() for _ in range(3))
    for sid, seconds in ((stale, 901), (almost, 800)):
        sql("UPDATE http_session SET modified_time = now() - interval '%d seconds' WHERE sid = '%s'"
            % (seconds, sid))
    # With the rights that its unit leaves it.
    subprocess.run(["setpriv", "--bounding-set=-all", "--no-new-privs", "psql", "-Xq", "-v", "ON_ERROR_STOP=1", "-f",
                    str(CHECKOUT / "deploy/purge/purge.sql"), "wms"], check=True, timeout=60)
    assert {row[0] for row in sql("SELECT sid FROM http_session")} == {fresh, almost}

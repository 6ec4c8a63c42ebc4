"""Replies that are far too large, or no documents at all, and the requests after them."""

import pytest

import harness
import hostile

KINDS = [("nested", 5000), ("attributes", 100000), ("table", 8), ("wrong-nesting", 1),
         ("wrong-columns", -1), ("wrong-columns", 0x7FFFFFFF), ("control-bytes", 1),
         ("unclosed-cdata", 1), ("cdata-end", 1)]


@pytest.fixture(params=KINDS, ids=lambda param: "%s %d" % param)
def reply(request):
    kind, count = request.param
    return {"kind": kind, "count": count}


@pytest.fixture(autouse=True)
def the_next_request_works(fresh, admin):
    yield
    assert harness.execute(admin).text == harness.SHOW_HOSTNAME


def test_a_hostile_reply_is_passed_on_whole(admin, reply):
    harness.plan(generate=reply)
    assert harness.execute(admin).body == hostile.generate(**reply)


def test_a_hostile_reply_in_single_bytes(admin):
    harness.plan(generate={"kind": "nested", "count": 5000}, chunk=1)
    assert harness.execute(admin).body == hostile.nested(5000)

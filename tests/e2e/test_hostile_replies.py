"""Replies that are far too large, or no documents at all, and the requests after them."""

import pytest

import harness
import hostile

KINDS = [("nested", 5000), ("attributes", 100000), ("table", 8), ("wrong-nesting", 1),
         ("wrong-columns", -1), ("wrong-columns", 0x7FFFFFFF), ("control-bytes", 1),
         ("unclosed-cdata", 1), ("cdata-end", 1)]
FAST_PATH_LIMIT = 4095


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


# Query, what stands before the reply in the answer, and after it; or the answer to any reply.
ENDPOINTS = [
    ("execCommandsReturnResult.xml?a,show%20hostname&UIDQORIN=$SID", b"<result>",
     harness.SHOW_HOSTNAME.encode() + b"</result>"),
    ("execSimple.xml?a&UIDQORIN=$SID", b"<result>SUCCESS</result>", None),
    ("execMultipleCommands.xml?f1/0;?a&UIDQORIN=$SID", b"<result></result>", None),
    ("execUiQuery.xml?query=a&UIDQORIN=$SID", b"", b""),
    ("telm?msgType=1&srcIP=10.10.4.11", b"", b""),
    ("getRunningConfig.xml?8214", b"", b""),
]


def ask(sid, query):
    return harness.http_request("/screens/cmnutil/" + query.replace("$SID", sid),
                                headers=harness.as_session(sid)).body


@pytest.mark.parametrize("query, before, after", ENDPOINTS,
                         ids=[row[0].partition("?")[0] for row in ENDPOINTS])
def test_an_endpoint_wraps_a_hostile_reply(admin, reply, query, before, after):
    harness.plan(generate=reply)
    body = ask(admin, query)
    assert body == (before if after is None else before + hostile.generate(**reply) + after)


def test_the_fast_path_wraps_a_hostile_reply(admin, reply):
    harness.plan(channel="fast", generate=reply)
    body = ask(admin, "execFPCliCommand.xml?show%20cpuload&UIDQORIN=$SID")
    made = hostile.generate(**reply)[:FAST_PATH_LIMIT]
    assert body == b"<re><SUCCESS></SUCCESS>" + made + b"</re>"

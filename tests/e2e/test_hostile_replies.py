"""Replies that are far too large, or no documents at all, alone and in documents of several replies,
and the requests after them."""

import re
from xml.etree import ElementTree

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


# One reply of each form that the dashboard knows, and the item that shows it.
SHOWN = {"wuic:basic-info": 0, "show keys all": 1, "show ap essid": 2}
CONTROLLER_ITEMS = 26


def dashboard_items(sid):
    """The texts of the results, after a look at the document's shape. Bytes that no XML may hold
    are passed on as they come; the parser must not see them."""
    document = ElementTree.fromstring(re.sub(rb"[\x00-\x08\x0b-\x1f]", b"?", ask(sid, "monitor-summary-data")))
    assert (document.tag, document.findtext("status")) == ("qorin", "ok")
    items = document.findall("cli")
    assert [item.findtext("id") for item in items] == [str(number) for number in range(len(items))]
    return [item.findtext("result") for item in items]


def policy_results(sid):
    """[(label, content)], with nothing between and around them."""
    body = ask(sid, "getRolePolicy.xml")
    assert (body[:10], body[-10:]) == (b"<rawdata>\n", b"</rawdata>")
    labels = re.split(b'<result cmd="([^"]*)">', body[10:-10])
    assert not labels[0].strip()
    assert all(content.rstrip().endswith(b"</result>") for content in labels[2::2])
    return list(zip(labels[1::2], labels[2::2]))


def test_the_dashboard_keeps_its_shape(admin, reply):
    for command in SHOWN:
        harness.plan(match=command, generate=reply)
    items = dashboard_items(admin)
    assert len(items) == CONTROLLER_ITEMS
    if reply["kind"] != "control-bytes":
        made = hostile.generate(**reply).decode()
        assert [items[number] for number in SHOWN.values()] == [made] * 3


def test_the_role_policy_keeps_its_shape(admin, reply):
    plain = [label for label, _ in policy_results(admin)]
    harness.plan(match="show rights", generate=reply)
    harness.plan(match="show ip access-list brief ipv4", generate=reply)
    results = dict(policy_results(admin))
    assert set(results) >= {label for label in plain[-5:]}
    for label in (b"show rights", b"show ip access-list brief ipv4"):
        assert hostile.generate(**reply) in results[label]

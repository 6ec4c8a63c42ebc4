"""Documents that are put together from several replies keep their shape when one of them is hostile."""

import re
from xml.etree import ElementTree

import harness
import hostile
from test_hostile_replies import reply, the_next_request_works  # noqa: F401 (fixtures)

DASHBOARD = "/screens/wms/wms.html?opcode=monitor-summary-data"
ROLE_POLICY = "/screens/cmnutil/getRolePolicy.xml"

# One reply of each form that the dashboard knows, and the item that shows it.
SHOWN = {"wuic:basic-info": 0, "show keys all": 1, "show ap essid": 2}
MASTER_ITEMS, CONTROLLER_ITEMS = 15, 26


def get(sid, path):
    return harness.http_request(path, headers=harness.as_session(sid)).body


def dashboard_items(sid):
    """The texts of the results, after a look at the document's shape. Bytes that no XML may hold
    are passed on as they come; the parser must not see them."""
    document = ElementTree.fromstring(re.sub(rb"[\x00-\x08\x0b-\x1f]", b"?", get(sid, DASHBOARD)))
    assert (document.tag, document.findtext("status")) == ("qorin", "ok")
    items = document.findall("cli")
    assert [item.findtext("id") for item in items] == [str(number) for number in range(len(items))]
    return [item.findtext("result") for item in items]


def policy_results(sid):
    """[(label, content)], with nothing between and around them."""
    body = get(sid, ROLE_POLICY)
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


def test_the_dashboard_in_single_bytes(admin):
    whole = dashboard_items(admin)
    harness.plan(chunk=1, times=len(harness.traffic()))
    pieces = dashboard_items(admin)
    assert len(whole) == MASTER_ITEMS
    assert pieces == whole


def test_the_dashboard_with_a_reply_cut_anywhere(admin):
    answer = "<re><d n='mst'>true</d><d n=\"localip\">127.0.0.1</d></re>"
    for size in range(1, len(answer)):
        harness.plan(match="wuic:basic-info", output=answer[:size])
        assert dashboard_items(admin)[0] == answer[:size]


def test_the_role_policy_keeps_its_shape(admin, reply):
    plain = [label for label, _ in policy_results(admin)]
    harness.plan(match="show rights", generate=reply)
    harness.plan(match="show ip access-list brief ipv4", generate=reply)
    results = dict(policy_results(admin))
    assert set(results) >= {label for label in plain[-5:]}
    for label in (b"show rights", b"show ip access-list brief ipv4"):
        assert hostile.generate(**reply) in results[label]


def test_the_role_policy_with_a_reply_cut_anywhere(admin):
    answer = "<re><r>\n<c>a &amp; \"b\"</c></r><r><c><![CDATA[x]]></c></r></re>"
    for size in range(1, len(answer)):
        harness.plan(match="show rights", output=answer[:size])
        asked = {label for label, _ in policy_results(admin)}
        assert (b"show rights a &amp; &quot;b&quot;" in asked) == (size >= answer.index("</r>") + 4)
        assert (b"show rights x" in asked) == (size >= answer.rindex("</r>") + 4)

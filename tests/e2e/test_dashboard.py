"""The dashboard's document and the role-policy document, parsed by a reader of another make."""

import os
import re
import socket
import xml.etree.ElementTree as ET
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import pytest

import harness

# The browser finds an item by its place.
COMMON = ("wuic basic-info", "show keys all", "show ap essid", "show profile-errors",
          "show control-plane-security", "show whitelist-db cpsec-status", "wuic localip-warnings",
          "wuic ap-limit-warnings", "wuic custom-reports")
LABELS = {
    "master": [*COMMON, "show switches summary", "show aaa authentication-server all",
               "show wms routers", "show ap database-summary", "show wms monitor-summary", "db"],
    "controller": [
        *COMMON, "show country", "hostname", "systime", "show version", "show datapath utilization",
        "show interface vlan 1", "show interface loopback", "show ap blacklist-clients",
        *("show wlan-ap-count type " + kind for kind in (
            "access-point", "air-monitor", "ap-monitor", "spectrum-monitor", "secure-access")),
        "show tunneled-node state", "show user-table rows 1 1", "show aaa state configuration",
        "show mobility-managers"]}
CONTROLLER = "?operand=controller-summary"
BASIC_INFO = "wuic:basic-info"
INTEGRITY = Path("/tmp/integrity_check_result")
TPM = Path("/tmp/tpmCertPresent")
NOBODY = 65534


@pytest.fixture(autouse=True)
def no_traces():
    yield
    assert not list(Path("/tmp").glob("cli-??????"))
    harness.sql("DELETE FROM event_table")
    for path in (INTEGRITY, TPM):
        path.unlink(missing_ok=True)


def ask(sid, query=""):
    return harness.http_request("/monitor-summary-data" + query, headers=harness.as_session(sid))


def dashboard(sid, query=""):
    """The document, and its items' results by label."""
    document = ET.fromstring(ask(sid, query).body)
    items = document.findall("cli")
    assert [item.findtext("id") for item in items] == [str(i) for i in range(len(items))]
    return document, {item.findtext("cmd"): item for item in items}


@pytest.mark.parametrize("query, plan, view", [
    ("?operand=other", {}, "master"), (CONTROLLER, {}, "controller"),
    ("", {"output": "<re><d n='ems'>true</d><d n='mst'>true</d></re>"}, "controller"),
    ("", {"output": '<re><d n="mst">true</d></re>'}, "controller"),
    ("", {"output": "", "message": "busy"}, "master"),
])
def test_the_view_follows_the_controller_and_the_operand(reader, query, plan, view):
    if plan:
        harness.plan(match=BASIC_INFO, **plan)
    _, items = dashboard(reader, query)
    assert list(items) == LABELS[view]
    assert {item.findtext("status") for item in items.values()} == {None, "ok"}
    assert not harness.log_lines()
    helper = [line for line in harness.traffic() if line["channel"] == "helper"]
    assert {(line["user"], line["ip"], line["sid"]) for line in helper} == {
        ("reader", "198.51.100.9", reader)}
    commands = [label for label, item in items.items() if item.find("status") is not None]
    fast = ["show datapath utilization"] if view == "controller" else []
    assert sorted(line["command"] for line in helper) == sorted(
        [BASIC_INFO, "show keys all", *set(commands) - set(fast)])
    assert [(line["user"], line["role"], line["command"]) for line in harness.traffic()
            if line["channel"] == "fast"] == [("reader", "read-only", "show cpuload")] * len(fast)


@pytest.mark.parametrize("label, plan, expected", [
    ("show keys all", {"output": "<re>]]>a]]]>&b]]"}, (None, "<re>]]>a]]]>&b]]")),
    ("show keys all", {"output": "", "message": "lost"}, (None, "")),
    ("show ap essid", {"output": "<re a=\"'\">]]>&lt;\x01ü</re>\n"},
     ("ok", "<re a=\"'\">]]>&lt;?\xc3\xbc</re>\n")),
    ("show ap essid", {"output": "a reply", "message": "]]><b> too"}, ("error", "]]><b> too")),
    ("show ap essid", {"output": "", "message": ""}, ("error", "")),
    ("show ap essid", {"output": "abc", "close_after": 9},
     ("error", "Failed to read socket: Success")),
    ("show cpuload", {"channel": "fast", "output": "<re>&]]></re>"}, ("ok", "<re>&]]></re>")),
])
def test_every_kind_of_reply_is_told_as_it_came(admin, label, plan, expected):
    harness.plan(match=label, **plan)
    _, items = dashboard(admin, CONTROLLER)
    item = items[{"show cpuload": "show datapath utilization"}.get(label, label)]
    assert (item.findtext("status"), item.findtext("result")) == expected


def test_what_the_controller_says_of_itself(admin):
    _, items = dashboard(admin, CONTROLLER)
    assert items["hostname"].findtext("result") == (
        "<re><d n='hostname'>%s</d></re>" % socket.gethostname())
    assert re.search(r"\d\d:\d\d:\d\d", items["systime"].findtext("result"))
    version = os.popen("/vantor/bin/softwareVersion").read()
    assert version and items["show version"].findtext("result") == version


LOOPBACK = "<re><WARNING>The controller's address is a loopback address.</WARNING></re>"
IN_USE = "<re><WARNING>%d of %d licensed access points are in use.</WARNING></re>"
NOTHING = "<re></re>"


@pytest.mark.parametrize("address, count, limit, expected", [
    ("127.3.2.1", "90", "100", [LOOPBACK, IN_USE % (90, 100)]),
    ("128.0.0.1", "89", "100", [NOTHING, NOTHING]),
    ("127.1", "1", "0", [NOTHING, NOTHING]),
    ("", "2147483647", "2147483647", [NOTHING, IN_USE % (2147483647, 2147483647)]),
    ("\n127.0.0.1 ", "100x", "100", [LOOPBACK, NOTHING]),
    ("<![CDATA[127.0.0.1]]>", "", "99999999999", [LOOPBACK, NOTHING]),
])
def test_warnings_come_of_basic_info(admin, address, count, limit, expected):
    harness.plan(match=BASIC_INFO, output='<re><d n="localip">%s</d><d N=\'apcount\'>%s</d>'
                 "<d x='1' n=aplimit>%s</d></re>" % (address, count, limit))
    _, items = dashboard(admin)
    warnings = [items["wuic %s-warnings" % name] for name in ("localip", "ap-limit")]
    assert [item.findtext("result") for item in warnings] == expected


@pytest.mark.parametrize("uid, text, upgrade, tpm", [
    (0, "one\n<b/>\n", "one\n<b/>\n", "passed"), (NOBODY, "<forged/>", "", "failed"),
    (0, "x" * 1024, "x" * 1023, "passed"), (None, "", "", "failed"),
])
def test_the_controllers_own_checks_are_told_by_files_of_root(admin, uid, text, upgrade, tpm):
    for path in (INTEGRITY, TPM) if uid is not None else ():
        path.write_text(text)
        os.chown(path, uid, uid)
    assert ("<qorin><status>ok</status>\n<upgrade>%s</upgrade>\n<tpmcertinitstatus>%s"
            "</tpmcertinitstatus>\n<cli>" % (upgrade, tpm)) in ask(admin).text


def test_events_are_counted_and_a_refused_query_counts_none(admin):
    harness.sql("INSERT INTO event_table (event_type, modified_time) SELECT 7, now() "
                "FROM generate_series(1, 3)")
    table = ("<re><t tn='events'><th><h>type</h><h>time</h><h>count</h></th>%s</t>\n</re>\n")
    row = "<r><c>7</c><c>m</c><c>3</c></r>\n"
    assert dashboard(admin)[1]["db"].findtext("result") == table % row
    harness.sql("ALTER TABLE event_table RENAME TO aside")
    try:
        assert dashboard(admin)[1]["db"].findtext("result") == table % ""
    finally:
        harness.sql("ALTER TABLE aside RENAME TO event_table")
    harness.assert_logged("wuic_get_monitor_summary_data: Error in executing the query.")


LONG = "n" * 127
ROLES = ("<re><t><th><h>Name</h></th><r><c>employee</c><c>x</c></r><r>\n <c>guest logon</c></r>\n"
         "<r><c>R&amp;D \"ü\"</c></r><r><c><![CDATA[a&amp;b]]></c></r>"
         "<r><c>o'brien</c><c>second</c></r><r><c>a&#10;reload</c></r><r><c>&#0;</c></r>"
         "<r><c>" + LONG + "</c></r><r><c>" + LONG + "n</c></r>"
         "<r><c> </c></r><r></r><r/><r><c>unclosed</c>")
NAMES = ["employee", "guest logon", 'R&D "ü"', "a&amp;b", LONG]


def role_policy(sid):
    return harness.http_request("/screens/cmnutil/getRolePolicy.xml",
                                headers=harness.as_session(sid)).text


def helper_commands():
    """In the order in which they came."""
    lines = [line for line in harness.traffic() if line["channel"] == "helper"]
    return [line["command"] for line in sorted(lines, key=lambda line: line["connection"])]


def while_held(count, work):
    """Answers what is being held as soon as it is that many. Their commands, and what the work gave."""
    with ThreadPoolExecutor(1) as pool:
        answer = pool.submit(work)
        try:
            harness.simctl.order(harness.CONTROL, "wait-held", count=count)
            commands = helper_commands()
        finally:
            harness.order("release")
        return commands, answer.result()


def test_eight_commands_are_in_flight_together_in_the_documents_order(reader):
    harness.plan(match="show", hold=True, times=7)
    harness.plan(channel="fast", hold=True)
    sent = [label for label in LABELS["controller"] if label.startswith("show")]
    sent = [label for label in sent if label not in ("show version", "show datapath utilization")]
    commands, (_, items) = while_held(8, lambda: dashboard(reader, CONTROLLER))
    assert commands == [BASIC_INFO, *sent[:7]]
    assert helper_commands() == [BASIC_INFO, *sent]
    assert list(items) == LABELS["controller"]
    assert {item.findtext("status") for item in items.values()} == {None, "ok"}


def test_nothing_is_sent_beside_the_basic_information(reader):
    harness.plan(match=BASIC_INFO, hold=True)
    commands, _ = while_held(1, lambda: dashboard(reader, CONTROLLER))
    assert commands == [BASIC_INFO]


def test_rows_are_looked_up_together(reader):
    names = [str(number) for number in range(12)]
    harness.plan(match="show rights", output="".join("<r><c>%s</c></r>" % name for name in names))
    harness.plan(match="show rights '", hold=True, times=8)
    ordered = ["show rights", *("show rights '%s'" % name for name in names)]
    commands, _ = while_held(8, lambda: role_policy(reader))
    assert commands == ordered[:9]
    assert helper_commands()[:14] == [*ordered, "show ip access-list brief ipv4"]


@pytest.mark.parametrize("before, looked_up", [(4095, ["last"]), (4096, [])])
def test_rows_beyond_the_most_that_are_looked_up(reader, before, looked_up):
    harness.plan(match="show rights", output="<r></r>" * before + "<r><c>last</c></r>")
    role_policy(reader)
    assert [text for text in helper_commands() if text.startswith("show rights '")] == [
        "show rights '%s'" % name for name in looked_up]
    told = [line for line in harness.log_lines()
            if "show rights: more than 4096 rows, the rest is left out" in line]
    assert len(told) == 1 - len(looked_up)


def test_roles_and_lists_are_looked_up_by_name(reader):
    harness.plan(match="show rights", output=ROLES)
    harness.plan(match="show ip access-list brief ipv4", output="<re><r><c>all</c></r></re>")
    harness.plan(match="show netservice", output="")
    body = role_policy(reader)
    commands = helper_commands()
    assert commands == [
        "show rights", *("show rights '%s'" % name for name in NAMES),
        "show ip access-list brief ipv4", "show ip access-list 'all'", "show netservice",
        "show dpi application all", "show dpi application category all",
        "show aaa bandwidth-contracts", "show ip access-list brief ipv6"]
    assert body.startswith('<rawdata>\n<result cmd="show rights">' + ROLES + "</result>")
    document = ET.fromstring(body.replace(ROLES, "", 1))
    assert [item.get("cmd") for item in document] == [text.replace("'", "") for text in commands]
    assert '<result cmd="show netservice"></result>' in body

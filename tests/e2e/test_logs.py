"""What the system log and the debug trace say of a request, and what they never hold."""

from pathlib import Path

import pytest

import harness

CMNUTIL = "/screens/cmnutil/"
TRACE = Path("/tmp/ooo")
PASSWORD = "s3cret-Passw0rd"
COMMAND = "mgmt-user%20jane%20root%20" + PASSWORD
FORM = "cmd=" + COMMAND + "&passwd=" + PASSWORD
REFUSALS = {
    "another token": ("POST", CMNUTIL + "execCommandPostReturnResult.xml", FORM + "&UIDQORIN=$OTHER",
                      "UIDQORIN do not match opcode:"),
    "no token": ("POST", CMNUTIL + "execCommandPostReturnResult.xml?x=" + PASSWORD, FORM,
                 "query1:x=[15], query2:cmd=[41]&passwd=[15]"),
    "another token in the query": ("GET", CMNUTIL + "execCommandReturnResult.xml?" + COMMAND + "&UIDQORIN=$OTHER",
                                   "", "query2:[41]&UIDQORIN=[36]"),
    "the token in the middle": ("GET", CMNUTIL + "execSimple.xml?UIDQORIN=$SID&" + COMMAND, "", "striping Sid opcode:"),
    "the key is a path with a query": ("POST", "/x", FORM + "&opcode=/a?p=" + PASSWORD + "/cli",
                                       "opcode:/a?p=["),
    "the configuration API": ("POST", "/v1/configuration/object?UIDQORIN=$OTHER", '{"passwd": "%s"}' % PASSWORD,
                              "API opcode:"),
}
SERVED = {
    "a command on a port that fails": ("GET", CMNUTIL + "execMultipleCommands.xml?g1;?" + COMMAND + "&UIDQORIN=$SID", "",
                                       "Error executing interface gigabitethernet 1 ["),
    "a port that is none": ("GET", CMNUTIL + "execMultipleCommands.xml?g" + PASSWORD + ";?x&UIDQORIN=$SID", "",
                            "Error executing interface gigabitethernet [15] [1]"),
    "the token in the path": ("GET", "/x/nothing&UIDQORIN=$SID", "", "unknown opcode /x/nothing&UIDQORIN=[36]."),
    "the token for a name": ("GET", "/v1/configuration/object/UIDQORIN=$SID?x", "", "object/UIDQORIN=[38]"),
    "a field for a key": ("POST", "/x", "opcode=cmd%26passwd%3D" + PASSWORD, "unknown opcode cmd&passwd=[15]."),
    "an address": ("GET", CMNUTIL + "telm?msgType=1&srcIP=" + PASSWORD, "", "Query: srcIP=[15]"),
    "a configuration": ("POST", "/v1/configuration/object?UIDQORIN=$SID", 'a={"passwd": "%s"}' % PASSWORD,
                        "payload is a=["),
}


@pytest.mark.parametrize("row", [*REFUSALS, *SERVED])
def test_no_password_and_no_identifier_is_logged_at_any_level(row):
    """At the level at which the most is logged, with the lines' words and what may be told."""
    method, path, body, words = {**REFUSALS, **SERVED}[row]
    sid, other = harness.add_session(), harness.add_session()
    path, body = (text.replace("$SID", sid).replace("$OTHER", other) for text in (path, body))
    Path("/tmp/http_log_level").write_text("web 7\n")
    if "port" in row:
        harness.plan(message="no")
    response = harness.http_request(path, method, body.encode(),
                                    harness.form_headers(harness.as_session(sid)))
    assert (response.status == 401 or "SID Validation failed" in response.text) == (row in REFUSALS)
    harness.log_settled()
    for record in (harness.SYSLOG, TRACE):
        text = record.read_text() if record.exists() else ""  # not every line is for the trace
        assert words in text or record is TRACE and "unknown opcode" in words
        assert [secret for secret in (PASSWORD, sid, other) if secret in text] == []


def test_an_identifier_is_shortened_where_the_database_failed():
    sid = harness.add_session()
    harness.sql("ALTER TABLE http_session RENAME TO elsewhere")
    try:
        harness.http_request("/get-permissions", headers=harness.as_session(sid))
    finally:
        harness.sql("ALTER TABLE elsewhere RENAME TO http_session")
    harness.assert_logged("Can't retrieve session %s...: ERROR:" % sid[:8])
    assert sid not in harness.SYSLOG.read_text()

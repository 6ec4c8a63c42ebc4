"""Custom reports through the whole system."""

import harness

DEFINITION = b"<qorin>\r\n<cr>100% \"a\"</cr>\0</qorin>" * 20000


def call(key, sid, data=b""):
    body, headers = harness.multipart(("operand", data))
    return harness.http_request("/screens/wms/" + key, "POST", body, {**headers, **harness.as_session(sid)})


def test_reports_are_loaded_as_they_were_saved(reader):
    saver = harness.add_session(user="net", role="network-operations")
    assert "<user>net</user>" in call("get-permissions", saver).text
    for data in (DEFINITION, b"<shorter/>"):
        assert "<status>ok</status>" in call("cr-save", saver, data).text
        assert call("cr-load", reader).body == data

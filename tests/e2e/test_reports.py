"""Custom reports through the whole system."""

import harness

DEFINITION = b"<qorin>\r\n<cr>100% \"a\"</cr>\0</qorin>" * 20000


def call(key, sid, *fields):
    body, headers = harness.multipart(*fields)
    return harness.http_request("/screens/wms/" + key, "POST", body, {**headers, **harness.as_session(sid)})


def test_reports_are_loaded_as_they_were_saved(reader):
    saver = harness.add_session(user="net", role="network-operations")
    assert call("cr-load", reader, ("x", b"")).text == "<qorin><status>ok</status></qorin>"
    for data in (DEFINITION, b"<shorter/>"):
        assert "<status>ok</status>" in call("cr-save", saver, ("operand", data)).text
        loaded = call("cr-load", reader, ("x", b""))
        assert (loaded.body, loaded.header("Content-Type")) == (data, "text/xml")

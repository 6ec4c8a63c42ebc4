"""The configuration API: what reaches the controller, what comes back, what is refused before."""

import json

import pytest

import harness


def call(sid, target, body=None):
    """A GET, with a body a POST; the token is added to the query."""
    path = "/v1/configuration/%s%sUIDQORIN=%s" % (target, "&" if "?" in target else "?", sid)
    method = "GET" if body is None else "POST"
    return harness.http_request(path, method, body or b"", harness.as_session(sid))


def result(response):
    return json.loads(response.text)["_global_result"]["status_str"]


@pytest.mark.parametrize("target, body, command", [
    ("object/vlan", None, "get_api&objname=vlan&config_path=/hq/mynode&UIDQORIN=$SID"),
    ("container/system?config_path=/hq", None,
     "get_api&container=system&config_path=/hq&UIDQORIN=$SID"),
    ("showcommand?json=1&command=show+hostname", None,
     "json&config_path=/hq/mynode&data=json=1&json=1&command=show+hostname&UIDQORIN=$SID"),
    ("object/ntp?config_path=%2Fhq", b'{"server":"a&amp;b"}',
     'operation=set&config_path=/hq&data={ "ntp" : {"server":"a&b"} }'),
    ("object/fileUpload?file_name=map.svg", b"<svg/>", "operation=set&config_path=/hq/mynode&"
     "covert_op=fileUpload&file_name=map.svg&data={<svg/>}"),
])
def test_a_request_becomes_one_line(admin, target, body, command):
    response = call(admin, target, body)
    assert response.header("Content-Type") == "application/json"
    assert json.loads(response.text).get("_global_result", {"status": 0})["status"] == 0
    assert [line["command"] for line in harness.traffic()] == [command.replace("$SID", admin)]


@pytest.mark.parametrize("target, body, error", [
    ("objec", None, "Method not supported"),
    ("showcommand", b"command=show+clock", "Method not supported"),
    ("object/all", b"", "Invalid URL string"),
    ("object/ntp?config_path=/hq%0Aoperation=set", b"{}", "Invalid URL string"),
    ("object/ntp", b"{}\0{}", "Invalid URL string"),
    pytest.param("showcommand/b?" + "x" * 102400, None, "Invalid URL string", id="long query",
                 marks=pytest.mark.cgi),  # nginx has no room for it in front of workers
])
def test_what_makes_no_line_is_not_sent(admin, target, body, error):
    assert json.loads(call(admin, target, body).text) == {"Error": error}
    assert harness.traffic() == []


@pytest.mark.parametrize("size, lines", [(102399, 1), (102400, 0)])
def test_a_large_body_is_sent_whole_or_not_at_all(admin, size, lines):
    body = b'{"name":"%s"}' % (b"n" * (size - 11))
    assert ("Invalid URL" in call(admin, "object/hostname", body).text) == (lines == 0)
    assert [body.decode() in line["command"] for line in harness.traffic()] == [True] * lines


def test_the_controller_decides_by_the_sessions_user(reader):
    assert result(call(reader, "object/ntp")) == "Success"
    assert "not permitted" in result(call(reader, "object/ntp", b'{"server":"a"}'))
    assert {(line["user"], line["sid"], line["uid"]) for line in harness.traffic()} == {
        ("reader", reader, 0)}


def test_what_is_set_is_read_back_there_and_below(admin):
    def vlans(node):
        found = json.loads(call(admin, "object/vlan?config_path=" + node).text)["objects"]["vlan"]
        return {vlan["id"]: vlan.get("description") for vlan in found}

    call(admin, "object/vlan?config_path=/hq", '{"id": 20, "description": "\\"ü%\\ud800"}'.encode())
    call(admin, "object/vlan", b'[{"id": 10, "description": "own"}, {"id": 30}]')
    assert vlans("/hq") == {10: "Management", 20: '"ü%?'}
    assert vlans("/hq/mynode") == {10: "own", 20: '"ü%?', 30: None}
    assert vlans("/hq/branch") == {10: "Management", 20: "Branch office"}

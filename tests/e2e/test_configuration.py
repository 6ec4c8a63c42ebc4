"""The configuration API over several requests."""

import json

import pytest

import harness

OBJECT = "/v1/configuration/object/"


def call(sid, name, body=None, config_path="/hq/mynode"):
    path = "%s%s?config_path=%s&UIDQORIN=%s" % (OBJECT, name, config_path, sid)
    method = "GET" if body is None else "POST"
    return harness.http_request(path, method, body or b"", harness.as_session(sid))


def vlans(sid, config_path):
    found = json.loads(call(sid, "vlan", None, config_path).text)["objects"]["vlan"]
    return {vlan["id"]: vlan.get("description") for vlan in found}


def test_what_is_set_is_read_back_there_and_below(admin):
    call(admin, "vlan", '{"id": 20, "description": "\\"a\\" & ü%"}'.encode(), "/hq")
    call(admin, "vlan", b'[{"id": 10, "description": "own"}, {"id": 30}]')
    assert vlans(admin, "/hq") == {10: "Management", 20: '"a" & ü%'}
    assert vlans(admin, "/hq/mynode") == {10: "own", 20: '"a" & ü%', 30: None}
    assert vlans(admin, "/hq/branch") == {10: "Management", 20: "Branch office"}


@pytest.mark.parametrize("size, whole", [(102399, True), (102400, False)])
def test_a_large_body_is_sent_whole_or_not_at_all(admin, size, whole):
    body = b'{"name": "%s"}' % (b"n" * (size - 12))
    response = call(admin, "hostname", body)
    if whole:
        assert json.loads(response.text)["objects"] == ["hostname"]
        assert harness.traffic()[0]["command"].endswith(" : %s }" % body.decode())
    else:
        assert (response.text, harness.traffic()) == ('{"Error": "Invalid URL string"}', [])

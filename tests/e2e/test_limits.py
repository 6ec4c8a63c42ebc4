"""How much one request may have run. What is more runs nothing at all."""

import pytest

import harness


@pytest.mark.parametrize("page, work, answer", [
    ("execCommandsReturnResult.xml", "x," * 4097, harness.ERROR_DOCUMENT % "Invalid arguments"),
    ("execMultipleCommands.xml", "g1," * 17 + ";?" + "x;" * 241,
     "<result><error>Input format wrong</error></result>"),
])
def test_one_execution_too_many(admin, page, work, answer):
    response = harness.http_request(
        "/screens/cmnutil/" + page, "POST", ("%s&UIDQORIN=%s" % (work, admin)).encode(),
        harness.form_headers(harness.as_session(admin)))
    assert response.text == answer
    assert harness.traffic() == []

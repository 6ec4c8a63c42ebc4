"""The image upload, which goes to flash and never through memory."""

import pytest

import harness

PAGE = "/screens/cmnutil/wms-os-upload.html"
WINDOW = 102400
PATTERN = bytes(range(256)) * 1024


def upload(sid, data, file_name="image.bin", page=PAGE, fields=(), boundary="XyZZy42"):
    body, headers = harness.multipart(
        ("UIDQORIN", sid.encode()), *fields, ("file", data, file_name), boundary=boundary)
    return harness.http_request(page, "POST", body, {**headers, **harness.as_session(sid)})


def nothing_left():
    return not any(path.exists() for path in harness.LEFTOVERS[1:4])


@pytest.mark.parametrize("size", [0, 1, WINDOW, 5_000_003])
def test_an_image_arrives_in_flash(admin, size):
    data = (PATTERN * (size // len(PATTERN) + 1))[:size]
    harness.assert_reason(upload(admin, data), "not implemented")
    assert harness.IMAGE.read_bytes() == data
    assert not harness.LEFTOVERS[2].exists()


@pytest.mark.parametrize("back", [1, 2, 3, 10, 40])
@pytest.mark.parametrize("windows", [1, 2])
def test_a_boundary_may_straddle_two_windows(admin, back, windows):
    head = harness.multipart(("UIDQORIN", admin.encode()), ("file", b"", "image.bin"))[0]
    before = head.index(b"application/octet-stream") + len(b"application/octet-stream\r\n\r\n")
    data = PATTERN[:windows * WINDOW - before - back]
    harness.assert_reason(upload(admin, data), "not implemented")
    assert harness.IMAGE.read_bytes() == data


def test_data_that_nearly_is_a_boundary_is_data(admin):
    data = b"\r\n--XyZZy4\r\n--XyZZy\r\n\r\n--" * 9000
    harness.assert_reason(upload(admin, data), "not implemented")
    assert harness.IMAGE.read_bytes() == data


@pytest.mark.parametrize("name, refused", [
    ("..", True), (".", True), (".profile", True), ("dir/.profile", True), ("C:\\x\\..", True),
    ("a;b", True), ("a%3Bb", True), ("a\x01b", True),
    ("../../image.bin", False), ("C:\\images\\image.bin", False), ("a b(1)%3b.bin", False),
    ("n" * 80, False),
])
def test_file_names(admin, name, refused):
    response = upload(admin, b"data", name)
    if refused:
        harness.assert_reason(response, "Restricted Filename encountered.")
        harness.assert_logged("Invalid argument: Restricted Filename encountered.")
        assert nothing_left()
    else:
        harness.assert_reason(response, "not implemented")
        assert harness.IMAGE.read_bytes() == b"data"


def test_a_refused_second_file_takes_the_first_with_it(admin):
    body, headers = harness.multipart(("UIDQORIN", admin.encode()), ("one", b"first", "one.bin"),
                                      ("two", b"second", ".."))
    response = harness.http_request(PAGE, "POST", body, {**headers, **harness.as_session(admin)})
    harness.assert_reason(response, "Restricted Filename encountered.")
    assert nothing_left()


def test_of_several_files_the_first_is_the_image(admin):
    response = upload(admin, b"second", fields=[("one", b"first", "one.bin")])
    harness.assert_reason(response, "not implemented")
    assert harness.IMAGE.read_bytes() == b"first"


def test_without_a_session_nothing_is_stored():
    harness.assert_reason(upload("0b2c7c5e", b"x" * 300000), harness.NO_PERMISSION)
    assert nothing_left()


def test_a_role_that_may_not_stores_nothing(reader):
    harness.assert_reason(upload(reader, b"x" * 300000), harness.NO_PERMISSION)
    assert nothing_left()


def test_naming_an_upload_page_in_the_query_lets_nobody_in(reader):
    """A role that may use the one page that the URI names, but not the other."""
    sid = harness.add_session(user="agent", role="snmpv3-user")
    response = upload(sid, b"x" * 300000, page=PAGE + "?captiveportal_import.html")
    harness.assert_reason(response, harness.NO_PERMISSION)
    page = "/screens/cmnutil/clientinfo.xml?wms-os-upload.html"
    harness.assert_reason(upload(reader, b"x" * 300000, page=page), harness.NO_PERMISSION)
    assert nothing_left()


@pytest.mark.parametrize("field, reason", [
    (("UIDQORIN", b"wrong"), "SID Validation failed"),
    (("opcode", b"heart-beat"), "not implemented"),
])
def test_only_an_upload_page_keeps_the_image_and_only_with_the_token(admin, field, reason):
    body, headers = harness.multipart(field, ("file", b"data", "image.bin"))
    response = harness.http_request(PAGE, "POST", body, {**headers, **harness.as_session(admin)})
    harness.assert_reason(response, reason)
    assert nothing_left()


def test_the_factory_default_state_discards_an_upload(admin):
    harness.FACTORY_DEFAULT.touch()
    response = upload(admin, b"x" * 300000)
    assert response.header("Content-Type").startswith("text/html")
    assert nothing_left()


def test_a_body_shorter_than_announced_leaves_nothing(admin):
    body, headers = harness.multipart(("UIDQORIN", admin.encode()), ("file", b"data", "image.bin"))
    response = harness.cgi_request(PAGE, {
        "REQUEST_METHOD": "POST", "CONTENT_TYPE": headers["Content-Type"],
        "CONTENT_LENGTH": str(len(body) + 1), "QORIN_AUTH_SESSION_ID": admin}, body)
    harness.assert_reason(response, "Read Error encountered.")
    assert nothing_left()


def test_a_form_without_a_boundary_is_refused(admin):
    response = harness.http_request(PAGE, "POST", b"x" * 1000, {
        "Content-Type": "multipart/form-data", **harness.as_session(admin)})
    harness.assert_reason(response, "Restricted characters encountered")
    assert nothing_left()

"""The image upload, which goes to flash and never through memory."""

import contextlib
import subprocess
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import pytest

import harness

PAGE = "/screens/cmnutil/wms-os-upload.html"

# Locks what it can of its arguments, tells how many that were, and waits.
LOCK_ALL = """if True:
    import fcntl, os, sys
    held = []
    for place in sys.argv[1:]:
        try:
            held.append(os.open(place, os.O_RDONLY | os.O_NONBLOCK))
            fcntl.flock(held[-1], fcntl.LOCK_EX | fcntl.LOCK_NB)
        except OSError:
            pass
    print(len(held), flush=True)
    sys.stdin.read()
"""


def upload(sid, data, file_name="image.bin", page=PAGE, field=None):
    field = field or ("UIDQORIN", sid.encode())
    body, headers = harness.multipart(field, ("file", data, file_name))
    return harness.http_request(page, "POST", body, {**headers, **harness.as_session(sid)})


def nothing_left():
    return not any(path.exists() for path in harness.LEFTOVERS[1:4])


@pytest.mark.parametrize("size", [0, 5_000_003])
def test_an_image_arrives_in_flash(admin, size):
    data = (bytes(range(256)) * 20000)[:size]
    harness.assert_reason(upload(admin, data), "not implemented")
    assert harness.IMAGE.read_bytes() == data
    assert not harness.LEFTOVERS[2].exists()


@pytest.mark.parametrize("name, refused", [
    ("dir/.profile", True), ("C:\\x\\..", True), ("a;b", True),
    ("../../image.bin", False), ("C:\\images\\image.bin", False)])
def test_file_names(admin, name, refused):
    response = upload(admin, b"data", name)
    if refused:
        harness.assert_reason(response, "Restricted Filename encountered.")
        harness.assert_logged("Invalid argument: Restricted Filename encountered.")
        assert nothing_left()
    else:
        harness.assert_reason(response, "not implemented")
        assert harness.IMAGE.read_bytes() == b"data"


def test_uploads_side_by_side_do_not_mix(admin):
    """The second one comes when half of the first is there."""
    first, second = b"1" * 700_000, b"2" * 900_000
    body, headers = harness.multipart(("UIDQORIN", admin.encode()), ("file", first, "image.bin"))
    with contextlib.closing(harness.connect()) as connection, ThreadPoolExecutor(1) as pool:
        connection.putrequest("POST", PAGE)
        for name, value in {**headers, **harness.as_session(admin), "Content-Length": len(body)}.items():
            connection.putheader(name, value)
        connection.endheaders(body[:len(body) // 2])
        harness.wait_until(harness.LEFTOVERS[2].exists, "the first upload")
        other = pool.submit(upload, admin, second)
        harness.wait_until(lambda: other.done() or "-> FLOCK" in Path("/proc/locks").read_text(),
                           "the second upload")
        connection.send(body[len(body) // 2:])
        assert b"not implemented" in connection.getresponse().read()
        harness.assert_reason(other.result(), "not implemented")
    assert harness.IMAGE.read_bytes() == second
    assert not harness.LEFTOVERS[2].exists()


def test_no_other_user_holds_uploads_up(admin):
    """Whoever can open a file can lock it."""
    assert upload(admin, b"earlier").status == 200  # whatever an upload makes, is there from now on
    places = subprocess.run(["find", "/flash", "/run", "-not", "-path", "/run/postgresql/*"],
                            capture_output=True, text=True, check=True).stdout.split()
    with subprocess.Popen(["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "/usr/bin/python3", "-c",
                           LOCK_ALL, *places], stdin=subprocess.PIPE, stdout=subprocess.PIPE) as stranger:
        assert int(stranger.stdout.readline()) > 0
        harness.assert_reason(upload(admin, b"data"), "not implemented")
        stranger.stdin.close()
    assert harness.IMAGE.read_bytes() == b"data"


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
    harness.assert_reason(upload(admin, b"data", field=field), reason)
    assert nothing_left()


def test_the_factory_default_state_discards_an_upload(admin):
    harness.FACTORY_DEFAULT.touch()
    response = upload(admin, b"x" * 300000)
    assert response.header("Content-Type").startswith("text/html")
    assert nothing_left()


def test_a_form_without_a_boundary_is_refused(admin):
    response = harness.http_request(PAGE, "POST", b"x" * 1000, {
        "Content-Type": "multipart/form-data", **harness.as_session(admin)})
    harness.assert_reason(response, "Restricted characters encountered")
    assert nothing_left()

"""The image upload, which goes to flash and never through memory."""

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


@pytest.mark.cgi
def test_uploads_side_by_side_do_not_mix(admin):
    """The second one comes when half of the first is there. Workers see only whole ones."""
    first, second = b"1" * 700_000, b"2" * 900_000
    body, headers = harness.multipart(("UIDQORIN", admin.encode()), ("file", first, "image.bin"))
    headers = {**headers, **harness.as_session(admin)}
    with harness.half_sent(PAGE, "POST", body, headers) as rest, ThreadPoolExecutor(1) as pool:
        harness.wait_until(harness.LEFTOVERS[2].exists, "the first upload")
        other = pool.submit(upload, admin, second)
        harness.wait_until(lambda: other.done() or "-> FLOCK" in Path("/proc/locks").read_text(),
                           "the second upload")
        harness.assert_reason(rest(), "not implemented")
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

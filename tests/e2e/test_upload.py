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
    return not any(path.exists() for path in harness.UPLOADING)


@pytest.mark.parametrize("size", [0, 5_000_003])
def test_an_image_arrives_in_flash(admin, size):
    data = (bytes(range(256)) * 20000)[:size]
    harness.assert_reason(upload(admin, data), "not implemented")
    assert harness.IMAGE.read_bytes() == data
    assert nothing_left()


@pytest.mark.cgi
def test_uploads_side_by_side_do_not_mix(admin):
    """The second one comes when half of the first is there. Workers see only whole ones."""
    first, second = b"1" * 700_000, b"2" * 900_000
    body, headers = harness.multipart(("UIDQORIN", admin.encode()), ("file", first, "image.bin"))
    headers = {**headers, **harness.as_session(admin)}
    with harness.half_sent(PAGE, "POST", body, headers) as rest, ThreadPoolExecutor(1) as pool:
        harness.wait_until(harness.UPLOADING[0].exists, "the first upload")
        other = pool.submit(upload, admin, second)
        harness.wait_until(lambda: other.done() or "-> FLOCK" in Path("/proc/locks").read_text(),
                           "the second upload")
        harness.assert_reason(rest(), "not implemented")
        harness.assert_reason(other.result(), "not implemented")
    assert harness.IMAGE.read_bytes() == second
    assert nothing_left()


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


# Who uploads what, the answer, and the image that is staged then.
@pytest.mark.parametrize("role, more, reason, staged", [
    ("root", {}, "not implemented", b"data"),
    ("root", {"page": "/x/captiveportal_import.html"}, "not implemented", b"data"),
    ("guest-provisioning", {}, harness.NO_PERMISSION, b"earlier"),
    ("root", {"field": ("UIDQORIN", b"wrong")}, "SID Validation failed", b"earlier"),
    ("root", {"field": ("cmd", b"show")}, "SID Validation failed", b"earlier"),
    ("root", {"field": ("opcode", b"heart-beat")}, "not implemented", b"earlier"),
    ("root", {"field": ("opcode", b"nothing")}, "unknown opcode: nothing", b"earlier"),
    ("root", {"file_name": ".."}, "Restricted Filename encountered.", b"earlier"),
    ("root", {"file_name": ""}, "not implemented", b"earlier"),  # no file was chosen
], ids=["page", "other-page", "role", "wrong-token", "no-token", "other-row", "no-row", "file-name", "no-file"])
def test_only_an_upload_page_with_the_token_replaces_the_staged_image(role, more, reason, staged):
    harness.IMAGE.write_bytes(b"earlier")
    harness.assert_reason(upload(harness.add_session(role=role), b"data", **more), reason)
    assert harness.IMAGE.read_bytes() == staged
    assert nothing_left()


def test_a_page_that_comes_without_an_upload_leaves_the_staged_image(admin):
    harness.IMAGE.write_bytes(b"earlier")
    for path in ("/v1/nowhere?opcode=wms-os-upload.html&UIDQORIN=" + admin, PAGE + "?UIDQORIN=" + admin):
        answer = harness.http_request(path, headers=harness.as_session(admin))
        harness.assert_reason(answer, "not implemented")
    assert harness.IMAGE.read_bytes() == b"earlier"


def test_an_image_that_cannot_be_stored_is_refused(admin):
    harness.IMAGE.mkdir()
    harness.assert_reason(upload(admin, b"data"), "Unable to store the image.")
    harness.assert_logged("rename failed (21) on os_image file.")
    assert harness.IMAGE.is_dir() and nothing_left()


@pytest.mark.cgi
def test_what_a_killed_upload_left_is_removed_by_the_next_one(admin):
    harness.IMAGE.write_bytes(b"earlier")
    body, headers = harness.multipart(("UIDQORIN", admin.encode()), ("file", bytes(700_000), "image.bin"))
    environment = harness.cgi_variables(PAGE, {
        "REQUEST_METHOD": "POST", "QORIN_AUTH_SESSION_ID": admin, "CONTENT_LENGTH": str(len(body)),
        "CONTENT_TYPE": headers["Content-Type"]})
    with subprocess.Popen([harness.PROGRAM], env=environment, stdin=subprocess.PIPE) as program:
        program.stdin.write(body[:300_000])
        program.stdin.flush()
        harness.wait_until(harness.UPLOADING[0].exists, "an upload under way")
        program.kill()
    for path in harness.UPLOADING[1:]:
        path.write_bytes(b"of one that was killed later")
    assert harness.UPLOADING[0].exists() and harness.IMAGE.read_bytes() == b"earlier"
    harness.assert_reason(upload(admin, b"data", field=("UIDQORIN", b"wrong")), "SID Validation failed")
    assert harness.IMAGE.read_bytes() == b"earlier" and nothing_left()


def test_the_factory_default_state_discards_an_upload(admin):
    harness.FACTORY_DEFAULT.touch()
    harness.IMAGE.write_bytes(b"earlier")
    response = upload(admin, b"x" * 300000)
    assert response.header("Content-Type").startswith("text/html")
    assert harness.IMAGE.read_bytes() == b"earlier" and nothing_left()

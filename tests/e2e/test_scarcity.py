"""Little memory, a full or read-only flash, few descriptors, bodies that end early. Each request is
answered whole, as the one that it was refused for says, and leaves nothing behind."""

import contextlib
import os
import re
import resource
import socket
import ssl
import struct
import subprocess
from pathlib import Path
from urllib.parse import urlsplit

import pytest

import harness

PAGE = "/screens/cmnutil/wms-os-upload.html"
PORTAL = "/screens/auth/captiveportal_import.html"
POSTGRES_LOG = Path("/run/wms/postgres.out")
REPORTS = Path("/flash/upload/custom-reports.xml")
SPOOLED = harness.UPLOADING
MIB = 1 << 20
LOW = "<![CDATA[System has low free memory and/or low free disk space. Please delete unwanted files by " \
      "accessing WebUI Diagnostics > Technical Support > Delete Files, reload the controller to recover " \
      "free memory and try uploading the image again. If it fails again, try other upgrade options.]]>"
READ_ERROR = "Read Error encountered."
NO_MEMORY = "Memory allocation failure"
DONE = "not implemented"  # by the page, which gets the upload only when all of it was stored


def upload_form(sid, data):
    return harness.multipart(("UIDQORIN", sid.encode()), ("file", data, "image.bin"))


def upload(sid, data, page=PAGE):
    body, headers = upload_form(sid, data)
    return harness.http_request(page, "POST", body, {**headers, **harness.as_session(sid)})


def posted(sid, content_type, length):
    return {"QORIN_AUTH_SESSION_ID": sid, "REQUEST_METHOD": "POST", "CONTENT_TYPE": content_type,
            "CONTENT_LENGTH": str(length)}


def assert_nothing_left():
    assert not [path for path in (harness.IMAGE, *SPOOLED) if path.exists()]
    assert [path.name for path in REPORTS.parent.iterdir()] in ([], [REPORTS.name])


def runs():
    return subprocess.run(["pgrep", "-x", "wms.cgi"], stdout=subprocess.DEVNULL, check=False).returncode == 0


@contextlib.contextmanager
def mounted(*arguments):
    """A mount for the time of a test; all who live in the sandbox see it."""
    subprocess.run(["mount", *map(str, arguments)], check=True)
    try:
        yield
    finally:
        subprocess.run(["umount", "--lazy", str(arguments[-1])], check=True)


@contextlib.contextmanager
def flash(size, read_only=False):
    with mounted("-t", "tmpfs", "-o", "size=%d" % size, "flash", "/flash"):
        for name in ("config", "upload"):
            Path("/flash", name).mkdir()
        REPORTS.write_bytes(b"<old/>")
        if read_only:
            subprocess.run(["mount", "-o", "remount,ro", "/flash"], check=True)
        yield


# ---- flash

@pytest.mark.parametrize("size, read_only, data, reason, line", [
    pytest.param(4 * MIB, False, 5 * MIB, LOW,
                 "Current free flash space (3 MB) is too low. System needs 11 MB", id="room-for-neither"),
    pytest.param(4 * MIB, False, 2 * MIB, DONE, None, id="room-for-one-spooled-in-memory"),
    pytest.param(9 * MIB, True, 2 * MIB, READ_ERROR, "open failed (30) on post.data file. usetmp: 0",
                 id="read-only"),
    pytest.param(4 * MIB, True, 2 * MIB, READ_ERROR, "open failed (30) on os_image file.",
                 id="read-only-spooled-in-memory"),
])
def test_an_upload_to_a_flash_that(admin, size, read_only, data, reason, line):
    with flash(size, read_only):
        harness.assert_reason(upload(admin, bytes(data)), reason)
        if reason == DONE:
            assert harness.IMAGE.stat().st_size == data
            harness.IMAGE.unlink()
        assert_nothing_left()
        assert REPORTS.read_bytes() == b"<old/>"
    if line:
        harness.assert_logged(line)


def test_a_flash_that_fills_while_an_upload_arrives(admin):
    body, headers = upload_form(admin, bytes(2 * MIB))
    environment = harness.cgi_variables(PAGE, posted(admin, headers["Content-Type"], len(body)))
    with flash(6 * MIB), subprocess.Popen([harness.PROGRAM], env=environment, stdin=subprocess.PIPE,
                                          stdout=subprocess.PIPE, stderr=subprocess.PIPE) as program:
        program.stdin.write(body[:MIB])
        program.stdin.flush()
        harness.wait_until(lambda: SPOOLED[0].exists() and SPOOLED[0].stat().st_size >= 500000, "the upload under way")
        with pytest.raises(OSError), open("/flash/filler", "wb", buffering=0) as filler:
            while True:
                filler.write(bytes(65536))
        answer, errors = program.communicate(body[MIB:])
        done = subprocess.CompletedProcess([], program.returncode, answer, errors)
        harness.assert_reason(harness.cgi_response(done), READ_ERROR)
        assert_nothing_left()
    harness.assert_logged("write error (28) writing to post.data. usetmp:0")


@pytest.mark.parametrize("size, read_only", [(MIB // 2, False), (9 * MIB, True)], ids=["full", "read-only"])
def test_reports_that_cannot_be_saved_leave_the_old_ones(admin, size, read_only):
    body, headers = harness.multipart(("operand", b"<new/>" * 150000))
    with flash(size, read_only):
        answer = harness.http_request("/screens/wms/cr-save", "POST", body,
                                      {**headers, **harness.as_session(admin)}).text
        assert answer.startswith("<qorin>\n<status>error</status>\n<reason>Internal error!There is only ")
        assert REPORTS.read_bytes() == b"<old/>"
        assert_nothing_left()
        if not read_only:
            REPORTS.write_bytes(bytes(size - 4096))
        loaded = harness.http_request("/screens/wms/cr-load", headers=harness.as_session(admin))
        assert loaded.body == REPORTS.read_bytes()


# ---- memory

@pytest.mark.parametrize("text, page, flash_size, accepted", [
    ("MemAvailable: 61440 kB\n", PAGE, 9, True), ("MemAvailable: 61439 kB\n", PAGE, 9, False),
    ("MemFree: 1 kB\nMemAvailable:   76800 kB\n", PAGE, 4, True), ("MemAvailable: 76799 kB\n", PAGE, 4, False),
    ("MemAvailable: -1 kB\n", PAGE, 9, False), ("", PAGE, 9, False), ("", PORTAL, 9, True),
], ids=["60", "below-60", "75-spooled-in-memory", "below-75", "negative", "unknown", "portal-needs-none"])
def test_an_image_needs_free_memory(admin, tmp_path, text, page, flash_size, accepted):
    figures = tmp_path / "meminfo"
    figures.write_text(text)
    with mounted("--bind", figures, "/proc/meminfo"), flash(flash_size * MIB):
        harness.assert_reason(upload(admin, bytes(2 * MIB), page), DONE if accepted else LOW)
        assert not [path for path in SPOOLED if path.exists()] and harness.IMAGE.exists() == accepted
    if not accepted:
        harness.assert_logged("is too low. System needs %d MB" % (60 if flash_size == 9 else 75))


def little_memory(room):
    """How the program is started with so many bytes beyond what it takes to answer at all. An
    address space is no measure under the sanitizers, whose allocator has a limit of its own; it
    warns where that is met, and a fault would still end the program with another status."""
    if not harness.WHOLE_TABLES:
        return {"ASAN_OPTIONS": "allocator_may_return_null=1:max_allocation_size_mb=%d:log_path=stderr"
                % (room // MIB)}, {}

    def limit(size):
        return {"preexec_fn": lambda: resource.setrlimit(resource.RLIMIT_AS, (size, size))}
    size = next(size for size in range(8 * MIB, 256 * MIB, MIB) if b"unknown opcode" in subprocess.run(
        [harness.PROGRAM], env=harness.cgi_variables("/nowhere"), capture_output=True, check=False,
        **limit(size)).stdout)
    return {}, limit(size + room)


def test_what_needs_more_memory_than_there_is(admin):
    env, keywords = little_memory(3 * MIB)
    command = harness.EXECUTE + "?show%20hostname&UIDQORIN=" + admin
    error = harness.ERROR_DOCUMENT % NO_MEMORY

    def ask(path, body=b"", content_type="text/plain"):
        more = posted(admin, content_type, len(body)) if body else {"QORIN_AUTH_SESSION_ID": admin}
        return harness.cgi_request(path, {**more, **env}, body, **keywords).text

    assert ask(command) == harness.SHOW_HOSTNAME
    assert ask("/screens/cmnutil/execCommandPostReturnResult.xml", b"cmd=show" + b"x" * 8 * MIB) == error
    harness.assert_logged("Unable to malloc (%d) for buffer." % (8 * MIB + 8))
    harness.plan(generate={"kind": "table", "count": 8})
    assert ask(command) == "<re><ERROR>Malloc failed: Cannot allocate memory</ERROR></re>"
    body, headers = upload_form(admin, bytes(8 * MIB))
    assert ask(PAGE, body, headers["Content-Type"]) == harness.ERROR_DOCUMENT % DONE
    assert harness.IMAGE.read_bytes() == bytes(8 * MIB)


# ---- descriptors and files

@pytest.mark.parametrize("limit", range(4, 14))
def test_few_descriptors(admin, limit):
    def ask(path, env=None, body=b""):
        return harness.cgi_request(path, {"QORIN_AUTH_SESSION_ID": admin, **(env or {})}, body, preexec_fn=lambda:
                                   resource.setrlimit(resource.RLIMIT_NOFILE, (limit, limit))).text
    no_socket = "reason>can't connect to db: "
    answer = ask(harness.EXECUTE + "?show%20hostname&UIDQORIN=" + admin)
    assert (answer == harness.SHOW_HOSTNAME or no_socket in answer
            or re.search("<re><ERROR>Failed to (create|connect) socket", answer))
    assert ask("/monitor-summary-data").endswith(("</qorin>\n", "</cli>\n"))
    answer = ask("/wlm-search?class=probes")
    assert "<total>" in answer or no_socket in answer or answer == harness.ERROR_DOCUMENT % "Internal error"
    body, headers = upload_form(admin, b"image")
    answer = ask(PAGE, posted(admin, headers["Content-Type"], len(body)), body)
    assert no_socket in answer or answer in [harness.ERROR_DOCUMENT % reason for reason in (READ_ERROR, LOW, DONE)]
    assert harness.IMAGE.exists() == (answer == harness.ERROR_DOCUMENT % DONE)
    harness.IMAGE.unlink(missing_ok=True)
    assert_nothing_left()


@pytest.mark.parametrize("limit, reason", [(0, READ_ERROR), (102401, READ_ERROR), (400000, DONE)])
def test_files_that_may_not_grow(admin, limit, reason):
    body, headers = upload_form(admin, bytes(300000))
    environment = posted(admin, headers["Content-Type"], len(body))
    response = harness.cgi_request(PAGE, environment, body, preexec_fn=lambda:
                                   resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit)))
    harness.assert_reason(response, reason)
    assert harness.IMAGE.exists() == (reason == DONE)


def ended_without_answer(environment, stdout):
    done = subprocess.run([harness.PROGRAM], env=environment, stdin=subprocess.DEVNULL, stdout=stdout,
                          stderr=subprocess.PIPE, timeout=60, check=False,
                          preexec_fn=None if stdout is not None else lambda: os.close(1))
    return (done.returncode, done.stderr) == (0, b"")


def no_database_connection():
    return harness.sql("SELECT pid FROM pg_stat_activity WHERE datname IS NOT NULL AND "
                       "pid <> pg_backend_pid()") == []


def test_nobody_reads_the_answer(admin):
    """The sockets that the program opens must not stand in for a closed standard output."""
    path = harness.EXECUTE + "?show%20hostname&UIDQORIN=" + admin
    environment = harness.cgi_variables(path, {"QORIN_AUTH_SESSION_ID": admin})
    before = len(POSTGRES_LOG.read_text())
    reader, writer = os.pipe()
    os.close(reader)
    with open("/dev/full", "wb") as full:
        for stdout in (writer, full, None):
            assert ended_without_answer(environment, stdout)
    os.close(writer)
    harness.log_settled()
    assert [line["command"] for line in harness.traffic()] == ["show hostname"] * 3
    harness.wait_until(no_database_connection, "the end of all connections")
    assert "invalid" not in POSTGRES_LOG.read_text()[before:]


@pytest.mark.parametrize("path", [PAGE, "/screens/cmnutil/execCommandPostReturnResult.xml"])
def test_a_closed_standard_input(admin, path):
    environment = posted(admin, "multipart/form-data; boundary=x", 300)
    done = subprocess.run([harness.PROGRAM], env=harness.cgi_variables(path, environment), timeout=60,
                          capture_output=True, preexec_fn=lambda: os.close(0), check=False)
    harness.assert_reason(harness.cgi_response(done), READ_ERROR)
    assert_nothing_left()


# ---- bodies that end early

def reset(sock):
    sock.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


@pytest.mark.parametrize("leave", [lambda sock: None, reset], ids=["closed", "reset"])
@pytest.mark.parametrize("share", [0, 0.001, 0.3, 0.6, 0.999], ids=lambda share: "at-%g" % share)
def test_a_client_that_leaves_while_it_uploads(admin, share, leave):
    body, headers = upload_form(admin, bytes(3 * MIB))
    head = "POST %s HTTP/1.1\r\nHost: wms\r\nContent-Length: %d\r\n" % (PAGE, len(body))
    for name, value in {**headers, **harness.as_session(admin)}.items():
        head += "%s: %s\r\n" % (name, value)
    target = urlsplit(harness.URL)
    with socket.create_connection((target.hostname, target.port), timeout=60) as plain:
        leave(plain)
        with ssl._create_unverified_context().wrap_socket(plain) as client:
            client.sendall(head.encode() + b"\r\n" + body[:int(len(body) * share)])
            harness.wait_until(lambda: runs() and (share < 0.1 or SPOOLED[0].exists()), "the upload under way")
    harness.wait_until(lambda: not runs(), "the end of the program")
    if share >= 0.1:  # before, the server may end the program while it starts
        harness.assert_logged("Invalid argument: Read Error encountered.")
    assert_nothing_left()
    assert harness.execute(admin).text == harness.SHOW_HOSTNAME

"""What other users of the machine may plant: files and links below /tmp, a helper's socket,
datagrams that pretend to be a service's answer."""

import contextlib
import os
import re
import socket
import subprocess
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import pytest

import harness
from test_upload import upload

NOBODY = 65534
HELPER = harness.HELPER_SOCKET
SOURCE = harness.CHECKOUT / "src/platform/paths.h"
PATHS = [Path(text) for text in re.findall(r'"(/tmp/[^"%]+)"', SOURCE.read_text())
         if text != str(HELPER)]
VICTIM = "web 7\n<forged/>\n"  # would raise the log's level, and show in the dashboard


def another_users_file(path, _):
    path.write_text(VICTIM)
    os.chown(path, NOBODY, NOBODY)


PLANTS = {
    "link": lambda path, victim: path.symlink_to(victim),
    "dangling link": lambda path, victim: path.symlink_to(victim.with_suffix(".forged")),
    "second name": lambda path, victim: os.link(victim, path),
    "pipe": lambda path, victim: os.mkfifo(path),
    "folder": lambda path, victim: path.mkdir(),
    "another's file": another_users_file,
}


@pytest.fixture
def victims(tmp_path):
    """A file of root's for each path of the program's below /tmp. The paths are cleared at the end."""
    assert len(PATHS) >= 10
    files = {path: tmp_path / path.name for path in PATHS}
    for victim in files.values():
        victim.write_text(VICTIM)
    yield files
    for path in PATHS:
        path.rmdir() if path.is_dir() and not path.is_symlink() else path.unlink(missing_ok=True)


@contextlib.contextmanager
def flash_too_small_for(size):
    """Room for the body once, but not twice: it is spooled below /tmp."""
    filler = Path("/flash/filler")
    facts = os.statvfs("/flash")
    with filler.open("wb") as file:
        os.posix_fallocate(file.fileno(), 0, facts.f_bavail * facts.f_frsize - size * 3 // 2)
    try:
        yield
    finally:
        filler.unlink()


@pytest.mark.parametrize("plant", PLANTS)
def test_nothing_planted_is_written_read_or_waited_for(admin, victims, plant):
    for path, victim in victims.items():
        PLANTS[plant](path, victim)
    harness.assert_reason(harness.http_request(harness.EXECUTE + "?show&UIDQORIN=wrong",
                                               headers=harness.as_session(admin)),
                          "SID Validation failed")
    dashboard = harness.http_request("/monitor-summary-data", headers=harness.as_session(admin))
    assert "<upgrade></upgrade>\n<tpmcertinitstatus>failed<" in dashboard.text
    image = b"\0image" * 700_000
    with flash_too_small_for(len(image)):
        answer = upload(admin, image).text
    # What may be removed from the spool's path is; a folder is not.
    assert ("not implemented" if plant != "folder" else "Read Error encountered.") in answer
    assert harness.IMAGE.exists() == (plant != "folder")
    assert not harness.log_lines(7)
    assert [victim for victim in victims.values() if victim.read_text() != VICTIM] == []
    assert sorted(path.name for path in next(iter(victims.values())).parent.iterdir()) == sorted(
        path.name for path in victims.values())


@contextlib.contextmanager
def listening(path, uid):
    """A user's service at this path, to which nobody may say anything."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as server:
        os.seteuid(uid)
        try:
            server.bind(str(path))
            server.listen()
        finally:
            os.seteuid(0)
        try:
            yield
        finally:
            path.unlink(missing_ok=True)
        server.setblocking(False)
        with contextlib.suppress(BlockingIOError):
            while True:
                assert server.accept()[0].recv(4096) == b""


# What takes the helper's place: the service of this user, bound to this path, and in what way; and
# what the program says of it.
BESIDE = Path("/tmp/beside.sock")
DENIED = "Permission denied"
HELPERS = {
    "another's socket": (NOBODY, HELPER, lambda: None, DENIED),
    "another's socket, renamed": (NOBODY, BESIDE, lambda: BESIDE.rename(HELPER), DENIED),
    "link to another's": (NOBODY, BESIDE, lambda: HELPER.symlink_to(BESIDE), DENIED),
    # A service of root's would pass for the helper.
    "link to root's": (0, BESIDE, lambda: HELPER.symlink_to(BESIDE), DENIED),
    "second name of root's": (0, BESIDE, lambda: os.link(BESIDE, HELPER), DENIED),
    "link to the log": (0, BESIDE, lambda: HELPER.symlink_to("/dev/log"),
                        "Protocol wrong type for socket"),
    "file": (0, BESIDE, lambda: HELPER.write_text(""), "Connection refused"),
}


@pytest.mark.parametrize("planted", HELPERS)
def test_a_planted_helper_socket_learns_nothing(admin, planted):
    uid, path, plant, reason = HELPERS[planted]
    with harness.helper_moved_aside(), listening(path, uid):
        plant()
        harness.assert_cli_error(harness.execute(admin), "Failed to connect socket: " + reason)
        login = harness.post_form("/v1/api/login", {"username": "admin", "password": "wlan-Demo1"})
        assert login.status == 401
    assert harness.traffic() == []
    assert "wlan-Demo1" not in harness.SYSLOG.read_text()


def fast_path_query(sid):
    return "/screens/cmnutil/execFPCliCommand.xml?show%20cpuload&UIDQORIN=" + sid


def ask_fast_path(sid):
    return harness.http_request(fast_path_query(sid), headers=harness.as_session(sid)).text


def test_a_datagram_of_a_stranger_is_no_answer(admin):
    """One comes from another port, one from another address and the service's own port."""
    harness.plan(channel="fast", stranger=b"<forged/>".hex(), output="<re>true</re>")
    assert ask_fast_path(admin) == "<re><SUCCESS></SUCCESS><re>true</re></re>"


def test_the_answer_to_a_request_that_is_gone_reaches_no_other(admin):
    harness.plan(channel="fast", hold=True, output="<re>late</re>")
    script, _, query = fast_path_query(admin).partition("?")
    with subprocess.Popen([harness.PROGRAM], stdin=subprocess.DEVNULL, env={
            "GATEWAY_INTERFACE": "CGI/1.1", "REQUEST_METHOD": "GET", "SCRIPT_NAME": script,
            "QUERY_STRING": query, "QORIN_AUTH_SESSION_ID": admin}) as program:
        harness.order("wait-held")
        program.kill()
    harness.plan(channel="fast", hold=True, output="<re>true</re>")
    with ThreadPoolExecutor() as pool:
        answer = pool.submit(ask_fast_path, admin)
        harness.simctl.order(harness.CONTROL, "wait-held", count=2)
        harness.order("release")
        assert answer.result() == "<re><SUCCESS></SUCCESS><re>true</re></re>"

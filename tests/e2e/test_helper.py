"""The CLI helper is down, is an impostor, or talks nonsense."""

import contextlib
import os
import re
import socket
import struct
import threading

import pytest

import harness

ANSWER = "<re><data>x</data></re>"
REPLY_SIZE = 4 + 4 + len(ANSWER) + 4
NOBODY = 65534


@contextlib.contextmanager
def helper_socket_replaced():
    """The simulator's socket is moved aside; whatever takes its place is removed afterwards."""
    aside = harness.HELPER_SOCKET.with_suffix(".aside")
    harness.HELPER_SOCKET.rename(aside)
    try:
        yield
    finally:
        harness.HELPER_SOCKET.unlink(missing_ok=True)
        aside.rename(harness.HELPER_SOCKET)


def serve_one(uid, tell_ready, write_end):
    os.setgroups([])
    os.setgid(uid)
    os.setuid(uid)
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as server:
        server.bind(str(harness.HELPER_SOCKET))
        server.listen(1)
        server.settimeout(30)
        os.write(tell_ready, b"1")
        connection, _ = server.accept()
        with connection:
            os.write(write_end, connection.recv(4096))


@contextlib.contextmanager
def listener_of(uid):
    """A listening socket at the helper's path, made by another user; gives the first bytes it got."""
    read_end, write_end = os.pipe()
    ready, tell_ready = os.pipe()
    child = os.fork()
    if child == 0:
        try:
            serve_one(uid, tell_ready, write_end)
        finally:
            os._exit(0)
    os.close(write_end)
    os.close(tell_ready)
    try:
        assert os.read(ready, 1) == b"1"
        yield lambda: os.read(read_end, 65536)
    finally:
        os.waitpid(child, 0)
        os.close(read_end)
        os.close(ready)


def test_no_helper(admin):
    with helper_socket_replaced():
        harness.assert_cli_error(harness.execute(admin),
                                 "Failed to connect socket: No such file or directory")


def test_a_helper_that_refuses(admin):
    with helper_socket_replaced():
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as dead:
            dead.bind(str(harness.HELPER_SOCKET))
        harness.assert_cli_error(harness.execute(admin),
                                 "Failed to connect socket: Connection refused")


def test_a_helper_of_another_user_learns_nothing(admin):
    with helper_socket_replaced(), listener_of(NOBODY) as received:
        harness.assert_cli_error(harness.execute(admin), "Failed to connect socket: Permission denied")
        assert received() == b""


def test_no_password_goes_to_a_helper_of_another_user():
    with helper_socket_replaced(), listener_of(NOBODY) as received:
        response = harness.post_form("/v1/api/login", {"username": "admin", "password": "wlan-Demo1"})
        assert response.status == 401
        assert received() == b""


def test_a_reply_that_ends_early_wherever_it_ends(admin):
    for size in range(REPLY_SIZE):
        harness.plan(output=ANSWER, close_after=size)
        harness.assert_cli_error(harness.execute(admin), "Failed to read socket: Success")


@pytest.mark.parametrize("chunk", [1, 3])
def test_a_reply_in_small_pieces(admin, chunk):
    harness.plan(chunk=chunk)
    assert harness.execute(admin).text == harness.SHOW_HOSTNAME


READ_FAILURE = "Failed to read socket: .*"


@pytest.mark.parametrize("lie, pattern", [
    ({"output_length": len(ANSWER) + 5}, READ_FAILURE),
    ({"output_length": 0x7FFFFFFF}, "(Failed to read socket|Malloc failed): .*"),
    ({"output": "", "message": "late", "message_length": 5}, READ_FAILURE),
    ({"output": "", "message": "m" * 1024}, READ_FAILURE),
    ({"output": "", "message": "m" * 1023}, "m{1023}"),
    ({"output": "", "message": "", "message_length": 0x7FFFFFFF}, READ_FAILURE),
])
def test_a_length_that_lies(admin, lie, pattern):
    harness.plan(**{"output": ANSWER, "message": "", **lie})
    harness.assert_cli_error_like(harness.execute(admin), pattern)


@pytest.mark.parametrize("keys", [
    {"output_length": -1}, {"output_length": 0x80000000}, {"output_length": 0},
    {"message_length": -1}, {"message_length": 0x80000000},
])
def test_a_length_of_nothing_is_no_failure(admin, keys):
    harness.plan(**{"output": "", "message": "", **keys})
    assert harness.execute(admin).body == b""


def test_a_reply_with_zero_bytes_and_every_other_byte(admin):
    raw = bytes(range(256)) * 4
    reply = struct.pack(">II", 0, len(raw)) + raw + struct.pack(">I", 0)
    harness.plan(raw=reply.hex())
    assert harness.execute(admin).status == 200
    assert harness.execute(admin).text == harness.SHOW_HOSTNAME


def test_a_long_reply_comes_whole(admin):
    text = "<re>" + "<data>0123456789</data>" * 200000 + "</re>"
    harness.plan(output=text)
    assert harness.execute(admin).text == text


def test_a_late_reply_holds_up_nobody_else(admin, reader):
    harness.plan(hold=True)
    late = []
    thread = threading.Thread(target=lambda: late.append(harness.execute(admin).text))
    thread.start()
    harness.order("wait-held")
    assert harness.execute(reader).text == harness.SHOW_HOSTNAME
    assert late == []
    harness.order("release")
    thread.join()
    assert late == [harness.SHOW_HOSTNAME]


def test_a_helper_that_hangs_up_at_once(admin):
    harness.plan(refuse=True)
    response = harness.execute(admin)
    assert re.fullmatch("<re><ERROR>Failed to (read|write) socket: .*</ERROR></re>", response.text)

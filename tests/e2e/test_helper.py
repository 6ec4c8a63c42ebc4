"""The CLI helper is down, is an impostor, or talks nonsense."""

import contextlib
import os
import re
import socket
import threading

import pytest

import harness

NOBODY = 65534
ANSWER = "<re><data>x</data></re>"


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


@contextlib.contextmanager
def listener_of(uid):
    """A listening socket at the helper's path, made by another user; gives what a client left."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as server:
        os.seteuid(uid)
        try:
            server.bind(str(harness.HELPER_SOCKET))
            server.listen(1)
        finally:
            os.seteuid(0)
        server.settimeout(30)
        yield lambda: server.accept()[0].recv(4096)


def test_no_helper(admin):
    with helper_socket_replaced():
        harness.assert_cli_error(harness.execute(admin),
                                 "Failed to connect socket: No such file or directory")


def test_a_helper_of_another_user_learns_nothing(admin):
    with helper_socket_replaced(), listener_of(NOBODY) as received:
        harness.assert_cli_error(harness.execute(admin), "Failed to connect socket: Permission denied")
        assert received() == b""


def test_no_password_goes_to_a_helper_of_another_user():
    with helper_socket_replaced(), listener_of(NOBODY) as received:
        response = harness.post_form("/v1/api/login", {"username": "admin", "password": "wlan-Demo1"})
        assert (response.status, received()) == (401, b"")


def test_a_reply_that_ends_early_wherever_it_ends(admin):
    for size in range(4 + 4 + len(ANSWER) + 4):
        harness.plan(output=ANSWER, close_after=size)
        harness.assert_cli_error(harness.execute(admin), "Failed to read socket: Success")


@pytest.mark.parametrize("lie", [
    {"output_length": len(ANSWER) + 5}, {"output_length": 0x7FFFFFFF},
    {"output": "", "message": "late", "message_length": 5},
    {"output": "", "message_length": 0x7FFFFFFF}])
def test_a_length_that_lies(admin, lie):
    harness.plan(**{"output": ANSWER, "message": "", **lie})
    harness.assert_cli_error_like(harness.execute(admin), "(Failed to read socket|Malloc failed): .*")


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


def test_a_message_fits_or_is_a_failure(admin):
    for size, answer in ((1023, "m" * 1023), (1024, "Failed to read socket: Success")):
        harness.plan(output="", message="m" * size)
        harness.assert_cli_error(harness.execute(admin), answer)

"""The services around the program, stopped, killed and started again; and what a request must not
leave behind."""

import contextlib
import os
import signal
import subprocess
from dataclasses import dataclass
from pathlib import Path

import harness

PATIENCE = 60
# What may lie here afterwards: the trace of errors, the helper's socket, what pytest makes.
FOLDERS = (Path("/tmp"), Path("/flash"))
LASTING = ("/tmp/ooo", "/tmp/cli-helper.sock", "/tmp/pytest-of-root")


@dataclass
class Process:
    parent: int
    name: str
    arguments: list


def processes():
    """By their ids; without those that have ended and wait to be reaped."""
    found = {}
    for folder in Path("/proc").glob("[0-9]*"):
        with contextlib.suppress(OSError):
            name, _, rest = (folder / "stat").read_text().partition("(")[2].rpartition(") ")
            arguments = os.fsdecode((folder / "cmdline").read_bytes()).split("\0")[:-1]
            state, parent = rest.split()[:2]
            if state != "Z":
                found[int(folder.name)] = Process(int(parent), name, arguments)
    return found


class Service:
    """A service of the sandbox, known by one of its arguments. Whatever is done to it, in the end
    it runs again with the arguments, the user and the output that it had."""

    def __init__(self, argument, is_ready):
        self._argument, self._is_ready = argument, is_ready

    def pid(self):
        return next(pid for pid, process in processes().items()
                    if self._argument in process.arguments)

    def _end(self, number):
        """Killed, it takes its children along, which would outlive it for a while."""
        pid = self.pid()
        family = {pid} | {child for child, process in processes().items() if process.parent == pid}
        for member in family if number == signal.SIGKILL else {pid}:
            with contextlib.suppress(ProcessLookupError):
                os.kill(member, number)
        harness.wait_until(lambda: family.isdisjoint(processes()), "the end of " + self._argument)

    def _starter(self):
        pid = self.pid()
        here = Path("/proc/%d" % pid)
        line, owner = processes()[pid].arguments, here.stat()
        folder, output = os.readlink(here / "cwd"), os.readlink(here / "fd/1")

        def start(*more):
            with open(output, "ab") as log:
                subprocess.Popen([*line, *more], cwd=folder, user=owner.st_uid, group=owner.st_gid,
                                 extra_groups=[], stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                 start_new_session=True)
            harness.wait_until(self._is_ready, self._argument + " serves again")
        return start

    @contextlib.contextmanager
    def stopped(self, number=signal.SIGINT):
        start = self._starter()
        self._end(number)
        try:
            yield
        finally:
            start()

    @contextlib.contextmanager
    def with_arguments(self, *more):
        start = self._starter()
        self._end(signal.SIGINT)
        try:
            start(*more)
            yield
            self._end(signal.SIGINT)
        finally:
            start()


def _succeeds(*command):
    return subprocess.run(command, capture_output=True, timeout=PATIENCE, check=False).returncode == 0


def _controller_answers():
    with contextlib.suppress(OSError):
        return "pending" in harness.order("pending")
    return False


POSTGRES = Service("/run/postgresql/data", lambda: _succeeds("psql", "-Xqc", "SELECT 1", "wms"))
CONTROLLER = Service("sim/controller.py", _controller_answers)


def files():
    return {str(path) for folder in FOLDERS for path in folder.rglob("*")
            if not str(path).startswith(LASTING)}


def _is_quiet(sockets):
    return (not any(process.name == "wms.cgi" for process in processes().values())
            and len(os.listdir("/proc/%d/fd" % CONTROLLER.pid())) <= sockets
            and harness.sql("SELECT count(*) FROM pg_stat_activity WHERE usename = 'root' "
                            "AND pid <> pg_backend_pid()") == [["0"]])


@contextlib.contextmanager
def nothing_left_behind():
    """No process of the program, no connection to the database or the controller, no file."""
    before, sockets = files(), len(os.listdir("/proc/%d/fd" % CONTROLLER.pid()))
    yield
    harness.wait_until(lambda: _is_quiet(sockets), "the end of all processes and connections")
    assert files() == before

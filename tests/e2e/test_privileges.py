"""What the program, root that it is, gave up when a request reaches it, as seen from outside."""

import errno
import json
import os
import subprocess
import threading
import xml.etree.ElementTree as ET
from pathlib import Path

import pytest

import harness

NOBODY = 65534
TOOL = Path("/vantor/bin/softwareVersion")
BITS = {"CHOWN": 0, "DAC_OVERRIDE": 1, "DAC_READ_SEARCH": 2, "FOWNER": 3, "FSETID": 4, "KILL": 5, "SETGID": 6,
        "SETUID": 7, "SETPCAP": 8, "NET_BIND_SERVICE": 10, "NET_RAW": 13, "IPC_OWNER": 15, "SYS_NICE": 23,
        "SYS_RESOURCE": 24, "AUDIT_WRITE": 29}
TOOLS = sum(1 << bit for bit in BITS.values())
OWN = sum(1 << BITS[name] for name in ("DAC_OVERRIDE", "FOWNER", "IPC_OWNER"))

# Calls that root may make without any capability, by their numbers on x86-64; of the last three, the second
# makes a user namespace, and the third is getpid of another architecture.
CALLS = {"ptrace": [101, 0, 0], "keyctl": [250, 0, 0], "userfaultfd": [323, 1], "io_uring_setup": [425, 0, 0],
         "unshare": [272, 0x10000000], "clone": [56, 0x10000011, 0, 0, 0, 0], "x32": [0x40000027]}
# Stands in for the controller's version tool, and tells what it finds.
PROBE = """#!/usr/bin/python3
import ctypes, json, os
libc = ctypes.CDLL(None, use_errno=True)
found = dict(line.split(":\\t") for line in open("/proc/self/status").read().splitlines() if ":\\t" in line)
for name, numbers in %r.items():
    ctypes.set_errno(0)
    child = libc.syscall(*map(ctypes.c_long, numbers))
    if name == "clone" and child == 0:
        os._exit(0)
    found[name] = ctypes.get_errno()
print(json.dumps(found))
""" % CALLS


def capabilities(status):
    return {name[3:]: int(value, 16) for name, value in status.items() if name.startswith("Cap")}


def status_of(pid):
    return dict(line.split(":\t", 1) for line in Path("/proc/%s/status" % pid).read_text().splitlines()
                if ":\t" in line)


def bounding():
    return TOOLS & capabilities(status_of("self"))["Bnd"]


@pytest.fixture
def held_program(admin):
    """The id of a program that waits for the answer to a command."""
    harness.plan(hold=True)
    thread = threading.Thread(target=harness.cgi_request, args=(
        "%s?show&UIDQORIN=%s" % (harness.EXECUTE, admin), {"QORIN_AUTH_SESSION_ID": admin}))
    thread.start()
    harness.order("wait-held")
    yield subprocess.check_output(["pgrep", "-x", "wms.cgi"], text=True).strip()
    harness.order("release")
    thread.join()


def test_a_request_is_served_with_the_rights_to_files_alone(held_program):
    status = status_of(held_program)
    assert capabilities(status) == {"Inh": 0, "Prm": OWN, "Eff": OWN, "Bnd": bounding(), "Amb": 0}
    assert status["Seccomp"] == "2"
    memory = ["head", "-c1", "/proc/%s/mem" % held_program]
    for prefix, answer in (([], "Input/output error"), (["setpriv", "--bounding-set=-sys_ptrace"], "denied")):
        assert answer in subprocess.run(prefix + memory, capture_output=True, text=True, check=False).stderr


def test_a_tool_that_it_starts_can_do_what_tools_do_and_no_more(admin):
    aside = TOOL.rename(TOOL.with_suffix(".aside"))
    try:
        TOOL.write_text(PROBE)
        TOOL.chmod(0o755)
        document = harness.http_request("/monitor-summary-data?operand=controller-summary",
                                        headers=harness.as_session(admin))
    finally:
        aside.rename(TOOL)
    items = {item.findtext("cmd"): item.findtext("result") for item in ET.fromstring(document.body).iter("cli")}
    found = json.loads(items["show version"])
    assert capabilities(found) == {"Inh": 0, "Prm": bounding(), "Eff": bounding(), "Bnd": bounding(), "Amb": 0}
    left_out = {"ptrace"} if os.environ.get("WMS_PRESET") == "asan" else set()
    assert {name for name in CALLS if found[name] != errno.EPERM} == left_out


def test_files_of_other_users_are_still_within_reach(admin):
    trace = Path("/tmp/ooo")
    trace.touch(0o600)
    os.chown(trace, NOBODY, NOBODY)
    harness.http_request(harness.EXECUTE + "?show&UIDQORIN=wrong", headers=harness.as_session(admin))
    assert "UIDQORIN do not match" in trace.read_text() and trace.stat().st_mode & 0o777 == 0o666

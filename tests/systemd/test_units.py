"""The units of deploy/ as systemd runs them: requests of each kind are served by one worker that has given
up what its unit takes away, and the units themselves are valid. boot.sh has booted the systemd."""

import re
import subprocess
import sys
from pathlib import Path
from urllib.parse import urlencode

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "e2e"))
import fcgi  # noqa: E402
import harness  # noqa: E402

DEPLOY = harness.CHECKOUT / "deploy"
WORKER = "wms@1.service"
LOGIN = {"username": "admin", "password": "wlan-Demo1"}
# What a program of the unit can do before it narrows itself further; tools do the last ones.
PROBES = {
    "touch /vantor/bin/probe": False, "mount -t tmpfs probe /tmp": False,
    "unshare --mount true": False, "hostname probe": False, "nsenter -t 1 -m true": False,
    "touch /flash/probe /run/probe /tmp/probe": True, "cat /proc/meminfo": True, "date": True,
    "chown nobody /tmp/probe": True, "setpriv --reuid=nobody --regid=nogroup --clear-groups id": True,
    "rm /flash/probe /run/probe /tmp/probe": True}


def run(*command):
    done = subprocess.run(command, capture_output=True, text=True, timeout=60, check=False)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def main_pid():
    return int(run("systemctl", "show", "-P", "MainPID", WORKER))


@pytest.fixture(scope="module", autouse=True)
def services():
    run("systemctl", "start", "postgresql.service", "wms.socket", WORKER)


def ask(url, sid=None, body=b"", kind="application/x-www-form-urlencoded"):
    variables = {"QORIN_AUTH_SESSION_ID": sid}
    if body:
        variables.update(REQUEST_METHOD="POST", CONTENT_TYPE=kind, CONTENT_LENGTH=str(len(body)))
    connection = fcgi.Connection("/run/wms-workers/fastcgi.sock")
    return harness.response_of(connection.send(url, variables, body).output())


def log_in(more=b""):
    response = ask("/v1/api/login", body=urlencode(LOGIN).encode() + more)
    return re.search('"UIDQORIN":"([^"]+)"', response.text)[1]


def show_hostname(sid, token):
    return ask("%s?show%%20hostname&UIDQORIN=%s" % (harness.EXECUTE, token), sid).text


def test_one_worker_serves_each_kind_of_request():
    worker = main_pid()
    sid = log_in(b"&rest=" + b"x" * (79 << 20))
    assert show_hostname(sid, sid) == harness.SHOW_HOSTNAME
    dashboard = ask("/monitor-summary-data?operand=controller-summary", sid).text
    shown = dict(re.findall(r"<cmd>(systime|show version)</cmd>\s*<result>(.*?)</result>", dashboard, re.DOTALL))
    year = run("date", "+%Y").strip()
    assert year in shown["systime"] and "8.4.0.2" in shown["show version"], dashboard
    image = bytes(range(256)) * 100_000
    body, headers = harness.multipart(("UIDQORIN", sid.encode()), ("file", image, "image.bin"))
    ask("/screens/cmnutil/wms-os-upload.html", sid, body, headers["Content-Type"])
    assert harness.IMAGE.read_bytes() == image
    assert main_pid() == worker


def test_what_a_worker_logs_reaches_the_journal():
    sid = log_in()
    assert show_hostname(sid, "another") != harness.SHOW_HOSTNAME
    run("journalctl", "--sync")
    assert "SID validation failed" in run("journalctl", "-o", "cat", "-u", WORKER)


@pytest.mark.parametrize("end", ["kill", "stop"])
def test_the_next_request_finds_a_worker_again(end):
    worker = main_pid()
    run("systemctl", *{"kill": ["kill", "-s", "KILL"], "stop": ["stop"]}[end], WORKER)
    # A process that is being killed may still accept a connection.
    harness.wait_until(lambda: main_pid() != worker, "its end")
    assert log_in()
    assert main_pid() not in (0, worker)


def given_up(status):
    """The number of a process's filters, and its capabilities."""
    found = dict(re.findall(r"^(\w+):\s*(\w+)$", status, re.MULTILINE))
    return int(found["Seccomp_filters"]), found["CapPrm"].lstrip("0"), found["CapEff"].lstrip("0")


def test_what_the_unit_leaves_to_a_program_and_what_the_worker_gives_up_besides():
    drop_in = Path("/run/wms/units/wms@probe.service.d/probe.conf")
    drop_in.parent.mkdir()
    Path("/run/wms/probe.sh").write_text(
        "cat /proc/self/status\n" + "".join("%s >/dev/null; echo result $?\n" % probe for probe in PROBES))
    drop_in.write_text("[Service]\nType=oneshot\nRestart=no\nStandardInput=null\nExecStart=\n"
                       "StandardOutput=file:/run/wms/probe.out\nExecStart=/bin/sh /run/wms/probe.sh\n")
    run("systemctl", "daemon-reload")
    run("systemctl", "start", "wms@probe.service")
    found = Path("/run/wms/probe.out").read_text()
    results = re.findall(r"^result (\d+)$", found, re.MULTILINE)
    assert {probe: code == "0" for probe, code in zip(PROBES, results, strict=True)} == PROBES
    worker = Path("/proc/%d/status" % main_pid()).read_text()
    assert given_up(worker) == (given_up(found)[0] + 1, "800a", "800a")


def test_the_purge_deletes_what_has_expired():
    harness.sql("DELETE FROM http_session")
    for age in ("1 day", "1 second"):
        harness.add_session(user=age)
        harness.sql("UPDATE http_session SET modified_time = NOW() - interval '%s' WHERE _user = '%s'"
                    % (age, age))
    run("systemctl", "start", "wms-session-purge.service")
    assert harness.sql("SELECT _user FROM http_session") == [["1 second"]]


@pytest.mark.parametrize("unit, exposure", [("systemd/wms@.service", 45), ("purge/wms-session-purge.service", 20)])
def test_a_unit_is_valid_and_gives_up_what_it_can(unit, exposure):
    path = DEPLOY / unit
    assert run("systemd-analyze", "verify", path) == ""
    run("systemd-analyze", "security", "--offline=true", "--threshold=%d" % exposure, path)

"""Entry: helper mode, databases that are down, logging, the factory-default state."""

import contextlib
import os
import re

import pytest

import harness

NOBODY = 65534


@pytest.mark.cgi
@pytest.mark.parametrize("tool", ["moduleStatus", "softwareVersion", "showVersion"])
def test_helper_mode_runs_a_tool(tool):
    done = harness.helper_mode("wuic", tool)
    expected = os.popen("/vantor/bin/" + tool).read()
    assert expected and (done.returncode, done.stdout) == (0, expected)


@pytest.mark.cgi
def test_helper_mode_copies(tmp_path):
    source, target = tmp_path / "from", tmp_path / "to"
    source.write_bytes(bytes(range(256)) * 100)
    target.write_bytes(b"x" * 60000)
    done = harness.helper_mode("wuic", "copy", str(source), str(target))
    assert (done.returncode, done.stdout.rstrip("\n")) == (0, "copying was successful.")
    assert target.read_bytes() == source.read_bytes()
    done = harness.helper_mode("wuic", "copy", str(source), str(source))
    assert (done.returncode, source.stat().st_size) == (0, 25600)
    done = harness.helper_mode("wuic", "copy", str(tmp_path / "absent"), str(tmp_path / "new"))
    assert (done.returncode, done.stdout.rstrip("\n")) == (0, "copying was successful.")
    full = harness.helper_mode("wuic", "copy", str(source), "/dev/full")
    assert full.returncode == 255 and "failed to copy" in full.stdout + full.stderr


@pytest.mark.cgi
@pytest.mark.parametrize("arguments", [
    ["wuic"], ["wuic", "reboot"], ["wuic", "copy", "/etc/passwd"],
    ["wuic", "copy", "/etc/passwd", "/tmp/x", "y"], ["wuic", "softwareVersion", "x"],
])
def test_helper_mode_knows_nothing_else(arguments):
    done = harness.helper_mode(*arguments)
    assert (done.returncode, done.stdout) == (255, "")
    assert "unknown wuic helper command" in done.stderr


@pytest.mark.cgi
def test_arguments_that_a_server_made_of_a_query_are_no_commands(tmp_path):
    target = tmp_path / "copied"
    response = harness.cgi_request("/screens/cmnutil/showArp.xml",
                                   arguments=["wuic", "copy", "/etc/passwd", str(target)])
    harness.assert_reason(response, harness.NO_PERMISSION)
    assert not target.exists()


@contextlib.contextmanager
def database_down(name):
    harness.sql("ALTER DATABASE %s ALLOW_CONNECTIONS false" % name, "postgres")
    harness.end_connections(name)
    try:
        yield
    finally:
        harness.sql("ALTER DATABASE %s ALLOW_CONNECTIONS true" % name, "postgres")


@pytest.mark.parametrize("database, name", [
    ("wms", "WMS db"), ("gapdb", "GAP db"), ("cfgmdb", "CFGM db"), ("userdbv3", "userdbv3 ")])
def test_a_database_that_is_down(admin, database, name):
    with database_down(database):
        response = harness.execute(admin)
    assert response.status == 200
    assert re.fullmatch(harness.ERROR_DOCUMENT % "can't connect to db: .*%s.*" % database,
                        response.text, re.DOTALL)
    harness.assert_logged("can't connect to %s: " % name)
    assert harness.traffic() == []


@pytest.mark.cgi
def test_a_server_whose_literals_keep_backslashes_reads_ours_all_the_same():
    harness.sql("ALTER DATABASE wms SET standard_conforming_strings = on")
    try:
        sid = harness.add_session()
        assert harness.execute(sid).text == harness.SHOW_HOSTNAME
        response = harness.cgi_request(harness.EXECUTE + "?show", {
            "QORIN_AUTH_SESSION_ID": "\\' OR 1=1 --"})
        harness.assert_reason(response, harness.NO_PERMISSION)
    finally:
        harness.sql("ALTER DATABASE wms RESET standard_conforming_strings")


@pytest.mark.parametrize("text, uid, debug, errors", [
    ("web 7\n", 0, True, True), ("x\nweb 7", 0, True, True), ("web 2\n", 0, False, False),
    ("web 7\n", NOBODY, False, True), ("web 8\n", 0, False, True), ("website 7\n", 0, False, True),
])
def test_the_log_level_is_read_from_a_file_of_root_only(text, uid, debug, errors):
    path = harness.Path("/tmp/http_log_level")
    path.write_text(text)
    os.chown(path, uid, uid)
    with database_down("gapdb"):
        harness.http_request("/rac/config")
    connected = [line for line in harness.log_lines(7) if "PQconnectdb() for GAP database" in line]
    assert bool(connected) == debug
    assert bool(harness.log_lines(3)) == errors


def test_refusals_are_traced_but_not_through_a_planted_link(admin, tmp_path):
    victim, trace = tmp_path / "victim", harness.Path("/tmp/ooo")
    victim.write_text("untouched")
    trace.symlink_to(victim)
    refused = harness.EXECUTE + "?show&UIDQORIN=wrong"
    harness.http_request(refused, headers=harness.as_session(admin))
    assert victim.read_text() == "untouched"
    trace.unlink()
    harness.http_request(refused, headers=harness.as_session(admin))
    assert "SID validation failed UIDQORIN do not match" in trace.read_text()
    assert trace.stat().st_mode & 0o777 == 0o666


def setup_page():
    page = harness.http_request("/screens/wms/wms.login")
    cookie = re.match("SESSION=([^;]+);", page.cookies()[0])
    assert page.status == 200 and cookie, page
    assert page.header("Content-Type").startswith("text/html")
    assert "UIDQORIN" in page.text and cookie.group(1) in page.text
    return cookie.group(1)


def test_the_factory_default_state_serves_the_setup_and_nothing_else():
    harness.FACTORY_DEFAULT.touch()
    sid = setup_page()
    assert setup_page() != sid
    for path in ("/screens/cmnutil/showArp.xml", "/v1/api/login", "/rac/config", "/nowhere"):
        assert "UIDQORIN" in harness.http_request(path, headers=harness.as_session(sid)).text
    assert harness.execute(sid).text == harness.SHOW_HOSTNAME
    assert [(line["user"], line["ip"], line["sid"]) for line in harness.traffic()] == [("", "", sid)]
    wrong = harness.http_request(harness.EXECUTE + "?show%20hostname&UIDQORIN=x",
                                 headers=harness.as_session(sid))
    harness.assert_reason(wrong, "SID Validation failed")
    harness.assert_reason(harness.http_request(harness.EXECUTE + "?show%20hostname"),
                          harness.NO_PERMISSION)

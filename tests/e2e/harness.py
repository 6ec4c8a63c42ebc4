"""What the end-to-end tests need of the world: the program over HTTPS, or started by hand as the
HTTP server starts it; the session table; the simulated controller; the log record."""

import contextlib
import http.client
import json
import os
import re
import shutil
import socket
import ssl
import subprocess
import sys
import time
import uuid
from dataclasses import dataclass, field
from pathlib import Path
from urllib.parse import urlencode, urlsplit

CHECKOUT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(CHECKOUT / "sim"))
import simctl  # noqa: E402

URL = os.environ.get("WMS_URL", "https://127.0.0.1:4343")
# Large tables run whole on the release build; under the sanitizers each kind of row runs once.
WHOLE_TABLES = os.environ.get("WMS_PRESET") != "asan"
# How many warm workers serve behind the HTTP server; 0: it starts a program for each request.
WORKERS = int(os.environ.get("WMS_WORKERS", "0"))
PROGRAM = "/vantor/webui/wms/wms.cgi"
HELPER_SOCKET = Path("/tmp/cli-helper.sock")
TRAFFIC = Path("/run/wms/controller.log")
CONTROL = "/run/wms/controller.ctl"
SYSLOG = Path("/run/wms/syslog.log")
FLASH = Path("/flash/config")
FACTORY_DEFAULT = FLASH / "factory-default"
IMAGE = FLASH / "os_image"
UPLOADING = [FLASH / "post.data", Path("/tmp/post.data"), FLASH / "os_image.new"]
LEFTOVERS = [FACTORY_DEFAULT, IMAGE, *UPLOADING, Path("/tmp/ooo"),
             Path("/tmp/http_log_level"), Path("/tmp/httpd_timing"),
             Path("/flash/upload/custom-reports.xml")]

XML_HEAD = b"Content-Type: text/xml\r\nExpires: 0\r\n\r\n"
ERROR_DOCUMENT = "<qorin>\n  <status>Error</status>\n  <reason>%s</reason>\n</qorin>\n"
NO_PERMISSION = "no permission to execute opcode/program."
EXECUTE = "/screens/cmnutil/execCommandReturnResult.xml"
SHOW_HOSTNAME = '<re><data name="Hostname">wc-hq</data></re>\n'


@dataclass
class Response:
    status: int
    headers: list = field(default_factory=list)
    body: bytes = b""

    def header(self, name):
        return "; ".join(value for key, value in self.headers if key.lower() == name.lower())

    def cookies(self):
        return [value for key, value in self.headers if key.lower() == "set-cookie"]

    @property
    def text(self):
        return self.body.decode("utf-8", "surrogateescape")


def connect(timeout=60, context=None):
    target = urlsplit(URL)
    return http.client.HTTPSConnection(target.hostname, target.port, timeout=timeout,
                                       context=context or ssl._create_unverified_context())


def http_request(path, method="GET", body=b"", headers=None):
    """One request over a connection of its own."""
    connection = connect()
    try:
        connection.request(method, path, body=body or None, headers=headers or {})
        reply = connection.getresponse()
        return Response(reply.status, reply.getheaders(), reply.read())
    finally:
        connection.close()


@contextlib.contextmanager
def half_sent(path, method, body, headers):
    """A request of which half the body was sent; calls back for the answer to the whole."""
    with contextlib.closing(connect()) as connection:
        connection.putrequest(method, path)
        for name, value in {**headers, "Content-Length": str(len(body))}.items():
            connection.putheader(name, value)
        connection.endheaders(body[:len(body) // 2])

        def rest():
            connection.send(body[len(body) // 2:])
            reply = connection.getresponse()
            return Response(reply.status, reply.getheaders(), reply.read())
        yield rest


def form_headers(headers=None):
    return {"Content-Type": "application/x-www-form-urlencoded", **(headers or {})}


def post_form(path, fields, headers=None):
    return http_request(path, "POST", urlencode(fields).encode(), form_headers(headers))


def cgi_variables(path="/", env=None):
    """The environment that an HTTP server gives the program. What is given as None is left out."""
    script, _, query = path.partition("?")
    variables = {
        "PATH": "/usr/bin:/bin", "GATEWAY_INTERFACE": "CGI/1.1", "REQUEST_METHOD": "GET",
        "SCRIPT_NAME": script, "REQUEST_URI": path, "QUERY_STRING": query, "HTTPS": "on",
        "REMOTE_ADDR": "192.0.2.7", "REMOTE_PORT": "40000", "SERVER_ADDR": "192.0.2.1",
        "SERVER_PORT": "4343", **(env or {})}
    return {os.fsencode(name): value if isinstance(value, bytes) else os.fsencode(value)
            for name, value in variables.items() if value is not None}


def cgi_request(path="/", env=None, stdin=b"", argv0=PROGRAM, arguments=(), **keywords):
    """Starts the program as an HTTP server does; further keywords are those of subprocess.run."""
    return cgi_response(subprocess.run(
        [argv0, *arguments], executable=PROGRAM, env=cgi_variables(path, env), input=stdin,
        capture_output=True, timeout=60, check=False, **keywords))


def cgi_response(done):
    """The answer of a run that ended as every run must."""
    assert done.returncode == 0, (done.returncode, done.stderr)
    return response_of(done.stdout)


def response_of(output):
    """What a CGI program wrote, as the HTTP server takes it."""
    head, blank, body = output.partition(b"\r\n\r\n")
    assert blank, output
    lines = [line.split(": ", 1) for line in head.decode("latin-1").split("\r\n")]
    headers = [(name, value) for name, value in lines]
    status = int(dict(headers).get("Status", "200")[:3])
    return Response(status, headers, body)


def helper_mode(*arguments, env=None):
    return subprocess.run([PROGRAM, *arguments], env=env or {"PATH": "/usr/bin:/bin"},
                          capture_output=True, text=True, timeout=60, check=False)


def sql(statement, database="wms"):
    """The rows of a statement, each a list of texts."""
    done = subprocess.run(["psql", "-XAtq", "-F", "\x1f", "-v", "ON_ERROR_STOP=1", "-d", database,
                           "-c", statement], capture_output=True, text=True, timeout=60, check=False)
    assert done.returncode == 0, done.stderr
    return [line.split("\x1f") for line in done.stdout.splitlines()]


def end_connections(database):
    """Programs that are warm already open theirs again, with the settings that the database has now."""
    sql("SELECT pg_terminate_backend(pid, 60000) FROM pg_stat_activity WHERE datname = '%s'" % database, "postgres")


def literal(text):
    return "'" + text.replace("'", "''") + "'"


def add_session(user="admin", role="root", ip="198.51.100.9", sid=None):
    """Puts a management session into the table; returns its identifier."""
    sid = str(uuid.uuid4()) if sid is None else sid
    sql("INSERT INTO http_session VALUES (%s, %s, %s, %s, '', NOW(), NOW(), 1, '/')"
        % tuple(map(literal, (sid, ip, user, role))))
    return sid


def session_count():
    return int(sql("SELECT COUNT(*) FROM http_session")[0][0])


def as_session(sid):
    return {"Cookie": "SESSION=" + sid}


def execute(sid, command="show hostname", **keywords):
    """A command line (URL-escaped by the caller) in a session, with its token."""
    return http_request("%s?%s&UIDQORIN=%s" % (EXECUTE, command.replace(" ", "%20"), sid),
                        headers=as_session(sid), **keywords)


def wait_until(condition, what):
    deadline = time.monotonic() + 60
    while not condition():
        assert time.monotonic() < deadline, "waited in vain for " + what
        time.sleep(0.01)


@contextlib.contextmanager
def helper_moved_aside():
    """The socket of the CLI helper is elsewhere; whatever takes its place is removed afterwards."""
    aside = HELPER_SOCKET.with_suffix(".aside")
    HELPER_SOCKET.rename(aside)
    try:
        yield aside
    finally:
        HELPER_SOCKET.unlink(missing_ok=True)
        aside.rename(HELPER_SOCKET)


def plan(**keys):
    simctl.order(CONTROL, "plan", plan=keys)


def order(verb):
    return simctl.order(CONTROL, verb)


def traffic():
    return [json.loads(line) for line in TRAFFIC.read_text().splitlines()]


def log_settled():
    """Everything sent to the log so far is in the record: what is sent last arrives last."""
    mark = "settled %s" % uuid.uuid4()
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sock:
        sock.connect("/dev/log")
        sock.send(mark.encode())
    deadline = time.monotonic() + 30
    while mark not in SYSLOG.read_text():
        assert time.monotonic() < deadline, "the log recorder does not record"
        time.sleep(0.005)


def log_lines(level=3):
    """The logged lines of one level of the controller's facility."""
    log_settled()
    return [line for line in SYSLOG.read_text().splitlines()
            if line.startswith("<%d>" % (376 + level))]


def logins_refused():
    """What the lines about refused logins say, without date and process."""
    log_settled()
    return [re.sub(r"^(<\d+>).{16}(\w+)\[\d+\]: ", r"\1\2: ", line)
            for line in SYSLOG.read_text().splitlines() if "login refused: " in line]


def login_refused(reason, user="admin", address="127.0.0.1"):
    return '<85>wms: login refused: address=%s reason=%s user="%s"' % (address, reason, user)


def assert_logged(text, level=3):
    assert any(text in line for line in log_lines(level)), (text, SYSLOG.read_text())


def assert_reason(response, reason):
    assert response.text == ERROR_DOCUMENT % reason
    assert (response.status, response.header("Content-Type")) == (200, "text/xml")


def assert_cli_error(response, text):
    assert response.text == "<re><ERROR>%s</ERROR></re>" % text


def multipart(*parts, boundary="XyZZy42"):
    """(body, headers) of a form; a part is (name, data) or (name, data, file name)."""
    body = b""
    for name, data, *file in parts:
        body += b'--%s\r\nContent-Disposition: form-data; name="%s"' % (
            boundary.encode(), name.encode())
        if file:
            body += b'; filename="%s"\r\nContent-Type: application/octet-stream' % os.fsencode(
                file[0])
        body += b"\r\n\r\n" + data + b"\r\n"
    body += b"--%s--\r\n" % boundary.encode()
    return body, {"Content-Type": "multipart/form-data; boundary=" + boundary}


def clean_state():
    """Every test begins with no session, a well-behaved controller and empty records."""
    order("reset")
    sql("DELETE FROM http_session")
    for path in LEFTOVERS:
        if path.is_dir() and not path.is_symlink():
            shutil.rmtree(path)
        path.unlink(missing_ok=True)
    log_settled()
    for record in (TRAFFIC, SYSLOG):
        os.truncate(record, 0)

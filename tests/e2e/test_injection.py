"""A text of the client stays a text: in markup, in JSON, in the headers, in SQL, in a command line,
in the log and in the name of a file. Every field that takes one, with every payload."""

import json
import re
import xml.etree.ElementTree as ET
from pathlib import Path
from urllib.parse import quote, urlencode

import pytest

import harness

# A value of this sequence is gone for good, whatever becomes of the statement that took it.
CALL = b"nextval('forged')"
DATABASES = ("wms", "gapdb", "cfgmdb", "userdbv3")
PAYLOADS = [
    b"' || %s || '" % CALL, b"\\' || %s --" % CALL,
    b"<forged a=\"1\"/>", b"]]><forged/><![CDATA[", b"]]>", b"\"'><forged/>",
    b"</re></result></reason></qorin><forged/>", b"&forged;&#60;forged/>&amp;lt;forged/>&amp;",
    b'","forged":"1', b'"}, {"forged": 1}, {"', b"\\", b"%s%n%x%999999d",
    b"x\r\nSet-Cookie: SESSION=forged\r\nX-Forged: 1\r\n\r\n<forged/>",
    b"x\nforged: a line\n<0>forged[1]: a line\n", b"\x1b[2J\x7f\x08forged", b"forged\xff\xfe\x80",
    b"../../../../tmp/forged", b"..\\%2e%2e%2fforged",
    b"`touch /tmp/forged`$(touch /tmp/forged); touch /tmp/forged|touch /tmp/forged &",
    b"wuic:adduser?uid=forged", b"x\r\nwuic:adduser?uid=forged", b"-x --forged", b"forged" * 80,
]
# Where the text goes into a statement, more ways out of its literal, or into a place that has none.
STATEMENTS = re.compile("search|session|user|address")
SQL_PAYLOADS = [
    CALL, b"\\\\' || %s --" % CALL, b"\xbf' || %s --" % CALL, b"$$ || %s || $$" % CALL,
    b"') OR (1=%s) --" % CALL, b"1 OFFSET (SELECT %s)" % CALL, b"%s,asc,name,desc" % CALL,
    b"name,asc; SELECT %s" % CALL,
]
# The internal requests that are the program's own, as far as their beginning decides what they do.
OWN_REQUESTS = ("wuic:auth?uid=", "wuic:exec-query?query=", "wuic:telm?msgType=1&srcIP=",
                "wuic:get-running-config?appid=", "wuic:basic-info")
HEADERS = {"content-security-policy", "x-content-type-options", "referrer-policy", "cross-origin-resource-policy",
           "cache-control", "date", "server", "connection", "keep-alive", "content-length", "transfer-encoding",
           "content-type", "expires"}
FOLDERS = ("/tmp", "/flash", "/vantor", "/root", "/var")
MAY_APPEAR = {Path("/tmp/ooo"), Path("/flash/upload/custom-reports.xml")}
POSTGRES_LOG = Path("/run/wms/postgres.out")
CMNUTIL = "/screens/cmnutil/"


def post(sid, path, body, **headers):
    return harness.http_request(path, "POST", body, harness.form_headers(
        {**harness.as_session(sid), **headers}))


def form(path, field, **others):
    """The text is one field of a form; its session's token is with it."""
    def send(sid, text):
        return post(sid, path, urlencode({**others, field: text, "UIDQORIN": sid}).encode())
    return send


def whole_query(page, frame="%s"):
    """The text, encoded, is all of the query or stands in it."""
    def send(sid, text):
        path = "%s%s?%s&UIDQORIN=%s" % (CMNUTIL, page, frame % quote(text), sid)
        return harness.http_request(path, headers=harness.as_session(sid))
    return send


def configuration(target, method="GET"):
    def send(sid, text):
        body = text if method == "POST" and "%s" not in target else b"{}" * (method == "POST")
        path = "/v1/configuration/" + target.replace("%s", quote(text, safe=""))
        path += ("&" if "?" in path else "?") + "UIDQORIN=" + sid
        return harness.http_request(path, method, body, harness.as_session(sid))
    return send


def ports(frame):
    def send(sid, text):
        body = "%s&UIDQORIN=%s" % (frame % quote(text), sid)
        return post(sid, CMNUTIL + "execMultipleCommands.xml", body.encode())
    return send


def variable(name, **others):
    """The HTTP server's word: it never says such things, but nothing relies on that."""
    def send(sid, text):
        return harness.cgi_request(others.get("path", "/x/login"), {
            "QORIN_AUTH_SESSION_ID": sid, "REQUEST_METHOD": others.get("method", "GET"),
            "CONTENT_TYPE": "application/x-www-form-urlencoded",
            "CONTENT_LENGTH": str(len(others.get("body", b""))), name: text},
            others.get("body", b""))
    return send


def login(user=None, password=None, reply="role=read-only&path=/"):
    """As one whom the controller takes for good. Its word of him, coded twice, may be the text."""
    def send(_, text):
        value = {None: b"x", "text": text}
        harness.plan(match="wuic:auth?",
                     output=reply.replace("%s", quote(quote(text, safe=""))))
        response = post("", "/v1/api/login", urlencode({
            "username": value[user], "password": value[password]}).encode())
        harness.order("reset")  # what does not fit is not asked for
        return response
    return send


def session_of(column, path):
    def send(_, text):
        values = {"user": "u", "role": "root", "ip": "192.0.2.1", column: text}
        values = {name: value.decode("utf-8", "replace") if isinstance(value, bytes) else value
                  for name, value in values.items()}
        return harness.http_request(path, headers=harness.as_session(harness.add_session(**values)))
    return send


def upload(text_of):
    def send(sid, text):
        disposition, kind = text_of(text)
        body = (b'--b\r\nContent-Disposition: form-data; name="' + disposition
                + b'"\r\nContent-Type: ' + kind + b"\r\n\r\nx\r\n--b--\r\n")
        kind_of_form = {"Content-Type": "multipart/form-data; boundary=b"}
        return post(sid, "/x/plog-export", body, **kind_of_form)
    return send


LOGIN_BODY = b"username=x&password=x"
SEARCH = {"class": "probes", "page-size": "10"}
XML, JSON, ANY = "xml", "json", "any"  # what the answer is read as; ANY is the client's own text
TARGETS = {
    "opcode": (XML, form("/screens/wms/wms.login", "opcode")),
    "program name": (XML, variable("SCRIPT_NAME")),
    "request URI": (XML, variable("REQUEST_URI")),
    "method": (XML, variable("REQUEST_METHOD")),
    "query": (XML, variable("QUERY_STRING")),
    "session identifier": (XML, variable("QORIN_AUTH_SESSION_ID", path="/x/get-permissions")),
    "token": (XML, variable("QUERY_STRING", path="/x/cli")),
    "content type": (XML, variable("CONTENT_TYPE", method="POST", body=b"a=b")),
    "content length": (XML, variable("CONTENT_LENGTH", method="POST")),
    "command": (XML, whole_query("execCommandReturnResult.xml")),
    "posted command": (XML, form(CMNUTIL + "execCommandPostReturnResult.xml", "cmd")),
    "command of a list": (XML, whole_query("execCommandsReturnResult.xml", "a,%s,b")),
    "simple command": (XML, whole_query("execSimple.xml")),
    "fast command": (XML, whole_query("execFPCliCommand.xml")),
    "port": (XML, ports("g%s;?x")),
    "command on a port": (XML, ports("g1;?%s")),
    "database query": (XML, form(CMNUTIL + "execUiQuery.xml", "query")),
    "monitored address": (XML, form(CMNUTIL + "telm", "srcIP", msgType="1")),
    "application": (XML, whole_query("getRunningConfig.xml")),
    "dashboard's view": (XML, form("/monitor-summary-data", "operand")),
    "configuration kind": (JSON, configuration("object%s/ntp")),
    "configuration name": (JSON, configuration("object/%s")),
    "changed name": (JSON, configuration("object/%s", "POST")),
    "configuration path": (JSON, configuration("object/ntp?config_path=%s", "POST")),
    "file name": (JSON, configuration("object/fileUpload?file_name=%s", "POST")),
    "configuration query": (JSON, configuration("object/ntp?%s")),
    "show command": (JSON, configuration("showcommand?command=%s")),
    "configuration": (JSON, configuration("object/ntp", "POST")),
    "user name": (JSON, login(user="text")),
    "password": (JSON, login(password="text")),
    "user's path": (JSON, login(reply="role=read-only&path=%s")),
    "user's role": (JSON, login(reply="role=%s&path=/")),
    "client's address": (JSON, variable("REMOTE_ADDR", path="/v1/api/login", method="POST",
                                        body=LOGIN_BODY)),
    "session's user": (XML, session_of("user", "/x/get-permissions")),
    "session's role": (XML, session_of("role", "/x/clientinfo.xml")),
    "session's address": (XML, session_of("ip", CMNUTIL + "getRolePolicy.xml")),
    "report": (XML, form("/cr-save", "operand")),
    "table": (ANY, form("/plog-export", "operand")),
    "table's type": (ANY, form("/plog-export", "type", operand="x")),
    "table's file": (ANY, form("/plog-export", "fname", operand="x")),
    "part's name": (ANY, upload(lambda text: (text, b"x"))),
    "part's file name": (ANY, upload(lambda text: (b'operand"; filename="' + text, b"x"))),
    "part's kind": (ANY, upload(lambda text: (b'operand"; filename="f', text))),
    **{"search's " + word: (XML, form("/wlm-search", word, **SEARCH)) for word in (
        "class", "location", "type", "apgroup", "name", "ip", "status", "role", "start",
        "page-size", "sort-criteria")},
    **{"monitor search's " + word: (XML, form("/wlm-search", word, **{**SEARCH, "class": "amii"}))
       for word in ("location", "name", "sort-criteria")},
}
# Words of these choose a column; what is none makes a query that the server refuses, as specified.
REFUSED_BY_THE_SERVER = re.compile("location|sort-criteria")
DOWNLOADS = {"content-disposition"}
LOGINS = {"set-cookie"}
COOKIE = re.compile("(SESSION=[0-9a-f-]{36}|=\\(null\\)); path=/;secure=;|"
                    "CPnextpin=; path=/; expires=Sat, 01-Jan-1970 00:00:00 GMT;")


@pytest.fixture(scope="module", autouse=True)
def traps():
    for name in DATABASES:
        harness.sql("CREATE SEQUENCE forged", name)
    yield
    for name in DATABASES:
        harness.sql("DROP SEQUENCE forged", name)


def files():
    return {path for folder in FOLDERS for path in Path(folder).rglob("*")}


def printable(body):
    """Bytes that no XML may hold are passed on as they come; the reader must not see them."""
    text = re.sub(rb"[\x00-\x08\x0b-\x1f]", b"?", body).decode("utf-8", "replace")
    return re.sub("[\ufffe\uffff]", "?", text)


def check_answer(kind, response):
    names = {name.lower() for name, _ in response.headers} - HEADERS
    extra = {JSON: LOGINS, ANY: DOWNLOADS}.get(kind, set())
    assert names - {"status"} <= extra, response.headers
    assert all(COOKIE.fullmatch(value) for value in response.cookies())
    assert not any("forged" in value.lower() for _, value in response.headers)
    if kind == JSON and response.body:
        assert "forged" not in json.loads(response.body)
    elif kind == XML:
        assert b"<forged" not in response.body
        if b"ERROR:  " not in response.body:  # the database's, behind a part of the document
            ET.fromstring(printable(response.body) or "<empty/>")


def check_commands():
    for line in harness.traffic():
        command = line.get("command", "")
        assert not re.match(r"\s*wuic:", command, re.I) or command.startswith(OWN_REQUESTS), line
        if command.startswith("operation=set"):  # its data, at the end, have lines
            command = command.partition("&data=")[0]
        assert not re.search("[\r\n]", command), line


def check_logs():
    """The record has one line a message, with what is no text escaped."""
    harness.log_settled()
    for line in harness.SYSLOG.read_text().splitlines():
        text = line.removesuffix("\\x0a").replace("\\\\", "")
        assert not re.search(r"\\x(0[0-8a-f]|1.|7f)", text), line
    trace = Path("/tmp/ooo")
    lines = trace.read_bytes().splitlines() if trace.exists() else []
    assert not [line for line in lines if re.match(rb"(<0>)?forged|X-Forged|Set-Cookie", line)]


def check_databases(errors):
    called = [name for name in DATABASES
              if harness.sql("SELECT is_called FROM forged", name) != [["f"]]]
    for name in called:
        harness.sql("ALTER SEQUENCE forged RESTART", name)
    assert not called
    # Bytes that are no characters are refused before a statement is read.
    assert not re.findall("ERROR:  (?!invalid byte).*", errors)


# nginx lets no path through that leads out of its root.
PATHS_OF_THE_SERVER = {"configuration name", "changed name"}


@pytest.mark.parametrize("target", [
    pytest.param(target, marks=[pytest.mark.cgi] * (target in PATHS_OF_THE_SERVER))
    for target in TARGETS])
def test_a_text_stays_a_text(target):
    harness.Path("/tmp/http_log_level").write_text("web 7\n")
    kind, send = TARGETS[target]
    number = list(TARGETS).index(target)
    before, logged = files(), POSTGRES_LOG.stat().st_size
    user = harness.add_session(user="standard", role="standard")
    texts = PAYLOADS + SQL_PAYLOADS * bool(STATEMENTS.search(target))
    for text in texts if harness.WHOLE_TABLES else texts[number % 8::8]:
        response = send(user, text)
        try:
            check_answer(kind, response)
        except (AssertionError, ValueError, ET.ParseError) as error:
            raise AssertionError("%r: %s\n%r" % (text, error, response)) from error
    check_commands()
    check_logs()
    assert files() - before <= MAY_APPEAR
    check_databases("" if REFUSED_BY_THE_SERVER.search(target)
                    else POSTGRES_LOG.read_text(errors="replace")[logged:])


@pytest.mark.parametrize("column", ["sid", "_user", "path"])
def test_what_is_stored_is_what_was_given(column):
    for text in PAYLOADS + SQL_PAYLOADS:
        if len(text) > 127 or not text.isascii():
            continue
        if column == "_user":
            login(user="text")("", text)
        elif column == "path":
            login(reply="role=read-only&path=%s")("", text)
        else:
            harness.add_session(sid=text.decode())
            answer = harness.cgi_request("/x/get-permissions", {"QORIN_AUTH_SESSION_ID": text})
            assert ("<user>admin</user>" in answer.text) == (len(text) < 64), text
        stored = "SELECT encode(convert_to(%s, 'UTF8'), 'hex') FROM http_session" % column
        assert harness.sql(stored) == [[text.hex()]], text
        harness.sql("DELETE FROM http_session")

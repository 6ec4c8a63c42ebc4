"""One request of each kind of handler, and what comes of it."""

import re
from xml.sax.saxutils import escape

import harness
from harness import WHOLE_TABLES, sql

UUID = "[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}"
IMAGE = bytes(range(256)) * 400


def request(handler, sid):
    """Path, method, body and header fields; one handler of each kind."""
    cookie = harness.as_session(sid)
    form = {**cookie, **harness.form_headers()}
    image, multipart = harness.multipart(("UIDQORIN", sid.encode()), ("file", IMAGE, "image.bin"))
    return {
        "command": (harness.EXECUTE + "?show%20hostname&UIDQORIN=" + sid, "GET", b"", cookie),
        "login": ("/v1/api/login", "POST", b"username=admin&password=wlan-Demo1",
                  harness.form_headers()),
        "configuration": ("/v1/configuration/object/ntp?UIDQORIN=" + sid, "GET", b"", cookie),
        "dashboard": ("/monitor-summary-data", "GET", b"", cookie),
        "search": ("/wlm-search", "POST", b"class=probes", form),
        "upload": ("/screens/cmnutil/wms-os-upload.html", "POST", image, {**cookie, **multipart}),
        "logout": ("/v1/api/logout", "GET", b"", cookie),
    }[handler]


HANDLERS = ["command", "login", "configuration", "dashboard", "search", "upload", "logout"]
ASK_THE_HELPER = HANDLERS[:4]


def chosen(handlers):
    """Every fault is met by every handler, or once."""
    return list(handlers) if WHOLE_TABLES else list(handlers)[:1]


def by_hand(**env):
    """Sends a request as the HTTP server would, to a program with these variables."""
    def send(path, method, body, headers):
        cookie = headers.get("Cookie", "")
        return harness.cgi_request(path, {
            "REQUEST_METHOD": method, "CONTENT_TYPE": headers.get("Content-Type"),
            "CONTENT_LENGTH": str(len(body)) if body else None,
            "QORIN_AUTH_SESSION_ID": cookie.partition("=")[2] or None, **env}, body)
    return send


def ask(handler, sid, send=harness.http_request):
    return settled(handler, send(*request(handler, sid)))


def plain(response):
    """Status, type and text, in which a new session's name is made one and the same."""
    return response.status, response.header("Content-Type"), re.sub(UUID, "$SID", response.text)


def settled(handler, response):
    """The same, when what the request itself is to leave behind was checked and removed."""
    if handler == "login" and "json" in response.header("Content-Type"):
        made = sql("DELETE FROM http_session WHERE ip <> '198.51.100.9' RETURNING "
                   "created_time = modified_time AND now() - created_time < interval '1 minute'") if (
                       response.status == 200) else []
        assert made == [["t"]] * (response.status == 200)
    if handler == "upload" and "not implemented" in response.text:
        assert harness.IMAGE.read_bytes() == IMAGE
        harness.IMAGE.unlink()
    return plain(response)


def ask_all(handlers, sid, send=harness.http_request):
    """A logout comes last: with it the session ends."""
    return {handler: ask(handler, sid, send) for handler in sorted(handlers, key="logout".__eq__)}


def error(reason):
    return 200, "text/xml", harness.ERROR_DOCUMENT % reason


def api(code, status, text, more=""):
    return (code, "application/json",
            '{"_global_result": {"status":"%d", "status_str": "%s"%s}}\r\n' % (status, text, more))


NO_PERMISSION = error(harness.NO_PERMISSION)
LOGGED_OUT = api(200, 0, "You've been logged out successfully.", ', "UIDQORIN":""')
NOT_STORED = api(401, 1, "Unauthorized request, can't update session")
NOT_IN = api(401, 1, "Unauthorized request, authentication failed")

ITEM = re.compile(r"<cli><id>(\d+)</id><cmd>([^<]*)</cmd>(.*?)</cli>\n", re.DOTALL)
RESULT = "<status>ok</status>\n<result>%s</result>\n"
FAILURE = "<status>error</status>\n<result><![CDATA[%s]]></result>\n"
RAW = {label: "<result><![CDATA[%s]]></result>" % text for label, text in (
    ("wuic basic-info", ""), ("show keys all", ""), ("wuic localip-warnings", "<re></re>"),
    ("wuic ap-limit-warnings", "<re></re>"))}


def with_items(answer, change):
    """The dashboard with other results: `change` makes them of label and result."""
    def changed(item):
        number, label, result = item.groups()
        return "<cli><id>%s</id><cmd>%s</cmd>%s</cli>\n" % (number, label, change(label, result))
    return *answer[:2], ITEM.sub(changed, answer[2])


def without_reply(handler, message, answer, only=None):
    """The answer when the helper gives no reply, in the dashboard perhaps only to one command, and its
    caller is told `message`."""
    def failed(label, result):
        if only not in (None, label) or (label not in RAW and "<status>" not in result):
            return result
        return RAW.get(label, FAILURE % message)
    if handler == "dashboard":
        return with_items(answer, failed)
    return {"command": (200, "text/xml", "<re><ERROR>%s</ERROR></re>" % message), "login": NOT_IN,
            "configuration": (200, "application/json", "")}.get(handler, answer)


def with_reply(handler, sent, answer, only):
    """The answer when the helper replies `sent`, in the dashboard to one command."""
    if handler == "dashboard":
        return with_items(answer, lambda label, result: (
            RESULT % escape(sent) if label == only else result))
    return answer if handler == "login" else (*answer[:2], sent)

"""What foreign pages and stored markup can do in a real browser whose user is logged in. Each thing is done
once more through a server without the defence, where it works."""

import http.server
import json
import ssl
import threading
from pathlib import Path

import pytest

import attacks
import chromium
import harness

REPORT = Path("/flash/upload/custom-reports.xml")
SCRIPT = """<qorin><script xmlns="http://www.w3.org/1999/xhtml">
document.documentElement.setAttribute("ran", "yes")</script></qorin>"""
FOREIGN_PORT, UNDEFENDED_PORT = 4350, 4345


class EmptyPage(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        self.send_response(200)
        self.send_header("Content-Type", "text/html")
        self.end_headers()

    def log_message(self, *_):
        pass


@pytest.fixture(scope="module")
def foreign():
    """A web server that is not the controller's, and has nothing but an empty page."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain("/run/wms/http/server.crt", "/run/wms/http/server.key")
    with http.server.ThreadingHTTPServer((attacks.HOST, FOREIGN_PORT), EmptyPage) as server:
        server.socket = context.wrap_socket(server.socket, server_side=True)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        yield
        server.shutdown()


@pytest.fixture(scope="module")
def urls(tmp_path_factory):
    """The controller with its defence and without."""
    site = attacks.edited(tmp_path_factory.mktemp("deploy") / "deploy", attacks.DEFENCE[attacks.KIND])
    with attacks.server(UNDEFENDED_PORT, site, attacks.UNLIMITED):
        yield {True: harness.URL, False: "https://%s:%d" % (attacks.HOST, UNDEFENDED_PORT)}


@pytest.fixture(scope="module")
def browser():
    with chromium.browser() as driven:
        yield driven


# What a foreign page asks for; and whether it came about.
FORGED = {
    "report": ("POST", "/x/cr-save", {"operand": SCRIPT}, REPORT.exists),
    "logout": ("GET", "/v1/api/logout", {}, lambda: harness.session_count() == 0),
    "login": ("POST", "/v1/api/login", {"username": "admin", "password": "wlan-Demo1"},
              lambda: harness.session_count() == 2),
    "upload": ("POST", attacks.UPLOAD, {"UIDQORIN": "x"}, lambda: "SID Validation failed" in str(harness.log_lines())),
}
FORM = """const form = document.createElement("form"), fields = %(fields)s;
    for (const name in fields) {
        const input = document.createElement("input");
        input.name = name; input.value = fields[name]; form.append(input);
    }
    form.method = "%(method)s"; form.enctype = "multipart/form-data"; form.action = "%(url)s";"""
# Another port of the same address is the same site, which sends all cookies with whatever its pages ask for.
# From another site the browser sends them when it goes there itself.
FOREIGN = {
    "same site": ("https://%s:%d/" % (attacks.HOST, FOREIGN_PORT), FORM + """
        fetch(form.action, {method: form.method, mode: "no-cors", credentials: "include",
                            body: form.method == "post" ? new FormData(form) : null}).then(() => 1, () => 1)"""),
    "other site": ("https://localhost:%d/" % FOREIGN_PORT, FORM + "document.documentElement.append(form); form.submit()"),
}


@pytest.fixture(params=[True, False], ids=["defended", "undefended"])
def case(request, urls, browser):
    """The browser, logged in; the controller's address, and whether it is defended."""
    url = urls[request.param]
    browser.set_cookie(url, "SESSION", harness.add_session())
    return browser, url, request.param


@pytest.mark.parametrize("site", FOREIGN)
@pytest.mark.parametrize("method, path, fields, came_about", FORGED.values(), ids=FORGED)
def test_a_foreign_page_can_ask_for_nothing(case, foreign, site, method, path, fields, came_about):
    browser, url, defended = case
    page, script = FOREIGN[site]
    browser.open(page)
    browser.evaluate("{ %s }" % script % {"fields": json.dumps(fields), "method": method, "url": url + path})
    if site == "other site":
        browser.await_page(url)
    assert came_about() is not defended


def test_a_stored_script_does_not_run(case):
    browser, url, defended = case
    REPORT.parent.mkdir(exist_ok=True)
    REPORT.write_text(SCRIPT)
    browser.open(url + "/x/cr-load")
    ran = browser.evaluate("document.documentElement.getAttribute('ran')")
    assert (ran is None) == defended


def test_a_download_starts(case, tmp_path):
    browser, url, _ = case
    browser.call("Browser.setDownloadBehavior", behavior="allow", downloadPath=str(tmp_path))
    browser.call("Page.navigate", url=url + "/x/plog-export?operand=kept&type=1")
    harness.wait_until(lambda: [file.read_text() for file in tmp_path.iterdir()] == ["kept"], "the download")

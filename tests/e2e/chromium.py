"""A headless Chromium, driven by the DevTools protocol over a pair of pipes: one message is one JSON object
that ends with a zero byte."""

import contextlib
import json
import os
import shutil
import subprocess
import tempfile
import time

PATIENCE = 60
# What it would otherwise do by itself, on a network that is not there.
QUIET = ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
         "--no-default-browser-check", "--disable-extensions", "--disable-background-networking",
         "--disable-component-update", "--disable-sync", "--disable-breakpad", "--ignore-certificate-errors",
         "--remote-debugging-pipe"]


class Browser:
    """One page, in a profile of its own."""

    def __init__(self, orders, answers):
        self._orders, self._answers, self._number, self._rest = orders, answers, 0, b""
        self._session = None
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self._session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]

    def _message(self):
        while b"\0" not in self._rest:
            piece = os.read(self._answers, 1 << 16)
            assert piece, "the browser has ended"
            self._rest += piece
        message, _, self._rest = self._rest.partition(b"\0")
        return json.loads(message)

    def call(self, method, **params):
        self._number += 1
        order = {"id": self._number, "method": method, "params": params}
        if self._session:
            order["sessionId"] = self._session
        os.write(self._orders, json.dumps(order).encode() + b"\0")
        while (answer := self._message()).get("id") != self._number:
            pass
        assert "error" not in answer, (method, answer)
        return answer["result"]

    def evaluate(self, expression):
        """In the page, whether it may run scripts of its own or not; a promise is awaited."""
        answer = self.call("Runtime.evaluate", expression=expression, awaitPromise=True, userGesture=True,
                           returnByValue=True)
        assert "exceptionDetails" not in answer, answer
        return answer["result"].get("value")

    def await_page(self, url):
        """Until a page whose address begins so is there, with what it loads."""
        deadline = time.monotonic() + PATIENCE
        while time.monotonic() < deadline:
            with contextlib.suppress(AssertionError):  # between two pages
                if self.evaluate("document.readyState + ' ' + location.href").startswith("complete " + url):
                    return
            time.sleep(0.02)
        raise AssertionError("waited in vain for " + url)

    def open(self, url):
        self.call("Page.navigate", url=url)
        self.await_page(url)

    def set_cookie(self, url, name, value):
        self.call("Network.setCookie", url=url, name=name, value=value, secure=True, httpOnly=True)


@contextlib.contextmanager
def browser():
    profile = tempfile.mkdtemp(dir="/run", prefix="chromium-")
    orders_read, orders = os.pipe()
    answers, answers_write = os.pipe()

    def as_third_and_fourth():
        high = [os.dup(fd) for fd in (orders_read, answers_write)]
        for fd, number in zip(high, (3, 4)):
            os.dup2(fd, number)
    with subprocess.Popen(["/usr/bin/chromium", *QUIET, "--user-data-dir=" + profile], stdin=subprocess.DEVNULL,
                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, close_fds=False,
                          preexec_fn=as_third_and_fourth, start_new_session=True,
                          env={**os.environ, "HOME": profile}) as process:
        for fd in (orders_read, answers_write):
            os.close(fd)
        try:
            driven = Browser(orders, answers)
            yield driven
        finally:
            with contextlib.suppress(Exception):
                driven.call("Browser.close")
            for fd in (orders, answers):
                os.close(fd)
            try:
                process.wait(10)
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, 9)
    shutil.rmtree(profile, ignore_errors=True)

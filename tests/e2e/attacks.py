"""Clients that keep a server busy without asking for anything that it could answer, each from an address of
its own; and a server of one's own, with the limits of an installation."""

import contextlib
import http.client
import resource
import shutil
import socket
import ssl
import subprocess
from concurrent.futures import ThreadPoolExecutor
from urllib.parse import urlencode

import harness

HOST, PATIENCE = "127.0.0.1", 30
KIND = "nginx" if harness.WORKERS else "apache"
LOGIN = "/v1/api/login"
UPLOAD = "/screens/cmnutil/wms-os-upload.html"
UNLIMITED = harness.CHECKOUT / "scripts" / {"nginx": "nginx-unlimited.conf", "apache": "httpd-unlimited.conf"}[KIND]
CONTEXT = ssl._create_unverified_context()


@contextlib.contextmanager
def server(port, deploy=harness.CHECKOUT / "deploy", limits=None):
    """Another HTTP server before the same program, of the kind that serves this round."""
    folder = "/run/wms/%s-%d" % (KIND, port)
    limits = limits or deploy / KIND / "wms-limits.conf"
    with subprocess.Popen([harness.CHECKOUT / "scripts/http_server.sh", KIND, "%s:%d" % (HOST, port), limits, folder,
                           deploy], stdin=subprocess.DEVNULL, start_new_session=True) as process:
        try:
            harness.wait_until(lambda: process.poll() is not None or answers(port), "the server on port %d" % port)
            yield port
        finally:
            process.terminate()
            process.wait(PATIENCE)


# What a site is without its defence against foreign pages.
DEFENCE = {
    "nginx": {"add_header Content-Security-Policy $wms_policy always;": "",
              "fastcgi_param HTTP_SEC_FETCH_SITE $wms_sec_fetch_site if_not_empty;": ""},
    "apache": {"TraceEnable Off\n": "TraceEnable Off\nRequestHeader unset Sec-Fetch-Site\n",
               "Header always set Content-Security-Policy": "Header always set X-Policy"},
}


def edited(folder, changes):
    """A copy of the configurations in which something is another way."""
    shutil.copytree(harness.CHECKOUT / "deploy", folder)
    site = folder / KIND / "wms-site.conf"
    text = site.read_text()
    for old, new in changes.items():
        assert old in text
        text = text.replace(old, new)
    site.write_text(text)
    return folder


def answers(port):
    with contextlib.suppress(OSError):
        return request(port, "/heart-beat").status > 0
    return False


def connection(port, source=HOST):
    return http.client.HTTPSConnection(HOST, port, timeout=PATIENCE, context=CONTEXT, source_address=(source, 0))


def request(port, path, method="GET", body=None, headers=None, source=HOST):
    with contextlib.closing(connection(port, source)) as client:
        client.request(method, path, body=body, headers=headers or {})
        reply = client.getresponse()
        return harness.Response(reply.status, reply.getheaders(), reply.read())


def login(port, source=HOST, password="wlan-Demo1", path=LOGIN, headers=None):
    body = urlencode({"username": "admin", "password": password})
    return request(port, path, "POST", body, harness.form_headers(headers), source).status


def client_hello():
    hello, never = ssl.MemoryBIO(), ssl.MemoryBIO()
    with contextlib.suppress(ssl.SSLWantReadError):
        CONTEXT.wrap_bio(never, hello).do_handshake()
    return hello.read()


def plain(text):
    """Sends this, and then nothing."""
    def begin(sock):
        sock.sendall(text)
        return sock
    return begin


def encrypted(text):
    def begin(sock):
        sock = CONTEXT.wrap_socket(sock)
        sock.sendall(text)
        return sock
    return begin


def post(path, length, *lines):
    head = ["POST %s HTTP/1.1" % path, "Host: x", "Content-Length: %d" % length, *lines, "", "a"]
    return encrypted("\r\n".join(head).encode())


@contextlib.contextmanager
def held(port, source, begin, number):
    """So many connections of one address that have begun something; those that the server closes are dropped."""
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
    with contextlib.ExitStack() as stack, ThreadPoolExecutor(16) as pool:
        def one(_):
            sock = socket.socket()
            stack.callback(sock.close)
            sock.settimeout(PATIENCE)
            with contextlib.suppress(OSError):
                sock.bind((source, 0))
                sock.connect((HOST, port))
                stack.callback(begin(sock).close)
                return True
            return False
        yield sum(pool.map(one, range(number)))
    resource.setrlimit(resource.RLIMIT_NOFILE, (soft, hard))

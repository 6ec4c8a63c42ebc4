"""Inside the sandbox: starts the helper, the peers and the one HTTP server before all of them."""

import http.client
import os
import shutil
import subprocess
import time
from pathlib import Path

PEERS = Path("/run/wms/peers")
BUILD = Path("build/peers")
SOURCES = Path("bench/peers")
OUR_PROGRAM = "/vantor/webui/wms/wms.cgi"
SESSION = "3f0c6a52-7d1b-4c43-9a55-0d6f1c8e2b90"
PAGE = "screens/cmnutil/execCommandReturnResult.xml"
TARGET = "/" + PAGE + "?show%20clock&UIDQORIN=" + SESSION
REPLY = '<re><data name="Time">Mon Nov 23 04:48:13 2026</data></re>'
COOKIE = "SESSION=" + SESSION
WORKERS = 2
PORTS = {"static": 8000, "bare_cgi": 8001, "minimal_cgi": 8002, "our_cgi": 8003,
         "bare_fastcgi": 8004, "minimal_fastcgi": 8005, "our_worker": 8006, "php": 8007,
         "php_one": 8008, "our_default": 8009}
ENVIRONMENT = {name: value for name, value in os.environ.items() if name != "WMS_WORKER_REQUESTS"}
# After how many requests a worker of ours retires: as it is deployed. `our_default` is not told.
DEPLOYED = {"WMS_WORKER_REQUESTS": "10000"}
# None of the peers ends by itself, so that nothing but ours pays for workers that come and go.
PHP = ["/usr/bin/php-cgi", "-d", "expose_php=0", "-d", "default_charset=",
       "-d", "display_errors=stderr"]
# PHP resets a persistent connection whenever a script takes it up: one round trip for each of
# the four. So there is also a script that takes up no more than the one that it asks.
PHP_DATABASES = {"php": "wms gapdb cfgmdb userdbv3", "php_one": "wms"}
PHP_VARIABLES = {"PHP_FCGI_CHILDREN": "0", "PHP_FCGI_MAX_REQUESTS": "0"}


def url(name):
    return "http://127.0.0.1:%d%s" % (PORTS[name], TARGET)


def start(command, name, **variables):
    with open("/run/wms/%s.out" % name, "wb") as log:
        return subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                env={**ENVIRONMENT, **variables})


def wait_until(condition, what):
    for _ in range(200):
        if condition():
            return
        time.sleep(0.05)
    raise SystemExit("%s did not become ready" % what)


def on_socket(path):
    """The command's beginning: what follows it finds the socket as its descriptor 0."""
    return ["spawn-fcgi", "-n", "-s", path, "-M", "0660", "-G", "www-data", "--"]


def serve_fastcgi(name, command, **variables):
    """The command's processes share one socket; whichever ends is started anew."""
    socket = PEERS / (name + ".sock")
    start(on_socket(socket) + ["/usr/bin/multiwatch", "-f", str(WORKERS), "-r", "2147483647", "--"]
          + command, name, PEER=name, **variables)
    wait_until(socket.exists, name)


def place(name, source, mode):
    """A peer's program or page at the path that is asked for, as the installed program is placed."""
    path = PEERS / name / PAGE
    path.parent.mkdir(parents=True)
    shutil.copy(source, path)
    shutil.chown(path, "root", "www-data")
    path.chmod(mode)


def fill_sessions():
    """As many as there may be; one of them is the clients'."""
    values = "'127.0.0.1', 'admin', 'root', '', NOW(), NOW(), 1, '/'"
    subprocess.run(["psql", "-Xq", "-v", "ON_ERROR_STOP=1",
                    "-c", "INSERT INTO http_session VALUES ('%s', %s)" % (SESSION, values),
                    "-c", "INSERT INTO http_session SELECT gen_random_uuid(), %s "
                    "FROM generate_series(2, 64)" % values,
                    "-c", "VACUUM ANALYZE http_session", "wms"], check=True)


def prepare():
    PEERS.mkdir(parents=True)
    page = PEERS / "reply.xml"
    page.write_text(REPLY)
    place("static", page, 0o644)
    for name in PHP_DATABASES:
        place(name, SOURCES / "ordinary_request.php", 0o644)
    for name, program in (("bare_cgi", BUILD / "bare_cgi"), ("minimal_cgi", BUILD / "minimal_cgi"),
                          ("our_cgi", OUR_PROGRAM)):
        place(name, program, 0o4750)
    start([BUILD / "helper", "/tmp/cli-helper.sock", page], "helper")
    wait_until(Path("/tmp/cli-helper.sock").exists, "helper")
    fill_sessions()


def start_server():
    start(["lighttpd", "-D", "-f", SOURCES / "lighttpd.conf"], "lighttpd",
          PEERS=str(PEERS), SESSION=SESSION)
    wait_until(lambda: answer("static") is not None, "lighttpd")


def start_all():
    prepare()
    serve_fastcgi("bare_fastcgi", [BUILD / "bare_fastcgi"])
    serve_fastcgi("minimal_fastcgi", [BUILD / "minimal_fastcgi"])
    serve_fastcgi("our_worker", [OUR_PROGRAM], **DEPLOYED)
    serve_fastcgi("our_default", [OUR_PROGRAM])
    for name, databases in PHP_DATABASES.items():
        serve_fastcgi(name, PHP, DATABASES=databases, **PHP_VARIABLES)
    start_server()


def answer(name):
    """The body and type that a peer answers with, and how many bytes the whole answer has; None
    when it does not answer with 200."""
    server = http.client.HTTPConnection("127.0.0.1", PORTS[name], timeout=5)
    try:
        server.request("GET", TARGET, headers={"Cookie": COOKIE})
        response = server.getresponse()
        body = response.read()
    except (OSError, http.client.HTTPException):
        return None
    finally:
        server.close()
    if response.status != 200:
        return None
    fields = "".join("%s: %s\r\n" % field for field in response.getheaders())
    head = "HTTP/1.1 200 OK\r\n%s\r\n" % fields
    return body.decode(), response.headers["Content-Type"], len(head) + len(body)


def check_answers(names):
    """Returns the sizes of the answers by name; a wrong one ends everything."""
    sizes = {}
    for name in names:
        expected = ("<re></re>\n" if name.startswith("bare") else REPLY), "text/xml"
        found = answer(name)
        if found is None or found[:2] != expected:
            raise SystemExit("%s answers with %r instead of %r" % (name, found, expected))
        sizes[name] = found[2]
    return sizes

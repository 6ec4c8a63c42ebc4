"""Too many at the door: a server with the limits of an installation is attacked from one address or from
several, and meanwhile an operator logs in from another."""

import contextlib
import re
import shutil
import subprocess
from concurrent.futures import ThreadPoolExecutor
from urllib.parse import urlencode

import pytest

import attacks
import harness

NGINX = attacks.KIND == "nginx"
FIREWALL = harness.CHECKOUT / "deploy/nftables/wms.nft"
FAIL2BAN = harness.CHECKOUT / "deploy/fail2ban"


@pytest.fixture(scope="module")
def port():
    with attacks.server(4344) as number:
        yield number


# What one address begins and does not end, and how often it is tried.
BEGUN = {
    "connections without a byte": (attacks.plain(b""), 400),
    "half-finished handshakes": (attacks.plain(attacks.client_hello()), 2100 if NGINX else 400),
    "half a header": (attacks.encrypted(b"GET / HTTP/1.1\r\nHost:"), 150),
    "half a login": (attacks.post(attacks.LOGIN, 20), 150),
    "half an upload": (attacks.post(attacks.UPLOAD, 1 << 30, "Cookie: SESSION=x"), 150),
}


@pytest.mark.parametrize("attack", BEGUN)
def test_what_one_address_leaves_unfinished_keeps_no_operator_out(port, attack):
    begin, number = BEGUN[attack]
    source = "127.0.1.%d" % (list(BEGUN).index(attack) + 2)
    with attacks.held(port, source, begin, number) as begun:
        assert begun > 0
        assert attacks.login(port) == 200


LOGINS = ["/v1/api/login", "/rac/login", "/screens/wms/wms.login", "/login", "/x/y/login", "/v1/api/%6c%6Fgin",
          "/x%2fy/login", "/x%2Fy%23/../login", "/a/../login", "//login", "/./login?a/b", "http://x/login"]


def refused_after(port, path=attacks.LOGIN, **headers):
    """How many logins one address may try; no address tries as many as that in the time that it takes."""
    return next((n for n in range(40) if attacks.login(port, "127.0.2.2", "wrong", path, headers) == 429), None)


def test_one_address_tries_20_logins_by_whatever_path(port):
    """What foreign pages have its browser send uses up nothing of that."""
    assert refused_after(port, **{"Sec-Fetch-Site": "cross-site"}) >= 20
    assert refused_after(port) >= 20
    assert None not in [refused_after(port, path) for path in LOGINS]
    assert attacks.request(port, "/heart-beat", source="127.0.2.2").status == 200
    assert attacks.login(port) == 200


def test_logins_hold_half_of_what_serves_at_most(port, admin):
    """While the command service is silent, from many addresses at once; who has a session goes on."""
    asked, held, refused = (8, 4, 503) if NGINX else (40, 32, 429)
    harness.plan(hold=True, times=held)
    with ThreadPoolExecutor(asked) as pool:
        tries = [pool.submit(attacks.login, port, "127.0.3.%d" % (n + 2)) for n in range(asked)]
        harness.simctl.order(harness.CONTROL, "wait-held", count=held)
        harness.wait_until(lambda: sum(one.done() for one in tries) == asked - held, "refusals")
        answer = attacks.request(port, "/get-permissions", headers=harness.as_session(admin))
        harness.order("release")
    assert "<role>root</role>" in answer.text
    assert sorted(one.result() for one in tries) == [200] * held + [refused] * (asked - held)


COOKIE = {"Cookie": "SESSION=x"}
FOREIGN = {**COOKIE, "Sec-Fetch-Site": "same-site"}
BODIES = [
    ("POST", attacks.UPLOAD, "9", {}, 403), ("POST", "/x?captiveportal_import.html", "900000000", {}, 403),
    ("POST", "/heart-beat", "1000000", {}, 413), ("POST", "/heart-beat", "9", {}, 200),
    ("POST", attacks.UPLOAD, "9", FOREIGN, 403), ("POST", "/heart-beat", "1000000", FOREIGN, 413),
    ("POST", "/heart-beat", "1000000", COOKIE, 200), ("POST", attacks.UPLOAD, "9", COOKIE, 200),
]


@pytest.mark.parametrize("method, path, length, headers, status", BODIES)
def test_who_has_no_session_sends_no_large_body_and_no_upload(port, method, path, length, headers, status):
    """The client waits to be told to send; a refusal comes instead of that."""
    with contextlib.closing(attacks.connection(port)) as client:
        client.putrequest(method, path)
        for name, value in {"Content-Length": length, "Expect": "100-continue", **headers}.items():
            client.putheader(name, value)
        client.endheaders()
        with client.sock.makefile("rb") as reader:
            assert int(reader.readline().split()[1]) == (100 if status == 200 else status)
            if status == 200:
                reader.readline()
                client.send(b"a" * int(length))
                assert int(reader.readline().split()[1]) == 200


@pytest.mark.warm  # Apache stores no bodies
def test_large_bodies_take_turns(port):
    def half(source):
        return attacks.held(port, source, attacks.post("/heart-beat", 1 << 20, "Cookie: SESSION=x"), 2)

    def whole(source):
        return attacks.request(port, "/heart-beat", "POST", b"a" * (1 << 20), COOKIE, source).status
    with half("127.0.4.2"):
        assert (whole("127.0.4.2"), whole("127.0.4.3")) == (429, 200)
        with half("127.0.4.4"):
            assert whole("127.0.4.3") == 429


@pytest.fixture
def firewall(port):
    """The packet filter's sample, for this port, in the sandbox's own network."""
    rules = FIREWALL.read_text().replace("define wms_port = 443", "define wms_port = %d" % port)
    subprocess.run(["nft", "-f", "-"], input=rules, text=True, check=True)
    yield
    subprocess.run(["nft", "delete", "table", "inet", "wms"], check=True)


@pytest.mark.warm  # Apache itself closes what is more than 24
def test_the_packet_filter_leaves_an_address_100_connections(port, firewall):
    hello = attacks.plain(attacks.client_hello())
    with attacks.held(port, "127.0.5.2", hello, 200) as begun:
        assert begun == 100
        assert attacks.login(port) == 200


FORGED = 'x"\nwms[1]: login refused: address=192.0.2.9 reason=wrong-password user="y'
# Address, what is sent as a login, and how often it counts.
GUESSES = [
    ("127.0.6.2", {"username": "admin", "password": "x"}, 2), ("127.0.6.3", {"username": FORGED, "password": "x"}, 1),
    ("127.0.6.4", {"username": FORGED}, 0), ("127.0.6.5", {"username": "admin", "password": "wlan-Demo1"}, 0),
    ("127.0.6.2", {"username": "admin", "password": "y"}, 0),
]


def test_fail2ban_counts_wrong_passwords_and_nothing_that_a_user_name_says(port, tmp_path):
    for address, fields, _ in GUESSES:
        attacks.request(port, attacks.LOGIN, "POST", urlencode(fields), harness.form_headers(), address)
    harness.log_settled()
    lines = [line for line in harness.SYSLOG.read_text().splitlines() if "login refused" in line]
    assert len(lines) == 4
    log, installed = tmp_path / "auth.log", tmp_path / "fail2ban"
    # As a system log writes them: no priority, but the host's name.
    log.write_text("".join(re.sub(r"^<\d+>(.{16})", r"\1controller ", line) + "\n" for line in lines))
    shutil.copytree("/etc/fail2ban", installed)
    shutil.copytree(FAIL2BAN, installed, dirs_exist_ok=True)
    found = subprocess.run(["fail2ban-regex", "-c", installed, "--usedns=no", "-o", "ip", log, "wms"],
                           capture_output=True, text=True, timeout=60, check=True)
    assert sorted(found.stdout.split()) == sorted(address for address, _, times in GUESSES for _ in range(times))

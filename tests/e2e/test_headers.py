"""What the HTTP server adds to every answer, whoever wrote it, and what of a request it passes on."""

import contextlib

import pytest

import attacks
import harness

NGINX = attacks.KIND == "nginx"
CLOSED = "default-src 'none'; frame-ancestors 'none'; sandbox allow-downloads"
SETUP = "default-src 'none'; style-src 'self'; form-action 'self'; frame-ancestors 'none'"
ADDED = {"x-content-type-options": "nosniff", "referrer-policy": "no-referrer",
         "cross-origin-resource-policy": "same-origin", "cache-control": "no-store"}


def ask(request, port=4343):
    """Sends these bytes and reads until the server closes or the answer is whole."""
    with contextlib.closing(attacks.connection(port)) as client:
        client.connect()
        client.sock.sendall(request)
        reply = client.response_class(client.sock, method="GET")
        reply.begin()
        return harness.Response(reply.status, reply.getheaders(), reply.read())


def get(path, *lines, method="GET", version="HTTP/1.1"):
    return "\r\n".join(["%s %s %s" % (method, path, version), "Host: x", "Connection: close", *lines, "", ""]).encode()


ZEROS = "Content-Length: %s5" % ("0" * 25000)
ANSWERS = [
    (get("/heart-beat"), 200), (get("/v1/api/login", "Content-Length: 0", method="POST"), 401),
    (get("/screens/cmnutil/execCommandReturnResult.xml"), 200), (get("/a%00b"), 400 if NGINX else 404),
    (b"GARBAGE\r\n\r\n", 400), (b"GET / HTTP/1.1\r\n\r\n", 400),
    (get("/?" + "a" * 140000), 414), (get("/", "X: " + "a" * 140000), 400), (get("/", method="TRACE"), 405),
    (get("/", ZEROS), 400), (get("/", "If-Modified-Since: " + "a" * 27000), 200 if NGINX else 400),
]


@pytest.mark.parametrize("request_bytes, status", ANSWERS, ids=[str(n) for n in range(len(ANSWERS))])
def test_every_answer_has_each_header_once(request_bytes, status):
    answer = ask(request_bytes)
    assert answer.status == status
    assert_added(answer, CLOSED)


def assert_added(answer, policy):
    found = [(name.lower(), value) for name, value in answer.headers]
    for name, value in {**ADDED, "content-security-policy": policy}.items():
        assert [text for key, text in found if key == name] == [value]


def test_the_setup_page_may_have_a_style_and_post_to_itself():
    harness.FACTORY_DEFAULT.touch()
    assert_added(ask(get("/")), SETUP)


@pytest.mark.warm
def test_an_answer_without_a_worker_has_each_header_once(tmp_path):
    site = attacks.edited(tmp_path / "deploy", {"fastcgi_pass $wms_row": "fastcgi_pass unix:/run/nobody"})
    with attacks.server(4346, site) as port:
        answers = [ask(get(path), port) for path in ("/", attacks.LOGIN)]
    assert [answer.status for answer in answers] == [502, 503]
    for answer in answers:
        assert_added(answer, CLOSED)


@pytest.mark.parametrize("length, answer", [(512, "Restricted characters"), (513, "invalid arguments")])
def test_a_content_type_is_passed_on_whole_or_not_at_all(admin, length, answer):
    """A boundary that is too long is refused; a form without a type has other fields."""
    body, headers = harness.multipart(("operand", b"kept"))
    headers["Content-Type"] = headers["Content-Type"].ljust(length, "x")
    saved = harness.http_request("/x/cr-save", "POST", body, {**headers, **harness.as_session(admin)})
    assert answer in saved.text

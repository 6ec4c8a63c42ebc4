"""The OpenAPI document is valid, and every response in it is one that the program gives."""

import json
import os
import subprocess

import harness

DOCUMENT = harness.CHECKOUT / "docs/openapi.yaml"
MODULES = harness.CHECKOUT / "build/openapi/node_modules"
API = "/v1/configuration/"
# Path, method, body; what is left out is a name.
OPERATIONS = [
    ("object/{name}", "get", b""), ("object/{name}", "post", b'{"name": "guest"}'),
    ("container/{name}", "get", b""), ("container/{name}", "post", b"{}"),
    ("object/configReplace", "post", b'"hostname": {}'), ("object/fileUpload", "post", b"x"),
    ("showcommand", "get", b""),
]


def answer(path, method, target, body=b"", headers=None):
    response = harness.http_request(target, method.upper(), body, headers)
    kind = response.header("Content-Type")
    text = response.text
    return {"path": path, "method": method, "status": response.status, "type": kind,
            "body": json.loads(text) if kind == "application/json" else text}


def answers(sid):
    login = ("/v1/api/login", "post", "/v1/api/login")
    for password in (b"wlan-Demo1", b"wrong"):
        yield answer(*login, b"username=admin&password=" + password, harness.form_headers())
    yield answer(*login, *harness.multipart(("file", b"", "..")))
    for path, method, body in OPERATIONS:
        target = API + path.replace("{name}", "ssid_prof")
        for query in ("?command=show+clock&file_name=a&UIDQORIN=" + sid, "?UIDQORIN=wrong"):
            yield answer(API + path, method, target + query, body, harness.as_session(sid))
        yield answer(API + path, method, target, body)
    yield answer("/v1/api/logout", "get", "/v1/api/logout", b"", harness.as_session(sid))


def test_the_document_is_valid_and_true(admin):
    done = subprocess.run(["node", harness.CHECKOUT / "tests/openapi/check.js", DOCUMENT],
                          input=json.dumps(list(answers(admin))), capture_output=True, text=True,
                          env={**os.environ, "NODE_PATH": str(MODULES)}, timeout=60, check=False)
    assert done.returncode == 0, done.stderr

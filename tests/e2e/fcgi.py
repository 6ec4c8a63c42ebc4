"""FastCGI as an HTTP server speaks it, one request a connection, and warm workers on a socket."""

import contextlib
import os
import signal
import socket
import struct
import subprocess
import threading

import harness

BEGIN, END, PARAMS, STDIN, STDOUT = 1, 3, 4, 5, 6
CHUNK = 65535


def record(kind, content=b""):
    return struct.pack("!BBHHBB", 1, kind, 1, len(content), 0, 0) + content


def stream(kind, data):
    return b"".join(record(kind, data[at:at + CHUNK])
                    for at in range(0, len(data), CHUNK)) + record(kind)


def size_of(text):
    return bytes([len(text)]) if len(text) < 128 else struct.pack("!I", len(text) | 1 << 31)


def request_bytes(variables, body=b""):
    params = b"".join(size_of(name) + size_of(value) + name + value
                      for name, value in variables.items())
    return (record(BEGIN, struct.pack("!HB5x", 1, 0)) + stream(PARAMS, params) +
            stream(STDIN, body))


class Connection:
    """For one request; variables and body as harness.cgi_request takes them."""

    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(60)
        self.socket.connect(path)

    def send(self, url="/", env=None, stdin=b"", ended=True):
        variables = harness.cgi_variables(url, env)
        del variables[b"PATH"]
        # A refused body is not read to its end before the answer comes.
        with contextlib.suppress(BrokenPipeError):
            sent = request_bytes(variables, stdin)
            self.socket.sendall(sent if ended else sent[:-len(record(STDIN))])
        return self

    def _exactly(self, size):
        data = b""
        while len(data) < size:
            more = self.socket.recv(size - len(data))
            assert more, "the worker hung up in the middle"
            data += more
        return data

    def output(self):
        """What the program wrote, when the answer came whole."""
        written = b""
        with self.socket:
            while True:
                _, kind, _, length, padding, _ = struct.unpack("!BBHHBB", self._exactly(8))
                content = self._exactly(length + padding)[:length]
                if kind == END:
                    assert content == bytes(8), content
                    return written
                assert kind == STDOUT, (kind, content)
                written += content

    def close(self):
        self.socket.close()


class Workers:
    """`count` warm workers on a socket of their own; those that end with 0 are replaced."""

    def __init__(self, path, count=1, requests=None, arguments=(), **env):
        self.path, self.ended = str(path), []
        self._line = [harness.PROGRAM, *arguments]
        self._env = {"PATH": "/usr/bin:/bin", **env}
        if requests is not None:
            self._env["WMS_WORKER_REQUESTS"] = str(requests)
        self._listener = socket.socket(socket.AF_UNIX)
        self._listener.bind(self.path)
        self._listener.listen(128)
        self.running = [self._start() for _ in range(count)]
        self._keepers = [threading.Thread(target=self._keep, args=(at,)) for at in range(count)]
        self._stopping = False
        for keeper in self._keepers:
            keeper.start()

    def _start(self):
        return subprocess.Popen(self._line, env=self._env, stdin=self._listener,
                                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)

    def _keep(self, at):
        while True:
            process = self.running[at]
            _, errors = process.communicate()
            self.ended.append((process.returncode, errors))
            if self._stopping or process.returncode != 0:
                return
            self.running[at] = self._start()

    def begin(self, url="/", env=None, stdin=b""):
        return Connection(self.path).send(url, env, stdin)

    def output(self, url="/", env=None, stdin=b""):
        return self.begin(url, env, stdin).output()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._stopping = True
        self._listener.close()
        for at, keeper in enumerate(self._keepers):
            while keeper.is_alive():
                with contextlib.suppress(ProcessLookupError):
                    self.running[at].send_signal(signal.SIGTERM)
                keeper.join(0.1)
        os.unlink(self.path)
        # One that had only just been started may know no signals yet.
        assert all(code in (0, -signal.SIGTERM) and not errors for code, errors in self.ended), (
            self.ended)

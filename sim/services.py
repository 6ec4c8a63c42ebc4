"""The controller's services: the CLI helper, the fast path and the message blocks."""

import itertools
import os
import socket
import struct
import threading

import internal
import wire

LOOPBACK = "127.0.0.1"
OTHER_LOOPBACK = "127.0.0.2"


class BindError(Exception):
    pass


def in_background(work, *arguments):
    threading.Thread(target=work, args=arguments, daemon=True).start()


def bind_udp(port):
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    try:
        sock.bind((LOOPBACK, port))
    except OSError as error:
        raise BindError("UDP port %d on %s: %s" % (port, LOOPBACK, error.strerror)) from error
    return sock


def bind_unix(path):
    probe = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    try:
        probe.connect(path)
        raise BindError("%s: another process serves it" % path)
    except FileNotFoundError:
        pass
    except ConnectionRefusedError:
        os.unlink(path)
    finally:
        probe.close()
    sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    try:
        sock.bind(path)
        os.chmod(path, 0o600)
        sock.listen(64)
    except OSError as error:
        raise BindError("%s: %s" % (path, error.strerror)) from error
    return sock


class HelperService:
    """The CLI helper: one request and one reply a connection, connections side by side."""

    def __init__(self, path, answers, configuration, faults, traffic):
        self._answers, self._configuration = answers, configuration
        self._faults, self._traffic = faults, traffic
        self._accepting = threading.Event()
        self._accepting.set()
        self._socket = bind_unix(path)

    def serve(self):
        for number in itertools.count():
            self._accepting.wait()
            connection, _ = self._socket.accept()
            in_background(self._connection, connection, number)

    def pause(self):
        """Connections are queued by the kernel and never served, but the one accept under way."""
        self._accepting.clear()
        probe = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        probe.connect(self._socket.getsockname())
        probe.close()

    def resume(self):
        self._accepting.set()

    def _connection(self, connection, number):
        with connection:
            try:
                self._exchange(connection, number)
            except (OSError, wire.WireError) as error:
                self._traffic.write("helper", error=str(error))

    def _exchange(self, connection, number):
        if not self._accepting.is_set():
            return
        if self._faults.take("helper", refuse=True):
            return
        fields = wire.read_helper_request(connection)
        request = {name: wire.text(value) for name, value in fields.items()}
        credentials = connection.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, 12)
        self._traffic.write("helper", **request, connection=number,
                            uid=struct.unpack("iII", credentials)[1],
                            lengths=[len(fields[name]) for name in wire.FIELDS])
        plan = self._faults.take("helper", request["command"])
        reply = self._reply(request, plan)
        if not self._faults.wait_before_answer(plan):
            return
        reply = reply[:plan.get("close_after", len(reply))]
        step = plan.get("chunk") or len(reply) or 1
        for start in range(0, len(reply), step):
            connection.sendall(reply[start:start + step])

    def _role_of(self, request):
        return self._answers.role_of(request["user"])

    def _reply(self, request, plan):
        if "raw" in plan:
            return bytes.fromhex(plan["raw"])
        if "output" in plan or "message" in plan:
            output, message = "", ""
        elif request["command"].startswith("wuic:"):
            output, message = internal.run(self._answers, request)
        elif self._configuration.serves(request["command"]):
            output, message = self._configuration.run(request, self._role_of(request)), ""
        else:
            output, message = self._answers.run(request, self._role_of(request))
        return wire.helper_reply(
            wire.raw(plan.get("output", output)), wire.raw(plan.get("message", message)),
            plan.get("status", 1 if message else 0),
            plan.get("output_length"), plan.get("message_length"))


class DatagramService:
    """A UDP service: respond(request bytes, plan) gives the reply, or None for none."""

    def __init__(self, channel, port, faults, respond):
        self._channel, self._faults, self._respond = channel, faults, respond
        self._socket = bind_udp(port)

    def serve(self):
        while True:
            request, peer = self._socket.recvfrom(65536)
            in_background(self._exchange, request, peer)

    def _exchange(self, request, peer):
        reply, plan = self._respond(request)
        if "stranger" in plan:
            own_port = self._socket.getsockname()[1]
            for source in ((LOOPBACK, 0), (OTHER_LOOPBACK, own_port)):
                with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as stranger:
                    stranger.bind(source)
                    stranger.sendto(bytes.fromhex(plan["stranger"]), peer)
        if not self._faults.wait_before_answer(plan) or reply is None:
            return
        if "raw" in plan:
            reply = bytes.fromhex(plan["raw"])
        elif "output" in plan:
            reply = wire.raw(plan["output"])[:wire.FAST_PATH_REPLY_LIMIT]
        self._socket.sendto(reply[:plan.get("close_after", len(reply))], peer)


def fast_path(answers, faults, traffic):
    def respond(datagram):
        try:
            fields = wire.parse_fast_path(datagram)
        except wire.WireError as error:
            traffic.write("fast", error=str(error))
            return None, {}
        request = {name: wire.text(value) for name, value in fields.items()}
        traffic.write("fast", **request, length=len(datagram))
        output, message = answers.run({**request, "ip": LOOPBACK}, request["role"])
        reply = output or "<re><ERROR>%s</ERROR></re>" % message
        return wire.raw(reply)[:wire.FAST_PATH_REPLY_LIMIT], faults.take("fast", request["command"])
    return respond


# Blocks of the remote-access service that are only acknowledged: request size, reply size.
RAC_SIZES = {80: 48784, 1064: 264, 6795: 6795}


def remote_access(answers, faults, traffic):
    def respond(block):
        plan = faults.take("rac")
        if len(block) in RAC_SIZES:
            traffic.write("rac", length=len(block))
            return bytes(RAC_SIZES[len(block)]), plan
        try:
            server, client = wire.parse_rac_query(block)
        except wire.WireError as error:
            traffic.write("rac", error=str(error), length=len(block))
            return None, plan
        server, client = wire.text(server), wire.text(client)
        traffic.write("rac", server=server, client=client, length=len(block))
        found = answers.clients.get(client)
        if found is None:
            return wire.rac_reply(False), plan
        return wire.rac_reply(True, wire.raw(found["user"]), wire.raw(found["role"])), plan
    return respond


def acknowledged(channel, reply_size, faults, traffic):
    """A service whose blocks are opaque here: every request is answered with zero words."""
    def respond(block):
        traffic.write(channel, length=len(block))
        return bytes(reply_size), faults.take(channel)
    return respond

"""The controller's wire formats, as the serving side sees them.

Every number that crosses the CLI-helper socket is big-endian; the message blocks use the byte
order of the machine, because both ends live on it.
"""

import struct

FIELDS = ("user", "ip", "sid", "command")
FIELD_LIMIT = 1 << 20

FAST_PATH_SIZE = 1169
FAST_PATH_REPLY_LIMIT = 65507

RAC_QUERY = 77
RAC_QUERY_SIZE = 132
RAC_REPLY_SIZE = 320


class WireError(Exception):
    """The peer sent something that is no request."""


def text(raw):
    """Bytes as text that survives JSON and comes back unchanged."""
    return raw.decode("utf-8", "surrogateescape")


def raw(value):
    return value.encode("utf-8", "surrogateescape")


def read_exactly(sock, size):
    parts = []
    while size:
        part = sock.recv(size)
        if not part:
            raise WireError("peer closed with %d bytes missing" % size)
        parts.append(part)
        size -= len(part)
    return b"".join(parts)


def read_helper_request(sock):
    """The four fields of a CLI-helper request: {"user": bytes, "ip": ..., "sid": ..., "command": ...}."""
    request = {}
    for name in FIELDS:
        (size,) = struct.unpack(">I", read_exactly(sock, 4))
        if size > FIELD_LIMIT:
            raise WireError("%s claims %d bytes" % (name, size))
        request[name] = read_exactly(sock, size)
    return request


def helper_reply(output, message, status=0, output_length=None, message_length=None):
    """A CLI-helper reply; a given length is sent in place of the true one."""
    claimed = len(output) if output_length is None else output_length
    result = struct.pack(">I", status & 0xFFFFFFFF) + struct.pack(">I", claimed & 0xFFFFFFFF)
    result += output
    claimed = len(message) if message_length is None else message_length
    return result + struct.pack(">I", claimed & 0xFFFFFFFF) + message


def _c_string(field):
    return field.split(b"\0", 1)[0]


def parse_fast_path(datagram):
    """{"user", "role", "command"} of a fast-path datagram; WireError when it is malformed."""
    if len(datagram) != FAST_PATH_SIZE:
        raise WireError("fast-path datagram of %d bytes" % len(datagram))
    user, role, gap, command = struct.unpack("64s33s48s1024s", datagram)
    for name, field in (("user", user), ("role", role), ("command", command)):
        if field[-1] != 0:
            raise WireError("%s is not terminated" % name)
        if field.strip(b"\0") != _c_string(field):
            raise WireError("%s has bytes after its end" % name)
    if gap.strip(b"\0"):
        raise WireError("bytes 97 to 144 are not zero")
    return {"user": _c_string(user), "role": _c_string(role), "command": _c_string(command)}


def parse_rac_query(block):
    """(server address, client address) of a remote-access query."""
    if len(block) != RAC_QUERY_SIZE:
        raise WireError("remote-access query of %d bytes" % len(block))
    word, server, client = struct.unpack("=I64s64s", block)
    if word != RAC_QUERY:
        raise WireError("remote-access query with word %d" % word)
    return _c_string(server), _c_string(client)


def rac_reply(connected, user=b"", role=b""):
    """The 320-byte answer; the texts are cut so that each keeps a terminating zero."""
    return struct.pack("=II248s64s", 0, 1 if connected else 0, user[:247], role[:63])

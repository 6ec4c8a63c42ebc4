"""Answers to command lines, from data files.

A file in commands/ opens with header lines, "name: value", up to the first empty line; the rest
is the XML that the command answers. Headers:

  command: show clock     the command line; may occur several times; a last word "*" takes any rest
  changes: yes            changes the configuration: refused to those who may only look
  message: text           the reply's message, beside or in place of the XML
  repeat: 48              how many rows each pattern makes (below)

In the body {{user}}, {{ip}}, {{sid}}, {{command}} and {{rest}} stand for the request's texts, escaped
for markup, and {{time FORMAT}} for the present time as strftime writes it. {{rest}} is what stands in
place of the "*", or after the "?" of an internal request, without the quotes around it.

A line of the body that holds {{n}} is a pattern of rows: it is repeated with 1, 2, ... for {{n}}, with
two hexadecimal digits for {{hex}}, and with the alternatives of {{pick one|two|three}} in turn.
"""

import json
import os
import re
import time
from xml.sax.saxutils import escape

MAY_CHANGE = ("root", "standard")

HEADERS = {"command": str, "changes": lambda text: text == "yes", "message": str, "repeat": int}

REFUSED = "% This command is not permitted for your role."


class DataError(Exception):
    pass


def _row(pattern, number):
    def pick(found):
        alternatives = found.group(1).split("|")
        return alternatives[(number - 1) % len(alternatives)]

    pattern = pattern.replace("{{n}}", str(number)).replace("{{hex}}", "%02x" % number)
    return re.sub(r"\{\{pick (.*?)\}\}", pick, pattern)


def _grow(body, repeat):
    lines = []
    for line in body.splitlines(keepends=True):
        count = repeat if "{{n}}" in line else 1
        lines += [_row(line, number + 1) for number in range(count)]
    return "".join(lines)


def _load(path):
    with open(path, encoding="utf-8") as file:
        head, _, body = file.read().partition("\n\n")
    entry = {"commands": [], "changes": False, "message": "", "repeat": 1}
    for line in head.splitlines():
        name, colon, value = line.partition(":")
        if not colon or name not in HEADERS:
            raise DataError("%s: not a header line: %s" % (path, line))
        value = HEADERS[name](value.strip())
        if name == "command":
            entry["commands"].append(value)
        else:
            entry[name] = value
    if not entry["commands"]:
        raise DataError("%s: no command line" % path)
    return {**entry, "body": _grow(body, entry["repeat"])}


def _unquoted(text):
    return text[1:-1] if len(text) > 1 and text[0] == text[-1] and text[0] in "'\"" else text


def _render(body, values):
    def replace(found):
        word, _, rest = found.group(1).partition(" ")
        if word == "time":
            return time.strftime(rest)
        return escape(values[word], {'"': "&quot;", "'": "&#39;"})

    return re.sub(r"\{\{(.+?)\}\}", replace, body)


class Answers:
    INVALID = "% Invalid input detected at '^' marker."

    def __init__(self, folder):
        self._exact = {}
        self._open = []
        commands = os.path.join(folder, "commands")
        for name in sorted(os.listdir(commands)):
            if name.endswith(".xml"):
                self._add(_load(os.path.join(commands, name)))
        with open(os.path.join(folder, "users.json"), encoding="utf-8") as file:
            self.users = json.load(file)
        with open(os.path.join(folder, "clients.json"), encoding="utf-8") as file:
            self.clients = json.load(file)

    def _add(self, entry):
        for command in entry["commands"]:
            if command.endswith(" *"):
                self._open.append((command[:-1], entry))
            else:
                self._exact[command] = entry

    def _find(self, command):
        if command in self._exact:
            return self._exact[command], ""
        for start, entry in self._open:
            if command.startswith(start):
                return entry, command[len(start):]
        return None, ""

    def role_of(self, user):
        return self.users.get(user, {}).get("role", "")

    def run(self, request, role):
        """(output, message) of an ordinary command line; request holds texts."""
        command = " ".join(request["command"].split())
        entry, rest = self._find(command)
        if entry is None:
            return "", self.INVALID
        if entry["changes"] and role not in MAY_CHANGE:
            return "", REFUSED
        values = {name: request.get(name, "") for name in ("user", "ip", "sid")}
        values.update(command=command, rest=_unquoted(rest or request.get("rest", "")))
        return _render(entry["body"], values), entry["message"]

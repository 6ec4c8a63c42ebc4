"""Answers to command lines, from data files.

A file in commands/ opens with header lines, "name: value", up to the first empty line; the rest
is the XML that the command answers. Headers:

  command: show clock     the command line; may occur several times; a last word "*" takes any rest
  changes: yes            changes the configuration: refused to those who may only look
  message: text           the reply's message, beside or in place of the XML

In the body {{user}}, {{ip}}, {{sid}}, {{command}} and {{rest}} stand for the request's texts, escaped
for markup, and {{time FORMAT}} for the present time as strftime writes it.
"""

import json
import os
import re
import time
from xml.sax.saxutils import escape

MAY_CHANGE = ("root", "standard")

REFUSED = "% This command is not permitted for your role."


class DataError(Exception):
    pass


def _load(path):
    with open(path, encoding="utf-8") as file:
        head, _, body = file.read().partition("\n\n")
    entry = {"commands": [], "changes": False, "message": "", "body": body}
    for line in head.splitlines():
        name, colon, value = line.partition(":")
        value = value.strip()
        if not colon or name not in ("command", "changes", "message"):
            raise DataError("%s: not a header line: %s" % (path, line))
        if name == "command":
            entry["commands"].append(value)
        else:
            entry[name] = value == "yes" if name == "changes" else value
    if not entry["commands"]:
        raise DataError("%s: no command line" % path)
    return entry


def _render(body, values):
    def replace(found):
        word, _, rest = found.group(1).partition(" ")
        if word == "time":
            return time.strftime(rest)
        return escape(values[word])

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
        return _render(entry["body"], {**values, "command": command, "rest": rest}), entry["message"]

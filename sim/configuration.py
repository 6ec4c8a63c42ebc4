"""The controller's configuration: a tree of nodes, asked and changed by request lines.

  get_api&objname=NAME&config_path=NODE...         a kind of object as it holds at a node
  get_api&container=NAME&config_path=NODE...       every kind of object of a container
  json&config_path=NODE&data=json=1&...command=show+clock...    a show command's reply as JSON
  operation=set&config_path=NODE&data={...}        changes: kinds of objects with what they become
  operation=set&config_path=NODE&covert_op=configReplace&data={...}     all that a node has itself
  operation=set&config_path=NODE&covert_op=fileUpload&file_name=FILE&data={...}   a file to keep

NAME may be "all". What a node does not say itself comes from the nodes above it. Objects of a kind
that has a key are set one by one or as a list, and members that are not mentioned stay; the others
exist once. The kinds, their members and the first state are in configuration.json; what is set is
kept in memory until the controller is reset. Every answer is JSON, refusals too.
"""

import copy
import json
import os
import threading
from urllib.parse import parse_qs
from xml.etree import ElementTree

import answers

DATA = "&data="
TYPES = {"text": str, "number": int, "switch": bool, "texts": list}


class Refused(Exception):
    pass


def _result(status, text):
    return {"_global_result": {"status": status, "status_str": text}}


def _field(fields, name, default=""):
    return fields.get(name, [default])[0]


def _fields(line):
    return parse_qs(line, keep_blank_values=True, errors="surrogateescape")


def _is_of(value, wanted):
    if wanted == "texts":
        return isinstance(value, list) and all(isinstance(item, str) for item in value)
    return type(value) is TYPES[wanted]


def _table_rows(table):
    heads = [head.text or "" for head in table.iterfind("th/h")]
    return [dict(zip(heads, (cell.text or "" for cell in row.iterfind("c"))))
            for row in table.iterfind("r")]


def _as_json(output):
    """A command's XML: named values by their names, tables as lists of rows."""
    document = ElementTree.fromstring(output)
    shown = {data.get("name", ""): data.text or "" for data in document.iter("data")}
    for table in document.iter("t"):
        shown[table.get("tn", "")] = _table_rows(table)
    return shown


class Configuration:
    def __init__(self, folder, known):
        self._known = known
        self._lock = threading.Lock()
        with open(os.path.join(folder, "configuration.json"), encoding="utf-8") as file:
            self._first = json.load(file)
        self._containers = self._first["containers"]
        self._kinds = {name: kind for kinds in self._containers.values()
                       for name, kind in kinds.items()}
        self.reset()

    def reset(self):
        with self._lock:
            self._nodes = copy.deepcopy(self._first["nodes"])
            self._files = {}

    def serves(self, command):
        return command.startswith(("get_api&", "json&", "operation=set&"))

    def run(self, request, role):
        """The answer to a request line; request holds texts."""
        try:
            with self._lock:
                answer = self._run(request, role)
        except Refused as refusal:
            answer = _result(1, str(refusal))
        # Half a surrogate pair and bytes that are no UTF-8 become "?": no JSON can hold them.
        return json.dumps(answer, ensure_ascii=False).encode(errors="replace").decode() + "\n"

    def _run(self, request, role):
        operation, _, rest = request["command"].partition("&")
        head, found, data = rest.partition(DATA)
        fields = _fields(head)
        node = _field(fields, "config_path")
        if node not in self._nodes:
            raise Refused("unknown node: " + node)
        if operation == "get_api":
            return self._read(node, fields)
        if operation == "json":
            return self._show(request, role, _fields(data))
        if role not in answers.MAY_CHANGE:
            raise Refused(answers.REFUSED)
        if not found:
            raise Refused("no data")
        return self._change(node, fields, data)

    # Reading.

    def _read(self, node, fields):
        asked = "objname" if "objname" in fields else "container"
        name = _field(fields, asked)
        known = self._kinds if asked == "objname" else self._containers
        if name != "all" and name not in known:
            raise Refused("unknown %s: %s" % ("object" if asked == "objname" else asked, name))
        if name == "all":
            kinds = self._kinds
        else:
            kinds = [name] if asked == "objname" else self._containers[name]
        return {**_result(0, "Success"), "config_path": node,
                "objects": {kind: self._effective(node, kind) for kind in kinds}}

    def _effective(self, node, kind):
        """What holds at a node: its own, over that of the nodes above it."""
        key = self._kinds[kind].get("key")
        above = node.rpartition("/")[0]
        inherited = self._effective(above, kind) if above in self._nodes else ([] if key else {})
        own = self._nodes[node].get(kind, [] if key else {})
        if key is None:
            return {**inherited, **own}
        merged = {item[key]: item for item in inherited}
        for item in own:
            merged[item[key]] = {**merged.get(item[key], {}), **item}
        return list(merged.values())

    def _show(self, request, role, fields):
        command = _field(fields, "command")
        if not command.startswith("show "):
            raise Refused("not a show command: " + command)
        output, message = self._known.run({**request, "command": command}, role)
        if message:
            raise Refused(message)
        try:
            return _as_json(output)
        except ElementTree.ParseError as error:
            raise Refused("no JSON of this command") from error

    # Changing.

    def _change(self, node, fields, data):
        operation = _field(fields, "covert_op").lower()
        if operation.startswith("fileupload"):
            name = _field(fields, "file_name")
            if not name:
                raise Refused("no file name")
            self._files[name] = data[1:-1]
            return {**_result(0, "Success"), "file_name": name, "length": len(data) - 2}
        if operation.startswith("configreplace"):
            # Within the braces stands a whole object, or the members of one.
            inner = data[1:-1].strip()
            replacement = self._checked(inner if inner.startswith("{") else data)
            self._nodes[node] = replacement
            return {**_result(0, "Success"), "config_path": node, "objects": sorted(replacement)}
        changes = self._checked(data)
        for kind, value in changes.items():
            self._merge(node, kind, value)
        return {**_result(0, "Success"), "config_path": node, "objects": sorted(changes)}

    def _merge(self, node, kind, value):
        key = self._kinds[kind].get("key")
        if key is None:
            self._nodes[node].setdefault(kind, {}).update(value)
            return
        own = self._nodes[node].setdefault(kind, [])
        for item in value:
            present = next((old for old in own if old[key] == item[key]), None)
            if present is None:
                own.append(item)
            else:
                present.update(item)

    def _checked(self, data):
        """The changes that a text asks for, lists where a kind has a key; all of them or none."""
        try:
            changes = json.loads(data)
        except (ValueError, RecursionError) as error:
            raise Refused("invalid JSON: %s" % error) from error
        if not isinstance(changes, dict):
            raise Refused("invalid JSON: not an object")
        return {kind: self._checked_kind(kind, value) for kind, value in changes.items()}

    def _checked_kind(self, kind, value):
        if kind not in self._kinds:
            raise Refused("unknown object: " + kind)
        key = self._kinds[kind].get("key")
        items = value if isinstance(value, list) and key else [value]
        for item in items:
            if not isinstance(item, dict):
                raise Refused("%s: not an object" % kind)
            if key and key not in item:
                raise Refused("%s: %s is missing" % (kind, key))
            for name, member in item.items():
                wanted = self._kinds[kind]["fields"].get(name)
                if wanted is None:
                    raise Refused("%s: unknown member: %s" % (kind, name))
                if not _is_of(member, wanted):
                    raise Refused("%s: %s is not a %s" % (kind, name, wanted))
        return items if key else value

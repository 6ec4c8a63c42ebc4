#!/usr/bin/python3
"""Checks that no two records, classes or enumerations of src/ have one name in the same namespace.

    check_type_names.py [CHECKOUT]

Two definitions of one name that the linker sees are undefined behaviour, and neither the compiler
nor the linker has to say so. Names in unnamed namespaces, in functions and in other types do not
count. Prints each name that is defined again; the exit status is 1 when there is one. Before that,
the check is tried on texts of its own, so that it cannot pass by finding nothing.
"""

import re
import sys
from pathlib import Path

TOKEN = re.compile(
    r'(?P<skip>//[^\n]*|/\*.*?\*/|^[ \t]*#(?:[^\n\\]|\\.)*'
    r'|R"(?P<mark>[^(\s]*)\(.*?\)(?P=mark)"|"(?:[^"\\\n]|\\.)*"|(?<!\w)\'(?:[^\'\\\n]|\\.)*\'|\[\[.*?\]\])'
    r'|(?P<scope>[{};])', re.DOTALL | re.MULTILINE)
DEFINITION = re.compile(r"\b(?:struct|class|union|enum(?:\s+(?:struct|class))?)\s+(?:alignas\([^)]*\)\s*)?"
                        r"(\w+)(?:\s+final)?(?:\s*:[^:].*)?$", re.DOTALL)
NAMESPACE = re.compile(r"\bnamespace(?:\s+([\w:]+))?\s*$")


def opened(head):
    """What a "{" behind this text opens: a namespace's name or None, and a type's name or None."""
    head = head.strip()
    namespace = NAMESPACE.search(head)
    if namespace and namespace.group(1):
        return namespace.group(1) + "::", None
    if re.fullmatch(r'extern\s*""', head):
        return "", None
    definition = DEFINITION.search(head)
    return None, definition.group(1) if definition else None


def definitions(text):
    """The names, with their namespaces, and lines of the types that the linker may see."""
    scopes, head, end = [], "", 0
    for match in TOKEN.finditer(text):
        head += text[end:match.start()]
        end = match.end()
        token = match.group("scope")
        if not token:
            head += '""' if match.group().endswith('"') else " "
            continue
        if token == "{":
            scope, name = opened(head)
            if name and None not in scopes:
                yield "".join(scopes) + name, text.count("\n", 0, match.start()) + 1
            scopes.append(scope)
        elif token == "}" and scopes:
            scopes.pop()
        head = ""
    assert not scopes, "a brace is not closed"


def faults(root):
    first = {}
    for path in sorted((root / "src").rglob("*")):
        if path.suffix not in (".cpp", ".h"):
            continue
        for name, line in definitions(path.read_text(encoding="utf-8")):
            place = "%s:%d" % (path, line)
            if first.setdefault(name, place) != place:
                yield "%s: %s is defined in %s, too" % (place, name, first[name])
    assert first, "no types below %s" % root


def check_itself():
    for text, wanted in (
            ("struct a { int x; }; struct b;", ["a"]),
            ("struct a { struct b {}; enum class c {}; }; union d {};", ["a", "d"]),
            ("enum class a : std::uint8_t { x }; struct b final : c {\n};", ["a", "b"]),
            ("namespace { struct a {}; } namespace n { class b {}; }", ["n::b"]),
            ('extern "C" { struct [[gnu::packed]] a {}; }', ["a"]),
            ("template <auto X> struct a {}; template <> struct a<3> {};", ["a"]),
            ("struct alignas(8) a {}; template <class X> requires (sizeof(X) > 1) struct b {};", ["a", "b"]),
            ("struct a* f(struct b* c) { struct d {}; return {}; } struct e x{};", []),
            ("// struct a {\n/* { */ char b = '{'; auto c = R\"x({\")x\"; struct d { int e = 1'000; };",
             ["d"]),
            ("#define X struct a { \\\n }\nstruct b {};", ["b"])):
        found = [name for name, _ in definitions(text)]
        assert found == wanted, (text, found)


def main():
    check_itself()
    found = list(faults(Path(sys.argv[1] if len(sys.argv) > 1 else ".")))
    print("\n".join(found) or "no type's name is defined twice")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())

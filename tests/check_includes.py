#!/usr/bin/python3
"""Checks that every include of src/ and fuzz/ points to its own floor or to one below it.

    check_includes.py [CHECKOUT]

Prints each violation; the exit status is 1 when there is one. Before that, the check is tried on
lines of its own, so that it cannot pass by finding nothing.
"""

import re
import sys
from pathlib import Path

# A floor may include itself and what is listed for it.
BELOW = {
    "platform": [],
    "runtime": ["platform"],
    "backend": ["platform", "runtime"],
    "auth": ["platform", "runtime", "backend"],
    "monitor": ["platform", "runtime", "backend", "auth"],
    "api": ["platform", "runtime", "backend", "auth"],
    "dispatch": ["platform", "runtime", "backend", "auth", "monitor", "api"],
    "fuzz": ["platform", "runtime", "backend", "auth", "monitor", "api", "dispatch"],
}
INCLUDE = re.compile(r'^\s*#\s*include(?:_next)?\s*(["<])([^">]+)[">]')


def fault_of(floor, line):
    """What is wrong with a line of a file on this floor, or None."""
    match = INCLUDE.match(line)
    if not match:
        return None
    quote, name = match.groups()
    target = name.split("/")[0]
    if quote == "<":
        return "own header in angle brackets: " + name if target in BELOW and "/" in name else None
    if floor == "fuzz" and "/" not in name:
        return None  # a folder beside src/, whose files know one another by name
    if "/" not in name or target not in BELOW:
        return "not a path from src/: " + name
    if target != floor and target not in BELOW[floor]:
        return "%s may not include %s" % (floor, name)
    return None


def faults(root):
    for path in sorted((*(root / "src").rglob("*"), *(root / "fuzz").rglob("*"))):
        if path.suffix not in (".cpp", ".h"):
            continue
        folders = path.relative_to(root).parts
        floor = folders[1] if folders[0] == "src" else "fuzz"
        if floor not in BELOW:
            yield "%s: no such floor" % path
            continue
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
            fault = fault_of(floor, line)
            if fault:
                yield "%s:%d: %s" % (path, number, fault)


def check_itself():
    for floor, line, wanted in (
            ("runtime", '#include "platform/paths.h"', False),
            ("runtime", "#include <vector>", False),
            ("runtime", '#include "backend/cli_helper.h"', True),
            ("monitor", ' # include "api/rest.h"', True),
            ("auth", '#include "permission.h"', True),
            ("auth", '#include "../dispatch/token.h"', True),
            ("auth", "#include <dispatch/token.h>", True),
            ("fuzz", '#include "fuzz_input.h"', False),
            ("fuzz", '#include "dispatch/token.h"', False),
            ("dispatch", '#include "fuzz/fuzz_input.h"', True)):
        assert bool(fault_of(floor, line)) == wanted, (floor, line)


def main():
    check_itself()
    root = Path(sys.argv[1] if len(sys.argv) > 1 else ".")
    assert any((root / "src").rglob("*.cpp")), "no sources below %s" % root
    found = list(faults(root))
    print("\n".join(found) or "every include points downward")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/python3
"""The share of lines and of branches that ran, for each folder of src/, from what GCC's gcov says.

    coverage_table.py CHECKOUT [--missing]
"""

import json
import os
import subprocess
import sys
from collections import defaultdict
from pathlib import Path


def gcov(notes):
    done = subprocess.run(["gcov", "--json-format", "--stdout", "--branch-probabilities", *map(str, notes)],
                          capture_output=True, text=True, check=True)
    return [json.loads(line) for line in done.stdout.splitlines()]


def count(checkout):
    """How often each line ran, and each of its branches; a header's counts are those of all who include it."""
    lines, branches = defaultdict(int), defaultdict(int)
    source = str(checkout / "src") + "/"
    for document in gcov(sorted((checkout / "build/coverage/src").rglob("*.gcno"))):
        for file in document["files"]:
            # A compiler cache may have made it relative.
            path = os.path.normpath(os.path.join(document["current_working_directory"], file["file"]))
            if not path.startswith(source):
                continue
            name = path[len(source):]
            for line in file["lines"]:
                place = (name, line["line_number"])
                lines[place] += line["count"]
                for number, branch in enumerate(line["branches"]):
                    if not branch["throw"]:
                        branches[(*place, line.get("function_name", ""), number)] += branch["count"]
    return lines, branches


def share(counts):
    ran = sum(1 for value in counts if value > 0)
    return "%5d of %5d  %5.1f %%" % (ran, len(counts), 100 * ran / max(1, len(counts)))


def print_table(lines, branches):
    folders = sorted({place[0].split("/")[0] for place in lines})
    print("%-10s %-24s %s" % ("folder", "lines", "branches"))
    for prefix in [*(folder + "/" for folder in folders), ""]:
        of_lines, of_branches = ([value for place, value in counts.items() if place[0].startswith(prefix)]
                                 for counts in (lines, branches))
        print("%-10s %-24s %s" % (prefix or "all", share(of_lines), share(of_branches)))


def print_missing(lines, branches):
    missing = defaultdict(lambda: ([], set()))
    for (name, line), value in lines.items():
        if value == 0:
            missing[name][0].append(line)
    for (name, line, *_), value in branches.items():
        if value == 0 and lines[name, line] > 0:
            missing[name][1].add(line)
    for name, (never, partly) in sorted(missing.items()):
        print("%s: never %s; in part %s" % (name, sorted(never), sorted(partly)))


def main():
    lines, branches = count(Path(sys.argv[1]))
    print_table(lines, branches)
    if "--missing" in sys.argv[2:]:
        print_missing(lines, branches)


if __name__ == "__main__":
    main()

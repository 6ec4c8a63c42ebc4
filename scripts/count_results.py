#!/usr/bin/python3
"""Counts the tests of a JUnit file, names the ones that did not pass, and prints the sum.

    count_results.py FILE PASSED FAILED

PASSED and FAILED are added to it. A skipped test counts as failed: the sandbox has all that tests need.
"""

import sys
import xml.etree.ElementTree as ElementTree


def main():
    path, passed, failed = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
    cases = list(ElementTree.parse(path).getroot().iter("testcase"))
    for case in cases:
        wrong = [kind for kind in ("failure", "error", "skipped") if case.find(kind) is not None]
        if case.get("status") in ("notrun", "disabled", "fail"):  # what ctest says of them
            wrong.append(case.get("status"))
        if wrong:
            print("%s: %s %s" % (wrong[0].upper(), case.get("classname"), case.get("name")))
            failed += 1
        else:
            passed += 1
    print("counted: %d %d" % (passed, failed))
    return 1 if failed or not cases else 0


if __name__ == "__main__":
    sys.exit(main())

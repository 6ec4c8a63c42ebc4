#!/usr/bin/python3
"""Tells the simulated controller how to misbehave.

  simctl.py --control PATH plan '{"close_after": 7}'      the next reply ends after seven bytes
  simctl.py --control PATH plan '{"hold": true}'          the next reply waits for "release"
  simctl.py --control PATH plan '{"generate": {"kind": "table", "count": 8}}'    ... is of 8 MiB
  simctl.py --control PATH wait-held | release | reset | pending
  simctl.py --control PATH pause-accept | resume-accept

The keys of a plan stand in faults.py.
"""

import argparse
import json
import socket
import sys


def order(path, verb, **arguments):
    """Sends one order and returns the answer; RuntimeError when the controller refuses it."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as sock:
        sock.connect(path)
        with sock.makefile("rw", encoding="utf-8") as stream:
            stream.write(json.dumps({"verb": verb, **arguments}) + "\n")
            stream.flush()
            answer = json.loads(stream.readline())
    if "error" in answer:
        raise RuntimeError(answer["error"])
    return answer


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--control", default="/run/wms/controller.ctl")
    parser.add_argument("verb")
    parser.add_argument("plan", nargs="?", type=json.loads)
    options = parser.parse_args()
    try:
        extra = {} if options.plan is None else {"plan": options.plan}
        print(json.dumps(order(options.control, options.verb, **extra)))
    except (OSError, RuntimeError) as error:
        sys.exit("simctl: %s" % error)


if __name__ == "__main__":
    main()

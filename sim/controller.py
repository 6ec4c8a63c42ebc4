#!/usr/bin/python3
"""A wireless LAN controller in a box: the services that the management program talks to.

Prints "ready" when every socket is bound; SIGTERM or SIGINT ends it.
"""

import argparse
import os
import signal
import sys

sys.dont_write_bytecode = True  # a checkout stays as it was found

import answers
import configuration
import control
import faults
import services
import traffic

HELPER_SOCKET = "/tmp/cli-helper.sock"
FAST_PATH_PORT = 8375
REMOTE_ACCESS_PORT = 8227
CONTROLLERLESS_PORT = 8479
CERTIFICATE_STATUS_PORT = 8465

CONTROLLERLESS_REPLY = 32
CERTIFICATE_STATUS_REPLY = 8200


def arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--data", required=True, help="folder with commands/ and the JSON files")
    parser.add_argument("--log", required=True, help="file to which received requests are appended")
    parser.add_argument("--control", required=True, help="path of the control socket (see simctl.py)")
    return parser.parse_args()


def start(options):
    known = answers.Answers(options.data)
    record = traffic.Traffic(options.log)
    plans = faults.Faults()
    tree = configuration.Configuration(options.data, known)
    helper = services.HelperService(HELPER_SOCKET, known, tree, plans, record)
    return [
        helper,
        services.DatagramService("fast", FAST_PATH_PORT, plans,
                                 services.fast_path(known, plans, record)),
        services.DatagramService("rac", REMOTE_ACCESS_PORT, plans,
                                 services.remote_access(known, plans, record)),
        services.DatagramService("dap", CONTROLLERLESS_PORT, plans,
                                 services.acknowledged("dap", CONTROLLERLESS_REPLY, plans, record)),
        services.DatagramService("ocsp", CERTIFICATE_STATUS_PORT, plans,
                                 services.acknowledged("ocsp", CERTIFICATE_STATUS_REPLY, plans,
                                                       record)),
        control.Control(options.control, plans, tree, helper),
    ]


def main():
    options = arguments()
    # Blocked before any thread starts, so that only sigwait below sees them.
    signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGTERM, signal.SIGINT})
    try:
        running = start(options)
    except services.BindError as error:
        sys.exit("controller: cannot serve %s" % error)
    except (OSError, ValueError, answers.DataError) as error:
        sys.exit("controller: %s" % error)
    for service in running:
        services.in_background(service.serve)
    print("ready", flush=True)
    signal.sigwait({signal.SIGTERM, signal.SIGINT})
    for path in (HELPER_SOCKET, options.control):
        if os.path.exists(path):
            os.unlink(path)


if __name__ == "__main__":
    main()

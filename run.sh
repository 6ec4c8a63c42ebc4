#!/bin/bash
# Builds the program and runs it with everything around it, until Ctrl-C.
#
#   ./run.sh [--port N] [--listen ADDRESS] [--cgi]
#
# Requests are served by workers that are warm already, or, with --cgi, by a program started for each.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
# shellcheck source=scripts/lib.sh
. scripts/lib.sh

port=4343 listen=127.0.0.1 services=warm
while [[ $# -gt 0 ]]; do
    case $1 in
        --port) port=${2:?--port needs a number} && shift 2 ;;
        --listen) listen=${2:?--listen needs an address} && shift 2 ;;
        --cgi) services=all && shift ;;
        -h | --help) sed -n '2,6s/^# \{0,1\}//p' run.sh && exit 0 ;;
        *) die "unknown option: $1 (./run.sh [--port N] [--listen ADDRESS] [--cgi])" ;;
    esac
done
[[ $port =~ ^[1-9][0-9]{0,4}$ ]] || die "no port number: $port"
[[ $listen =~ ^[0-9.]+$ ]] || die "no IPv4 address: $listen"

scripts/packages.sh run
/usr/bin/python3 scripts/check_ports.py "$listen" "$port"
build_preset release
say "starting; this takes some seconds"
enter_sandbox --host-net --limits --services "$services purge" --port "$port" --listen "$listen" -- \
    scripts/demo.sh || status=$?
[[ ${status:-0} -eq 130 ]] || exit "${status:-0}"
say "stopped; nothing is left behind"

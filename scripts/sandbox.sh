#!/bin/bash
# Runs a command, as root, in a world of its own in which the program's fixed paths (/flash, /vantor,
# /tmp, /run, /dev/log) are private; the host's files can be read, but nothing is written to them.
# Everything in it ends with the command.
#
#   sudo scripts/sandbox.sh [OPTION...] -- COMMAND [ARGUMENT...]
#
#   --services "NAME..."  start these first: syslog postgres controller program http workers nginx purge;
#                         all as the first name: those with Apache and CGI; warm: with nginx and workers
#   --limits              clients meet the limits of an installation; else what deploy/ limits is not limited
#   --preset NAME         the build that is installed (release); below build/
#   --host-net            share the host's network; otherwise there is only a loopback interface
#   --port N              port of the HTTP server (4343)
#   --listen ADDRESS      its address (127.0.0.1)
#   --writable FOLDER     what is written to this folder of the checkout stays; elsewhere it is lost
#   --lifeline            standard input is a pipe; when it closes, everything ends
#
# A developer's examples:
#   sudo scripts/sandbox.sh -- build/dev/tests/unit/sessions_test
#   sudo scripts/sandbox.sh --services "postgres syslog" -- psql wms
#   sudo scripts/sandbox.sh --services all -- curl -sk https://127.0.0.1:4343/v1/api/login
#   sudo scripts/sandbox.sh --services all -- /usr/bin/python3 -m pytest tests/e2e -k login
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)
# shellcheck source=scripts/lib.sh
. "$here/lib.sh"

services='' preset=release net=(--net) private_net=yes port=4343 listen=127.0.0.1 lifeline=no writable='' limits=none
while [[ $# -gt 0 && $1 != -- ]]; do
    case $1 in
        --services) services=$2 && shift 2 ;;
        --limits) limits=deployed && shift ;;
        --preset) preset=$2 && shift 2 ;;
        --port) port=$2 && shift 2 ;;
        --listen) listen=$2 && shift 2 ;;
        --host-net) net=() private_net=no && shift ;;
        --writable) writable=$2 && shift 2 ;;
        --lifeline) lifeline=yes && shift ;;
        *) die "unknown option: $1" ;;
    esac
done
[[ $# -gt 1 ]] || die "what is to be run in the sandbox?"
shift
[[ $EUID -eq 0 ]] || die "a sandbox is made by root"
services=${services/#all/syslog postgres controller program http}
services=${services/#warm/syslog postgres controller program workers nginx}
workers=0
[[ " $services " != *" workers "* ]] || workers=8

# What the command sees of the environment is this and nothing else.
environment=(
    PATH=/usr/lib/postgresql/15/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8
    TERM="${TERM:-dumb}" PYTHONDONTWRITEBYTECODE=1
    SANDBOX_CHECKOUT="$(dirname "$here")" SANDBOX_PRIVATE_NET="$private_net"
    SANDBOX_LIFELINE="$lifeline" SANDBOX_SERVICES="$services"
    SANDBOX_WRITABLE="$writable"
    WMS_WORKERS="$workers" WMS_LIMITS="$limits"
    WMS_PRESET="$preset" WMS_PORT="$port" WMS_LISTEN="$listen"
    WMS_URL="https://${listen/#0.0.0.0/127.0.0.1}:$port"
)
# The death of the caller ends unshare, and that of unshare everything in the PID namespace.
exec setpriv --pdeathsig KILL unshare --mount --propagation private --ipc --pid --fork --kill-child \
    "${net[@]}" -- /usr/bin/env -i "${environment[@]}" /bin/bash "$here/sandbox_root.sh" "$@"

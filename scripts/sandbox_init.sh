#!/bin/bash
# The sandbox's first process: starts the services, runs the command and ends with its exit status;
# the kernel then ends whatever else runs in the sandbox.
set -euo pipefail
# shellcheck source=scripts/lib.sh
. scripts/lib.sh
# shellcheck source=scripts/services.sh
. scripts/services.sh

# From now on the end of standard input ends everything, and an interrupt is left to the caller.
watch_lifeline() {
    trap '' INT
    trap 'exit 130' TERM
    {
        cat >/dev/null
        kill -TERM 1
    } <&0 &
    exec </dev/null
}

trap : INT  # the command's own business; a first process cannot end itself by a signal
umask 022
ulimit -c 0
[[ $SANDBOX_LIFELINE == no ]] || watch_lifeline
[[ $SANDBOX_PRIVATE_NET == no ]] || ip link set lo up
services_start "$SANDBOX_SERVICES"
status=0
if [[ $SANDBOX_LIFELINE == yes ]]; then
    "$@" &
    wait "$!" || status=$?
else
    "$@" || status=$?
fi
exit "$status"

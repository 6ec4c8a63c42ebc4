#!/bin/bash
# The sandbox's first process: starts the services, runs the command and ends with its exit status;
# the kernel then ends whatever else runs in the sandbox.
set -euo pipefail
# shellcheck source=scripts/lib.sh
. scripts/lib.sh
# shellcheck source=scripts/services.sh
. scripts/services.sh

run_with_lifeline() {
    local lifeline command closed ended='' status=0
    exec {lifeline}<&0
    "$@" </dev/null {lifeline}<&- &
    command=$!
    cat <&"$lifeline" >/dev/null &
    closed=$!
    wait -n -p ended "$command" "$closed" || status=$?
    [[ $ended == "$command" ]] || status=130
    return "$status"
}

umask 022
ulimit -c 0
[[ $SANDBOX_PRIVATE_NET == no ]] || ip link set lo up
services_start "$SANDBOX_SERVICES"
status=0
if [[ $SANDBOX_LIFELINE == yes ]]; then
    run_with_lifeline "$@" || status=$?
else
    "$@" || status=$?
fi
exit "$status"

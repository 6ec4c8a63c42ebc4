#!/bin/bash
# Inside the sandbox: the handlers that send many commands, beside controllers on which each takes
# 20 ms. Its helper takes the place of the simulated one.
set -euo pipefail

readonly bin=build/bench/bench

echo "## Handlers that send many commands of 20 ms each: medians of 20 [ms]"
echo
echo "| helper | handler | commands | one command | handler's time | in times of one |"
echo "|---|---|---|---|---|---|"
for way in side serial; do
    coproc helper { exec "$bin/slow_helper" "$way" 20; }
    # shellcheck disable=SC2154  # set by coproc
    helper_pid=$helper_PID
    read -r _ <&"${helper[0]}"
    "$bin/handler_times" "$way"
    kill "$helper_pid"
    wait "$helper_pid" 2>/dev/null || true
done

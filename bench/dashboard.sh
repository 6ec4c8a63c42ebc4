#!/bin/bash
# Inside the sandbox: the handlers that send many commands, beside controllers on which each takes
# 20 ms. Its helper takes the place of the simulated one.
set -euo pipefail

readonly bin=build/bench/bench

serve() {
    coproc helper { exec "$bin/slow_helper" "$1" 20; }
    read -r _ <&"${helper[0]}"
}

echo "## Handlers that send many commands of 20 ms each: medians of 20 [ms]"
echo
echo "| helper | handler | commands | one command | handler's time | in times of one |"
echo "|---|---|---|---|---|---|"
for way in side serial; do
    serve "$way"
    "$bin/handler_times" "$way"
    kill "$helper_PID"
    wait "$helper_PID" 2>/dev/null || true
done

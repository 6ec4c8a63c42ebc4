#!/bin/bash
# Builds the fuzz targets and runs them side by side, each for MINUTES of its own, from what earlier
# runs have kept. A target ends early at its first find. Ends with a table; status 1 when there is a find.
#
#   fuzz/run.sh [-j JOBS] MINUTES [TARGET...]
#
#   -j JOBS   how many run at a time; as many as there are processors unless told otherwise
#
# Kept in build/fuzz: corpus/TARGET, finds/TARGET, logs/TARGET. To let the machine's other users go first:
#   nice -n 19 fuzz/run.sh 600
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib.sh
. scripts/lib.sh

jobs=$(nproc)
if [[ ${1:-} == -j ]]; then
    jobs=${2:?-j needs a number}
    shift 2
fi
[[ ${1:-} =~ ^[1-9][0-9]*$ && $jobs =~ ^[1-9][0-9]*$ ]] || die "usage: fuzz/run.sh [-j JOBS] MINUTES [TARGET...]"
scripts/packages.sh run fuzz
build_preset fuzz
mkdir -p build/fuzz/{corpus,finds,logs}
status=0
enter_sandbox --preset fuzz --writable build/fuzz -- fuzz/targets.sh run "$jobs" "$@" || status=$?
# Root ran it; whoever owns the checkout owns what was kept.
"${as_root[@]}" chown -R --reference=. build/fuzz/{corpus,finds,logs}
exit "$status"

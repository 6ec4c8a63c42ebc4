#!/bin/bash
# Measures the program beside its yardstick and prints the tables; see docs/benchmarks.md.
#
#   bench/run.sh
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib.sh
. scripts/lib.sh

scripts/packages.sh run bench
build_preset release
gcc -O2 -o build/release/connect_in_turn bench/peers/connect_in_turn.c \
    "-I$(pg_config --includedir)" -lpq
enter_sandbox --services all -- bench/whole_process.sh

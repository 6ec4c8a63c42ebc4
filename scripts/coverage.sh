#!/bin/bash
# Runs the unit and end-to-end tests on a build that counts, and prints the share of lines and branches
# that ran, a row for each folder of src/.
#
#   scripts/coverage.sh            the table
#   scripts/coverage.sh --missing  and, file by file, the lines that never ran or not in every direction
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib.sh
. scripts/lib.sh

# Within the sandbox: what is counted there is seen there only, so the table is made there, too. The unit
# tests take the places of services that start after them.
if [[ ${1:-} == --inside ]]; then
    # shellcheck source=scripts/services.sh
    . scripts/services.sh
    scripts/test_round.sh unit || say "not all unit tests passed"
    services_start "controller program http"
    scripts/test_round.sh e2e || say "not all end-to-end tests passed"
    exec /usr/bin/python3 scripts/coverage_table.py "$SANDBOX_CHECKOUT" "${@:2}"
fi

scripts/packages.sh run test
build_preset coverage
enter_sandbox --preset coverage --services "syslog postgres" -- scripts/coverage.sh --inside "$@"

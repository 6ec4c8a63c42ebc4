#!/bin/bash
# Builds everything and runs all tests, plainly and under the sanitizers; or the checks on the code.
#
#   ./test.sh              all tests; the last line counts them
#   ./test.sh --unit NAME  the unit tests whose names match NAME (ctest -R), plainly
#   ./test.sh --e2e EXPR   the end-to-end tests that match EXPR (pytest -k), plainly, as CGI
#   ./test.sh --warm EXPR  the same behind warm workers
#   ./test.sh --units      deploy's units on a systemd that is booted for it, plainly
#   ./test.sh --fuzz       the fuzz targets: seeds and past finds, then a few seconds of each
#   ./test.sh --lint       formatting, static analysis, includes, headers, Clang's warnings
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
# shellcheck source=scripts/lib.sh
. scripts/lib.sh

passed=0 failed=0

# count_round NAME PRESET SERVICES COMMAND...: runs a part of the tests in a sandbox of its own and adds
# what it counted. A part that counts nothing, or ends badly with no failure counted, is a failure.
count_round() {
    local name=$1 preset=$2 services=$3 status=0 output tee_pid counts
    shift 3
    local log=build/test-$preset-$name.log
    say "$name tests of the $preset build"
    exec {output}> >(exec tee "$log")
    tee_pid=$!
    enter_sandbox --preset "$preset" --services "$services" -- "$@" >&"$output" 2>&1 || status=$?
    exec {output}>&-
    wait "$tee_pid" || true
    ((status < 128)) || exit "$status"
    counts=$(sed -n 's/^counted: \([0-9]* [0-9]*\)$/\1/p' "$log" | tail -n 1)
    local round_passed=${counts% *} round_failed=${counts#* }
    if [[ ${round_passed:-0} -eq 0 || ($status -ne 0 && ${round_failed:-0} -eq 0) ]]; then
        echo "the $name tests of the $preset build did not run to their end" >&2
        failed=$((failed + 1))
    fi
    passed=$((passed + ${round_passed:-0}))
    failed=$((failed + ${round_failed:-0}))
}

# What checks the OpenAPI document comes from npm, as the lock file pins it.
install_validator() {
    local folder=build/openapi
    [[ ! $folder/node_modules/.package-lock.json -nt tests/openapi/package-lock.json ]] || return 0
    scripts/packages.sh npm
    say "installing the validator of the OpenAPI document"
    mkdir -p "$folder"
    cp tests/openapi/package.json tests/openapi/package-lock.json "$folder"
    npm ci --prefix "$folder" --cache "$PWD/build/npm-cache" --ignore-scripts --no-audit --no-fund --loglevel=error
}

unit_round() {
    count_round unit "$1" "syslog postgres" scripts/test_round.sh unit "${@:2}"
}

e2e_round() {
    install_validator
    count_round e2e "$1" all scripts/test_round.sh e2e "${@:2}"
}

warm_round() {
    install_validator
    count_round warm "$1" warm scripts/test_round.sh warm "${@:2}"
}

# The systemd has a control group, which outlives whatever ends the sandbox.
units_round() {
    local group=wms-test-$$
    # shellcheck disable=SC2064  # expanded now
    trap "${as_root[*]} unshare --mount tests/systemd/boot.sh --remove $group" EXIT
    count_round units release "postgres controller program" \
        tests/systemd/boot.sh "$group" scripts/test_round.sh units
}

# The fuzz targets: their seeds and past finds, then a few seconds of each.
fuzz_round() {
    count_round fuzz fuzz '' fuzz/targets.sh check
}

all_rounds() {
    local preset
    build_preset release
    build_preset asan
    build_preset fuzz
    for preset in release asan; do
        unit_round "$preset"
        e2e_round "$preset"
    done
    warm_round release
    units_round
    fuzz_round
}

filter=${1:-}
[[ $filter == --lint ]] && exec scripts/lint.sh
scripts/packages.sh run test fuzz
case $filter in
    '') all_rounds ;;
    --unit) build_preset release && unit_round release -R "${2:?--unit needs a name}" ;;
    --e2e) build_preset release && e2e_round release -k "${2:?--e2e needs an expression}" ;;
    --warm) build_preset release && warm_round release -k "${2:?--warm needs an expression}" ;;
    --units) build_preset release && units_round ;;
    --fuzz) build_preset fuzz && fuzz_round ;;
    *) die "unknown option: $filter" ;;
esac
echo "$passed passed, $failed failed"
((failed == 0 && passed > 0))

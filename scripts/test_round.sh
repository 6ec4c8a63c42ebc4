#!/bin/bash
# Inside the sandbox: runs one part of the tests and prints "counted: PASSED FAILED".
#
#   test_round.sh unit [CTEST OPTION...]
#   test_round.sh e2e [PYTEST OPTION...]
#   test_round.sh warm [PYTEST OPTION...]    those whose outcome may depend on how requests are served
#   test_round.sh units                      beside the systemd of tests/systemd/boot.sh
set -euo pipefail
# shellcheck source=scripts/lib.sh
. scripts/lib.sh
# shellcheck source=scripts/hardening.sh
. scripts/hardening.sh

readonly reports=/run/wms/sanitizer
results=/run/wms/results.xml
failed_checks=0 passed_checks=0

check() {
    local what=$1
    shift
    if "$@"; then
        passed_checks=$((passed_checks + 1))
    else
        failed_checks=$((failed_checks + 1))
        echo "FAILED: $what"
    fi
}

is_sanitized() {
    [[ $WMS_PRESET == asan ]]
}

no_reports() {
    local file found=0
    for file in "$reports"/*; do
        [[ -e $file ]] || continue
        found=1
        cat "$file"
    done
    return "$found"
}

# leaves_report FAULT TEXT: the faulty program, asked for this fault, leaves a report with this text.
leaves_report() {
    curl -sk -o /run/wms/faulty.out "$WMS_URL/faulty?$1=1" || true
    wait_for 100 "the faulty program" no_program_runs faulty.cgi
    grep -q "$2" "$reports"/* 2>/dev/null || return 1
    rm "$reports"/*
}

no_program_runs() {
    ! pgrep -x "$1"
}

# A report made behind the HTTP server is found: otherwise finding none would mean nothing.
check_that_reports_are_found() {
    check "a heap overrun behind the HTTP server is reported" leaves_report overrun heap-buffer-overflow
    check "an integer overflow behind the HTTP server is reported" leaves_report overflow "signed integer overflow"
    check "a leak behind the HTTP server is reported" leaves_report leak "detected memory leaks"
    check "a faultless request leaves no report" eval '! leaves_report none "."'
}

run_unit() {
    # One at a time: tests use the program's fixed paths.
    ctest --test-dir "$SANDBOX_CHECKOUT/build/$WMS_PRESET" --no-tests=error --output-on-failure --timeout 120 \
        --quiet --output-log /run/wms/ctest.log --output-junit "$results" "$@" || true
    sed -n '/Failed\|Not Run\|Timeout\|tests passed/p' /run/wms/ctest.log | tail -n 40
}

run_e2e() {
    if is_sanitized; then
        check_that_reports_are_found
    elif [[ $WMS_PRESET == release ]]; then
        check_hardening /vantor/webui/wms/wms.cgi
    fi
    /usr/bin/python3 -m pytest tests/e2e -q -p no:cacheprovider --tb=short --junitxml="$results" "$@" || true
    # A request whose client went away may still be running.
    wait_for 300 "the last request" no_program_runs wms.cgi
}

# What limits, watches or counts the process of one request has none behind workers.
run_warm() {
    local name files=()
    for name in cases login entry upload configuration ap_search dashboard helper limits openapi serving \
        access hostile_replies injection planted logs doors headers browser; do
        files+=("tests/e2e/test_$name.py")
    done
    /usr/bin/python3 -m pytest "${files[@]}" -q -p no:cacheprovider --tb=short --junitxml="$results" "$@" || true
}

run_units() {
    /usr/bin/python3 -m pytest tests/systemd -q -p no:cacheprovider --tb=short --junitxml="$results" || true
}

kind=$1
shift
"run_$kind" "$@"
if is_sanitized; then
    check "no sanitizer has anything to report" no_reports
fi
/usr/bin/python3 scripts/count_results.py "$results" "$passed_checks" "$failed_checks"

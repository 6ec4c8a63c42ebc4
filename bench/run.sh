#!/bin/bash
# Measures the program beside its yardsticks and prints the tables; see docs/benchmarks.md.
#
#   bench/run.sh            everything
#   bench/run.sh processes  whole requests, from exec to exit
#   bench/run.sh replies    reading replies, beside libraries that read XML
#   bench/run.sh search     searches of the database of access points
#   bench/run.sh dashboard  handlers that send many commands, beside a slow controller
#   bench/run.sh load       64 clients for a minute, or for as many seconds as are given
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib.sh
. scripts/lib.sh

measure_processes() {
    build_preset release
    gcc -O2 -o build/release/connect_in_turn bench/peers/connect_in_turn.c \
        "-I$(pg_config --includedir)" -lpq
    enter_sandbox --services all -- bench/whole_process.sh
}

# One row for each work and size; the medians of all readers, in MiB/s.
reply_table() {
    jq -r '
        [.benchmarks[] | select(.aggregate_name == "median")
            | (.run_name | split("/")) as [$work, $size, $reader]
            | {$work, $size, $reader, speed: (.bytes_per_second / 1048576 | round)}] as $all
        | ["ours", "Expat", "pugixml", "libxml2"] as $readers
        | "| [MiB/s] | \($readers | join(" | ")) |", "|---|\($readers | map("---|") | add)",
          ("model", "tokens" | . as $work
            | "2 KB", "200 KB", "8 MB" | . as $size
            | [$readers[] as $reader
                | $all[] | select([.work, .size, .reader] == [$work, $size, $reader]).speed]
            | "| \($work), \($size) | \(join(" | ")) |")'
}

measure_replies() {
    build_preset bench
    local result=build/bench/reply_reading.json
    build/bench/bench/reply_reading --benchmark_repetitions=9 --benchmark_min_time=0.2 \
        --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true \
        --benchmark_format=json >"$result" 2>build/bench/reply_reading.err ||
        { cat build/bench/reply_reading.err >&2 && die "the readers of replies were not measured"; }
    echo
    echo "## Reading replies"
    echo
    reply_table <"$result"
}

measure_search() {
    build_preset bench
    enter_sandbox --preset bench --services all -- /usr/bin/python3 bench/ap_search.py
}

measure_dashboard() {
    build_preset bench
    enter_sandbox --preset bench --services "syslog program" -- bench/dashboard.sh
}

# The end-to-end test of the same name, which checks every answer and prints its figures.
measure_load() {
    scripts/packages.sh test
    build_preset release
    enter_sandbox --services all -- env WMS_LOAD_SECONDS="${1:-60}" WMS_LOAD_REQUESTS=1000000000 \
        /usr/bin/python3 -m pytest -q -s -p no:cacheprovider tests/e2e/test_load.py -k clients
}

scripts/packages.sh run bench
case ${1:-} in
    '')
        measure_processes
        measure_replies
        measure_search
        measure_dashboard
        measure_load
        ;;
    processes) measure_processes ;;
    replies) measure_replies ;;
    search) measure_search ;;
    dashboard) measure_dashboard ;;
    load) measure_load "${2:-60}" ;;
    *) die "unknown benchmark: $1" ;;
esac

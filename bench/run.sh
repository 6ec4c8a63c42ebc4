#!/bin/bash
# Measures the program beside its yardsticks and prints the tables; see docs/benchmarks.md.
#
#   bench/run.sh            everything
#   bench/run.sh processes  whole requests, from exec to exit
#   bench/run.sh replies    reading replies, beside libraries that read XML
#   bench/run.sh search     searches of the database of access points
#   bench/run.sh dashboard  documents of many commands, from a slow controller
#   bench/run.sh growth     how costs grow with their inputs, what is allocated, peak memory; fails
#                           where a cost grows much faster than its input
#   bench/run.sh load       64 clients for a minute, or for as many seconds as are given
#   bench/run.sh peers      one request through an HTTP server, beside peers that do the same work;
#                           5 rounds of 10 seconds, or as many of as many as are given
#   bench/run.sh aborted    an operator's waits beside a stranger who makes requests and hangs up, without the
#                           HTTP server's limits and with them
#   bench/run.sh overhead   what our own code adds to that request, in instructions and microseconds
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
    build_preset release
    build_preset bench
    enter_sandbox --services "syslog postgres program" -- /usr/bin/python3 bench/dashboard.py
}

measure_growth() {
    build_preset release
    build_preset bench
    # Its functions stand for the library's: none may become a call of one of them.
    gcc -O2 -Wall -Wextra -Werror -fno-builtin -shared -fPIC -o build/bench/libcount_calls.so bench/count_calls.c
    local failed=0
    echo
    echo "## How each stage grows, in processor time"
    echo
    build/bench/bench/growth || failed=1
    enter_sandbox --services all -- /usr/bin/python3 bench/whole_requests.py || failed=1
    return "$failed"
}

# The end-to-end test of the same name, which checks every answer and prints its figures.
measure_load() {
    scripts/packages.sh test
    build_preset release
    enter_sandbox --services all -- env WMS_LOAD_SECONDS="${1:-60}" WMS_LOAD_REQUESTS=1000000000 \
        /usr/bin/python3 -m pytest -q -s -p no:cacheprovider tests/e2e/test_load.py -k clients
}

# Programs that do what ours does for an ordinary request, and the helper that all of them ask.
build_peers() {
    local to=build/peers from=bench/peers flags=(-O2 -Wall -Wextra -Werror "-I$(pg_config --includedir)")
    mkdir -p "$to"
    gcc "${flags[@]}" -o "$to/helper" "$from/helper.c"
    gcc "${flags[@]}" -o "$to/bare_cgi" "$from/bare_cgi.c"
    gcc "${flags[@]}" -o "$to/bare_fastcgi" "$from/bare_fastcgi.c" -lfcgi
    gcc "${flags[@]}" -o "$to/minimal_cgi" "$from"/{minimal_cgi,ordinary_request}.c -lpq
    gcc "${flags[@]}" -o "$to/minimal_fastcgi" "$from"/{minimal_fastcgi,ordinary_request}.c -lfcgi -lpq
    gcc "${flags[@]}" -o "$to/share" "$from"/{share,ordinary_request}.c -lpq
}

measure_peers() {
    build_preset release
    build_peers
    enter_sandbox --services "syslog postgres program" -- /usr/bin/python3 bench/beside_peers.py "$1" "$2"
}

measure_aborted() {
    build_preset release
    enter_sandbox --services warm -- /usr/bin/python3 bench/aborted.py
    enter_sandbox --services warm --limits -- /usr/bin/python3 bench/aborted.py
}

measure_overhead() {
    build_preset release
    build_peers
    enter_sandbox --services "syslog postgres program" -- /usr/bin/python3 bench/overhead.py "$1" "$2"
}

scripts/packages.sh run bench
case ${1:-} in
    '')
        measure_processes
        measure_replies
        measure_search
        measure_dashboard
        measure_growth
        measure_load
        measure_peers 5 10
        measure_overhead 3 10
        measure_aborted
        ;;
    processes) measure_processes ;;
    replies) measure_replies ;;
    search) measure_search ;;
    dashboard) measure_dashboard ;;
    growth) measure_growth ;;
    load) measure_load "${2:-60}" ;;
    peers) measure_peers "${2:-5}" "${3:-10}" ;;
    overhead) measure_overhead "${2:-3}" "${3:-10}" ;;
    aborted) measure_aborted ;;
    *) die "unknown benchmark: $1" ;;
esac

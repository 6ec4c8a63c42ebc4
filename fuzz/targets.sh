#!/bin/bash
# Inside the sandbox: runs fuzz targets, each in a world of its own within it, since the program's
# paths are fixed.
#
#   targets.sh run JOBS MINUTES [TARGET...]   each for MINUTES; then a table
#   targets.sh check                          each on its seeds, then for a few seconds from them; prints
#                                             "counted: PASSED FAILED"
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib.sh
. scripts/lib.sh

readonly kept=build/fuzz
readonly check_seconds=5 check_jobs=2
readonly limits=(-timeout=60 -rss_limit_mb=2048 -malloc_limit_mb=512 -close_fd_mask=1 -print_final_stats=1)

# in_world COMMAND...: with fresh folders, network and processes, gone with the command.
in_world() {
    # shellcheck disable=SC2016  # expanded by the inner shell
    unshare --mount --ipc --net --pid --fork --kill-child --mount-proc -- /bin/bash -euc '
        for folder in /tmp /run /flash /dev/shm; do
            mount -t tmpfs -o mode=1777,size=512m fuzz "$folder"
        done
        mkdir /flash/{config,upload}
        ip link set lo up
        "$@" || exit
    ' in_world "$@"
}

# fuzz_target TARGET OPTION...: with the limits and the dictionary that belong to it.
fuzz_target() {
    local target=$1 max_len
    shift
    max_len=$(sed -n "s/^$target //p" "$kept/fuzz_targets")
    # A report is to name functions even without LLVM's own symbolizer.
    ASAN_OPTIONS=allow_addr2line=1 in_world "$kept/fuzz/fuzz_$target" "${limits[@]}" -max_len="$max_len" \
        -dict="fuzz/dict/$target.dict" "$@"
}

# Leaves the target's status, and what it took, in RESULTS/TARGET.
run_one() {
    local results=$1 seconds=$2 target=$3 status=0
    mkdir -p "$kept"/{corpus,finds}/"$target"
    TIMEFORMAT='%U %S'
    {
        time fuzz_target "$target" -max_total_time="$seconds" -artifact_prefix="$kept/finds/$target/" \
            "$kept/corpus/$target" "fuzz/seeds/$target" >"$kept/logs/$target" 2>&1 </dev/null || status=$?
    } 2>"$results/$target"
    echo "$status" >>"$results/$target"
}

stat_of() {
    sed -n "s/^stat::$2: *//p" "$kept/logs/$1" | tail -n 1
}

# Edges, features and inputs of the corpus, as the log says them last.
coverage_of() {
    sed -n 's/.* cov: \([0-9]*\) ft: \([0-9]*\) corp: \([0-9]*\).*/\1 \2 \3/p' "$kept/logs/$1" | tail -n 1
}

table() {
    local results=$1 since=$2 target user system status edges features inputs finds failed=0
    shift 2
    printf '%-22s %12s %8s %8s %8s %9s %7s %6s\n' target executions exec/s cpu-min corpus features edges finds
    for target in "$@"; do
        { read -r user system && read -r status; } <"$results/$target"
        read -r edges features inputs < <(coverage_of "$target" || true) || true
        finds=$(find "$kept/finds/$target" -type f -newer "$since" | wc -l)
        printf '%-22s %12s %8s %8s %8s %9s %7s %6s\n' "$target" "$(stat_of "$target" number_of_executed_units)" \
            "$(stat_of "$target" average_exec_per_sec)" \
            "$(awk "BEGIN { printf \"%.1f\", ($user + $system) / 60 }")" "$inputs" "$features" "$edges" "$finds"
        ((status == 0)) || failed=1
        ((status == 0)) || echo "  $target ended with status $status: see $kept/logs/$target and $kept/finds/$target"
    done
    return "$failed"
}

run() {
    local jobs=$1 minutes=$2 results target
    shift 2
    results=$(mktemp -d /run/wms/fuzz.XXXXXX)
    if (($# == 0)); then
        mapfile -t all < <(cut -d ' ' -f 1 "$kept/fuzz_targets")
        set -- "${all[@]}"
    fi
    for target in "$@"; do
        grep -q "^$target " "$kept/fuzz_targets" || die "there is no target $target"
    done
    touch "$results.begun"
    printf '%s\n' "$@" | xargs -P "$jobs" -n 1 "$0" run_one "$results" $((minutes * 60))
    table "$results" "$results.begun" "$@"
}

# attempt WHAT TARGET OPTION...: one check; a failure shows the report and the input.
attempt() {
    local what=$1 target=$2 log input
    shift 2
    log=$(mktemp -d /var/fuzz.XXXXXX)
    if fuzz_target "$target" -artifact_prefix="$log/" "$@" >"$log/log" 2>&1 </dev/null; then
        echo "passed: $target $what"
        return
    fi
    echo "FAILED: $target $what"
    tail -n 40 "$log/log"
    for input in "$log"/*-*; do
        [[ ! -f $input ]] || echo "its input: $(base64 -w 0 "$input")"
    done
}

check_one() {
    local target=$1 folder
    local seeds=("fuzz/seeds/$target"/*)
    if [[ ! -s fuzz/dict/$target.dict || ! -f ${seeds[0]} ]]; then
        echo "FAILED: $target has a dictionary and seeds"
        return
    fi
    attempt "reads its seeds and past finds" "$target" "${seeds[@]}"
    folder=$(mktemp -d /var/fuzz.XXXXXX)
    attempt "finds nothing from its seeds in $check_seconds seconds" "$target" -seed=1 \
        -max_total_time="$check_seconds" "$folder" "fuzz/seeds/$target"
}

check() {
    local output=/run/wms/fuzz.output passed failed
    cut -d ' ' -f 1 "$kept/fuzz_targets" | xargs -P "$check_jobs" -n 1 "$0" check_one >"$output" 2>&1 || true
    cat "$output"
    passed=$(grep -c '^passed: ' "$output" || true)
    failed=$(grep -c '^FAILED: ' "$output" || true)
    echo "counted: $passed $failed"
    ((failed == 0))
}

"$@"

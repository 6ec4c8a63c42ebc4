# Functions that the scripts share; sourced, never run.
# shellcheck shell=bash

die() {
    echo "$(basename "$0"): $*" >&2
    exit 1
}

say() {
    echo "== $*"
}

# The command prefix that makes the caller root: empty, or sudo.
as_root=()
if [[ $EUID -ne 0 ]]; then
    as_root=(sudo)
fi

# wait_for TRIES WHAT COMMAND...: asks ten times a second until COMMAND succeeds; gives up after TRIES.
wait_for() {
    local tries=$1 what=$2
    shift 2
    while ! "$@" >/dev/null 2>&1; do
        ((--tries > 0)) || die "$what did not become ready"
        sleep 0.1
    done
}

# Builds a preset with a build folder of its own; the output is shown only when it fails.
build_preset() {
    local preset=$1
    say "building $preset"
    mkdir -p build
    local log=build/$preset.log
    if ! { cmake --preset "$preset" && cmake --build --preset "$preset"; } >"$log" 2>&1; then
        tail -n 60 "$log" >&2
        die "the $preset build failed, all of its output is in $log"
    fi
}

# enter_sandbox ARGUMENT...: runs scripts/sandbox.sh and returns its exit status. Its standard input is
# a pipe that only this shell holds open, so the sandbox ends with this shell, however it dies: sudo
# between the two would keep signals and the death of a parent from getting through.
enter_sandbox() {
    local lifeline pid status=0
    exec {lifeline}> >(exec "${as_root[@]}" scripts/sandbox.sh --lifeline "$@")
    pid=$!
    # shellcheck disable=SC2064  # the descriptor's number is meant as it is now
    trap "exec $lifeline>&-" INT TERM HUP
    wait "$pid" || status=$?
    if ((status > 128)) && kill -0 "$pid" 2>/dev/null; then
        wait "$pid" || true  # interrupted by a signal: the lifeline is cut, the sandbox is ending
    fi
    trap - INT TERM HUP
    return "$status"
}

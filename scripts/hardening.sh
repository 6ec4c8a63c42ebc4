# Checks of how the installed program is hardened, on x86-64; sourced by test_round.sh, whose "check"
# counts them. The linked-in C++ library is hardened otherwise, so functions of our own are looked at.
# shellcheck shell=bash

readonly headers=/run/wms/program.headers dynamic=/run/wms/program.dynamic
readonly symbols=/run/wms/program.symbols code=/run/wms/program.code

no_line() {
    ! grep -E "$@"
}

# function_has NAME PATTERN: a line of this function's instructions matches.
function_has() {
    awk -v name="<$1>:" 'index($0, name) { inside = 1; next } /^$/ { inside = 0 } inside' "$code" | grep -qE "$2"
}

starts_with() {
    grep -FA1 "<$1>:" "$code" | grep -q "$2"
}

check_hardening() {
    local program=$1
    readelf -hlW "$program" >"$headers"
    readelf -dW "$program" >"$dynamic"
    nm -D "$program" >"$symbols"
    objdump -dC --no-show-raw-insn "$program" >"$code"
    check "the program loads at any address" grep -qE 'FLAGS_1.* PIE' "$dynamic"
    check "no code has to be written to for that" no_line TEXTREL "$dynamic"
    check "relocated tables become read-only" grep -q GNU_RELRO "$headers"
    check "all symbols are bound before that" grep -qE 'FLAGS_1.* NOW' "$dynamic"
    check "the stack holds no code" grep -qE 'GNU_STACK .* RW +0x' "$headers"
    check "nothing that can be written to is code" no_line 'LOAD .* RWE ' "$headers"
    check "libraries come from the system's folders" no_line 'RPATH|RUNPATH' "$dynamic"
    check "an overrun on the stack is seen" \
        function_has 'wuic_generic_error(wms_strbuf*, char const*, ...)' '__stack_chk_fail'
    check "a large frame touches each page" function_has '(anonymous namespace)::copy_blocks(int, int)' 'or[ql] +.0x0,'
    check "library calls know how much room there is" \
        function_has 'shell_capture(wms_strbuf*, char const*)' __snprintf_chk
    check "also in storage of a computed size" grep -q ' __read_chk@' "$symbols"
    check "indirect calls land at functions only" starts_with main endbr64
}

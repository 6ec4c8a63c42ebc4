#!/bin/bash
# The checks on the code: formatting, include direction, one definition of each type, headers that compile
# alone, Clang's warnings, benchmarks that run, clang-tidy, cppcheck, shell scripts. All are run, then the
# ones that failed are named.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib.sh
. scripts/lib.sh

failed=()

check() {
    local name=$1
    shift
    say "$name"
    "$@" || failed+=("$name")
}

source_folders=()
for folder in src tests bench fuzz; do
    [[ ! -d $folder ]] || source_folders+=("$folder")
done

cpp_files() {
    find "${source_folders[@]}" \( -name '*.cpp' -o -name '*.h' \) -print0
}

formatting() {
    cpp_files | xargs -0 clang-format --dry-run -Werror
}

includes() {
    /usr/bin/python3 tests/check_includes.py .
}

type_names() {
    /usr/bin/python3 tests/check_type_names.py .
}

# Link-time optimisation sees all files at once, and compares what they say of one name.
odr_build() {
    (build_preset odr)
}

clang_build() {
    (build_preset clang)
}

headers() {
    local log=build/headers.log
    cmake --build --preset clang --target all_verify_interface_header_sets >"$log" 2>&1 || {
        tail -n 40 "$log"
        return 1
    }
}

# The reply benchmark also checks that all of its readers build the same model.
benchmarks() {
    ctest --test-dir build/clang --output-on-failure -R '^reply_reading$' >build/benchmarks.log || {
        tail -n 40 build/benchmarks.log
        return 1
    }
}

# The compilation database of the Clang build: it holds no option that only GCC knows.
tidy() {
    local log=build/tidy.log
    find "${source_folders[@]}" -name '*.cpp' -print0 |
        xargs -0 -n 4 -P "$(nproc)" timeout 600 clang-tidy --quiet -p build/clang >"$log" 2>/dev/null || {
        grep -E 'warning:|error:' "$log" | sort -u | head -n 100
        return 1
    }
}

# The compiler itself refuses to assign a pointer to an integer.
analysis() {
    cppcheck --quiet --std=c++20 --language=c++ --enable=warning,performance,portability --inline-suppr \
        --suppress=missingIncludeSystem --suppress=AssignmentAddressToInteger --error-exitcode=1 -j "$(nproc)" -Isrc src
}

shell_scripts() {
    shellcheck -x run.sh test.sh .ci/run scripts/*.sh tests/systemd/*.sh bench/*.sh fuzz/*.sh
}

scripts/packages.sh run lint bench fuzz
mkdir -p build
check formatting formatting
check "include direction" includes
check "type names" type_names
check "shell scripts" shell_scripts
check "one definition rule" odr_build
check "Clang's warnings" clang_build
check "headers alone" headers
check "benchmarks run" benchmarks
check clang-tidy tidy
check cppcheck analysis
if ((${#failed[@]} > 0)); then
    printf 'lint: %s\n' "${failed[@]}" >&2
    exit 1
fi
echo "lint: nothing to report"

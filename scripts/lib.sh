# shellcheck shell=bash
# Functions that the scripts share. A script sources this file, which changes to the root of the tree.

cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit

say() {
    printf '%s\n' "$*" >&2
}

# quietly COMMAND...: runs the command, and prints its output only if the command fails.
quietly() {
    local log status=0
    log=$(mktemp)
    "$@" </dev/null >"$log" 2>&1 || status=$?
    if [[ $status -ne 0 ]]; then
        cat "$log" >&2
        say "failed (status $status): $*"
    fi
    rm -f "$log"
    return "$status"
}

# Prints the C++ files of the tree, including files that are not committed yet.
cpp_files() {
    git ls-files --cached --others --exclude-standard -- '*.h' '*.cpp'
}

# runner_of PRESET: prints the command that has to run the programs of a preset, or nothing. The thread sanitizer's runtime cannot
# place its shadow memory if addresses are randomised over the widest range.
runner_of() {
    local bits=0
    if [[ $1 == *-tsan && -r /proc/sys/vm/mmap_rnd_bits ]]; then
        bits=$(</proc/sys/vm/mmap_rnd_bits)
    fi
    if [[ $bits -gt 28 ]] && setarch -R true 2>/dev/null; then
        echo "setarch -R"
    fi
}

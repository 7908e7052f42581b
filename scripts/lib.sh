# shellcheck shell=bash
# What the scripts share. Sourced, never run; leaves the caller in the root of the tree.

cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit

say() {
    printf '%s\n' "$*" >&2
}

# quietly COMMAND...: the command's output is shown only when it fails.
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

# Every C++ file that belongs to the tree, whether committed yet or not.
cpp_files() {
    git ls-files --cached --others --exclude-standard -- '*.h' '*.cpp'
}

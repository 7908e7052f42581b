# Fails if a test starts threads but is not registered with THREADS, or the other way round. Then the test
# program is removed, so that the next build checks it again.
# Usage: check-threads.sh NM PROGRAM TRUE|FALSE
starts=FALSE
if "$1" -u "$2" | grep -q _ZNSt6thread15_M_start_thread; then
    starts=TRUE
fi
if [ "$starts" != "$3" ]; then
    echo "$2: registered with THREADS: $3, starts threads: $starts" >&2
    rm -f -- "$2"
    exit 1
fi

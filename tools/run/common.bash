#!/bin/bash
# What ./dev and the programs in this folder share. Each reads this file first, and then is in the root of the tree.
set -uo pipefail
root=$(readlink -f "$(dirname "${BASH_SOURCE[0]}")/../..")
cd "$root" || exit 1

# The units with shared memory or threads of many drivers in them.
# shellcheck disable=SC2034  # for who reads this file
sanitized=(unit_module unit_queue unit_queue_internals unit_stream unit_web process_traffic)

fail() {
    printf '%s\n' "$*" >&2
    exit 1
}

took() {
    local seconds=$((SECONDS - $1))
    if [ $seconds -ge 120 ]; then echo "$((seconds / 60)) min $((seconds % 60)) s"; else echo "$seconds s"; fi
}

# As many as there are processors, but each compiler may need 1.5 GB.
jobs() {
    local memory processors
    memory=$(awk '/^MemAvailable/ { print int($2 / 1572864) }' /proc/meminfo)
    processors=$(nproc)
    if [ -n "${MFD_JOBS:-}" ]; then
        echo "$MFD_JOBS"
    elif [ "$memory" -lt 1 ]; then
        echo 1
    else
        echo $((memory < processors ? memory : processors))
    fi
}

# Two ./dev at a time never write the same build tree. The lock is that script itself.
lock() {
    exec 9<"$root/dev"
    if ! flock -n 9; then
        echo "waiting for another ./dev to finish its build"
        flock 9
    fi
}

# prepare PRESET [TARGET...]: installs what is missing and builds; who calls it ends when that fails.
prepare() { tools/run/build "$@" || exit; }

# in_tree PRESET COMMAND...: runs a program of that build tree. ThreadSanitizer needs its addresses where it
# expects them.
in_tree() {
    local preset=$1
    shift
    if [ "$preset" = tsan ] && setarch -R true 2>/dev/null; then set -- setarch -R "$@"; fi
    "$@"
}

# run_chaos PRESET [OPTION...]: exit code 77 says that this machine does not let it have one of its own.
run_chaos() {
    local preset=$1 prefix=()
    shift
    # A driver that exits in the middle of a call leaves its threads as they are.
    if [ "$preset" = tsan ]; then prefix=(env TSAN_OPTIONS=report_thread_leaks=0); fi
    in_tree "$preset" "${prefix[@]}" "build/$preset/bin/chaos" --output "build/$preset/chaos" "$@" </dev/null
}

# run_fuzz RUNS SECONDS [COMMAND...]: each program with so many inputs, as many at a time as there are jobs. The
# command may run it: TARGET in its words is the program's name.
run_fuzz() {
    local runs=$1 seconds=$2
    shift 2
    printf '%s\n' WorkplaceFile DescriptorFile DriverMessages HostMessages CommandLine HttpRequests Stream Api Link |
        MFD_FUZZ_SECONDS=$seconds xargs -P "$(jobs)" -I TARGET "$@" fuzz/run build/fuzz TARGET "$runs"
}

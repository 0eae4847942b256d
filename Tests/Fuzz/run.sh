#!/bin/sh
# usage: Tests/Fuzz/run.sh BUILD_DIR SECONDS
# Runs every libFuzzer program of a build with LOGICALCONTROLS_FUZZERS, two at a time, SECONDS in all. The corpora stay in
# BUILD_DIR/fuzz. Fails when there is a finding: add it, as a line of hexadecimal, to Tests/Fuzz/seeds/TARGET.hex, where it stays.
set -eu

if [ $# -ne 2 ]; then
    sed -n 's/^# //p' "$0" | head -1 >&2
    exit 2
fi
here=$(cd "$(dirname "$0")" && pwd)
mkdir -p "$1/fuzz"
build=$(cd "$1" && pwd)
all="datagrams update records xml_report blocks addresses show_file"
targets=""
for target in $all; do
    if [ -x "$build/bin/fuzz_$target" ]; then
        targets="$targets $target"
    else
        echo "$target: not built"
    fi
done
set -- "$2" $targets
if [ $# -eq 1 ]; then
    echo "$build: no libFuzzer program; configure with -DLOGICALCONTROLS_FUZZERS=ON and clang" >&2
    exit 2
fi
# Large blocks that are kept from reuse for long cost more than they find.
export ASAN_OPTIONS="quarantine_size_mb=16:${ASAN_OPTIONS:-}"
share=$(( $1 / ($# / 2) )) # in pairs, or alone at the end
[ "$share" -gt 0 ] || share=1
shift

# One program, to its end. What a handler keeps between inputs looks like a leak to libFuzzer; a real one shows at the end.
run_one()
{
    folder=$build/fuzz/$1
    mkdir -p "$folder/corpus" "$folder/findings"
    "$build/bin/fuzz_replay_$1" "$here/seeds/$1.hex" --write-seeds "$folder/seeds"
    set +e
    timeout $((share + 120)) nice "$build/bin/fuzz_$1" "$folder/corpus" "$folder/seeds" -dict="$here/$1.dict" \
        -max_total_time="$share" -timeout=5 -rss_limit_mb=2048 -max_len=8192 -detect_leaks=0 \
        -close_fd_mask=1 -entropic_scale_per_exec_time=1 \
        -print_final_stats=1 -artifact_prefix="$folder/findings/" >"$folder/log" 2>&1
    echo $? >"$folder/status"
    set -e
}

stat_of()
{
    sed -n "s/^stat::$2: *//p" "$build/fuzz/$1/log" | tail -1
}

report()
{
    findings=$(find "$build/fuzz/$1/findings" -type f | wc -l)
    status=$(cat "$build/fuzz/$1/status")
    printf '%-11s %10s executions %7s/s  corpus %5s  peak %4s MB  findings %s\n' "$1" "$(stat_of "$1" number_of_executed_units)" \
        "$(stat_of "$1" average_exec_per_sec)" "$(find "$build/fuzz/$1/corpus" -type f | wc -l)" \
        "$(stat_of "$1" peak_rss_mb)" "$findings"
    if [ "$status" -ne 0 ] || [ "$findings" -ne 0 ]; then
        grep -a -m 3 -e '^FINDING' -e 'runtime error' -e '^SUMMARY' "$build/fuzz/$1/log" || echo "$1 ended with $status" >&2
        return 1
    fi
}

failed=0
while [ $# -gt 0 ]; do
    first=$1
    second=${2:-}
    run_one "$first" &
    one=$!
    if [ -n "$second" ]; then
        run_one "$second" || failed=1
        shift
    fi
    wait "$one" || failed=1
    shift
    for target in $first $second; do
        report "$target" || failed=1
    done
done
exit $failed

#!/usr/bin/env bash
# Builds the volume reader's libFuzzer target with clang (address and
# undefined behaviour sanitizers) and runs it for SECONDS from the seed corpus.
# Prints the executions and crashes; exits 1 if it crashed.
# Usage: tests/platform/fuzz/run-fuzz.sh [SECONDS] [BUILD_DIR]
set -uo pipefail
seconds=${1:-30}
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../../.." && pwd)
build=${2:-${TMPDIR:-/tmp}/lanternfields-fuzz}
mkdir -p "$build"
flags=(-std=c++17 -O1 -g -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined -I"$root/platform")
exe="$build/fuzz_volume"
if ! clang++ "${flags[@]}" "$here/fuzz_volume.cpp" "$root/platform/dbvol.cpp" -o "$exe" 2>"$build/volume-build.log"; then
    echo "fuzz_volume: build failed:"; cat "$build/volume-build.log"; exit 1
fi
work="$build/corpus-volume"
mkdir -p "$work"
cp -n "$here/corpus"/* "$work"/ 2>/dev/null
log="$build/volume.log"
rm -f "$build"/crash-volume-*
(cd "$build" && "$exe" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=65536 \
    -print_final_stats=1 -artifact_prefix="$build/crash-volume-" "$work" >"$log" 2>&1)
rc=$?
runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$')
crashes=$(ls "$build"/crash-volume-* 2>/dev/null | wc -l)
echo "fuzz_volume: ${runs:-0} executions in ${seconds} s, $crashes crash(es), exit $rc"
if [ "$rc" -ne 0 ] || [ "$crashes" -ne 0 ]; then
    grep -m1 -A15 -E 'ERROR|runtime error|deadly signal' "$log"
    exit 1
fi

#!/usr/bin/env bash
# Builds the engine's libFuzzer targets with clang (address and undefined
# behaviour sanitizers) and runs each for SECONDS from the seed corpus.
# Prints each target's executions and crashes; exits 1 if any crashed.
# Usage: tests/ical/fuzz/run-fuzz.sh [SECONDS] [BUILD_DIR]
set -uo pipefail
seconds=${1:-30}
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../../.." && pwd)
build=${2:-${TMPDIR:-/tmp}/lanternfields-fuzz}
mkdir -p "$build"
# The engine's sources, as its library takes them: everything but lfq.
srcs=()
for f in "$root"/ical/*.cpp; do
    case "$(basename "$f")" in lfq*) ;; *) srcs+=("$f") ;; esac
done
# The zone table is generated, as the engine's build generates it.
if ! python3 "$root/ical/zonetable.py" /usr/share/zoneinfo \
        /usr/share/unicode/cldr/common/supplemental/windowsZones.xml "$build/zonetable.cpp" \
        >"$build/zonetable.log" 2>&1; then
    echo "zone table: not made:"; cat "$build/zonetable.log"; exit 1
fi
srcs+=("$build/zonetable.cpp")
flags=(-std=c++17 -O1 -g -fno-sanitize-recover=undefined -I"$root/ical")
# The engine is compiled once, two files at a time, and linked into each target.
objs="$build/engine"
mkdir -p "$objs"
if ! printf '%s\n' "${srcs[@]}" | xargs -P 2 -I{} sh -c \
        'clang++ "$@" -c "{}" -o "'"$objs"'/$(basename "{}" .cpp).o"' _ \
        "${flags[@]}" -fsanitize=fuzzer-no-link,address,undefined 2>"$build/engine-build.log"; then
    echo "fuzz: the engine did not build:"; cat "$build/engine-build.log"; exit 1
fi
status=0
for target in reader recur; do
    exe="$build/fuzz_$target"
    if ! clang++ "${flags[@]}" -fsanitize=fuzzer,address,undefined "$here/fuzz_$target.cpp" "$objs"/*.o \
            -o "$exe" 2>"$build/$target-build.log"; then
        echo "fuzz_$target: build failed:"; cat "$build/$target-build.log"; status=1; continue
    fi
    work="$build/corpus-$target"
    mkdir -p "$work"
    cp -n "$here/corpus/$target"/* "$work"/ 2>/dev/null
    log="$build/$target.log"
    (cd "$build" && "$exe" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
        -artifact_prefix="$build/crash-$target-" "$work" >"$log" 2>&1)
    rc=$?
    runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$')
    crashes=$(ls "$build"/crash-$target-* 2>/dev/null | wc -l)
    echo "fuzz_$target: ${runs:-0} executions in ${seconds} s, $crashes crash(es), exit $rc"
    if [ "$rc" -ne 0 ] || [ "$crashes" -ne 0 ]; then
        status=1
        grep -m1 -A15 -E 'ERROR|runtime error|deadly signal' "$log"
    fi
done
exit $status

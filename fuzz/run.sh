#!/usr/bin/env bash
# Runs every libFuzzer target fuzz/targets.txt lists (built in build/fuzz)
# for SECONDS each, on a scratch copy of its seed corpus (new inputs never
# land in fuzz/corpus/). Crash inputs go to build/fuzz/artifacts/, each
# run's output to build/fuzz/logs/.
# Called by ./run fuzz [SECONDS] (default 60) after the fuzz preset is built.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
if ! [[ $seconds =~ ^[1-9][0-9]*$ ]]; then
    echo "usage: ./run fuzz [SECONDS] (a whole number above 0; default 60)" >&2
    exit 2
fi

binaries=build/fuzz/fuzz
artifacts=$PWD/build/fuzz/artifacts
logs=$PWD/build/fuzz/logs
mkdir -p "$artifacts" "$logs"
scratch=$(mktemp -d "${TMPDIR:-/tmp}/dbg-fuzz-run.XXXXXX")
trap 'rm -rf "$scratch"' EXIT

mapfile -t targets <fuzz/targets.txt
echo "fuzz: ${#targets[@]} targets, ${seconds} s each$([ $# -eq 0 ] && echo " (the default; ./run fuzz SECONDS to change)")" >&2
status=0
for target in "${targets[@]}"; do
    corpus=$scratch/$target
    mkdir -p "$corpus"
    cp -- "fuzz/corpus/$target/"* "$corpus/"
    seeds=$(find "$corpus" -type f | wc -l)
    options=(-max_total_time="$seconds" -max_len=4096 -timeout=10 -print_final_stats=1
             -artifact_prefix="$artifacts/$target-")
    [ -f "fuzz/$target.dict" ] && options+=(-dict="$PWD/fuzz/$target.dict")
    log=$logs/$target.log
    if "$binaries/fuzz_$target" "${options[@]}" "$corpus" >"$log" 2>&1; then
        runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
        coverage=$(sed -n 's/^#[0-9]*[[:space:]]*DONE[[:space:]]*cov: \([0-9]*\).*/\1/p' "$log")
        printf 'fuzz %-9s %10s executions in %ss, %s seeds -> %s inputs, coverage %s\n' \
            "$target" "${runs:-?}" "$seconds" "$seeds" "$(find "$corpus" -type f | wc -l)" "${coverage:-?}"
    else
        echo "fuzz $target FAILED; log $log, inputs in $artifacts/:" >&2
        tail -n 40 "$log" >&2
        status=1
    fi
done
exit $status

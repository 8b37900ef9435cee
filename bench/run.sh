#!/usr/bin/env bash
# Runs the benchmarks of an optimised build and writes the page of results
# and its plot: build/bench/performance.md and .png, or, with --update-docs,
# the committed docs/performance.md and .png. Called by ./run bench after
# the build. With --strict it exits 1, after writing the page, when a target
# does not hold; other arguments go to the Google Benchmark program (e.g. a
# filter).
set -euo pipefail
cd "$(dirname "$0")/.."

strict=()
pages=build/bench
benchmark_arguments=()
for argument in "$@"; do
    if [ "$argument" = --strict ]; then
        strict=(--strict)
    elif [ "$argument" = --update-docs ]; then
        pages=docs
    else
        benchmark_arguments+=("$argument")
    fi
done

# The benchmarks' files go to a directory of this run's own, in /dev/shm
# where there is one (no disk write-back to disturb the clock): fixed
# names there may belong to another user's run.
bench_files=$(mktemp -d /dev/shm/dbg-bench.XXXXXX 2>/dev/null || mktemp -d)
export DBG_BENCH_DIR=$bench_files
trap 'rm -rf "$bench_files"' EXIT

build=build/bench
results=$build/results
rm -rf "$results"
mkdir -p "$results/callgrind"

# Repetitions run interleaved in random order, so that a trace and its
# reference see the same load on a shared host.
common=(--benchmark_repetitions=5 --benchmark_report_aggregates_only=true
        --benchmark_enable_random_interleaving=true
        --benchmark_min_time=0.2 --benchmark_out_format=json)

echo "bench: Google Benchmark (report on standard error)" >&2
"$build/bench/dbg_bench" "${common[@]}" --benchmark_out="$results/dbg_bench.json" "${benchmark_arguments[@]}"
"$build/bench/dbg_bench_load" "${common[@]}" --benchmark_out="$results/dbg_bench_load.json" >&2

echo "bench: Callgrind instruction counts" >&2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch" "$bench_files"' EXIT
valgrind --tool=callgrind --collect-atstart=no \
    --callgrind-out-file="$results/callgrind/cg.out" \
    "$build/bench/dbg_trace_count" "$scratch" >/dev/null 2>"$results/callgrind/valgrind.log"

status=0
# The page's text around the generated tables is the committed one.
[ "$pages" = docs ] || cp docs/performance.md "$pages/performance.md"
python3 -B bench/report.py --json "$results/dbg_bench.json" "$results/dbg_bench_load.json" \
    --callgrind "$results/callgrind" --operations 10000 \
    --doc "$pages/performance.md" --plot-data "$results/plot.dat" "${strict[@]}" || status=$?
gnuplot -e "datafile='$results/plot.dat'; outfile='$pages/performance.png'" bench/plot.gp
echo "bench: $pages/performance.md and $pages/performance.png written" >&2
exit "$status"

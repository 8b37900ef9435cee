#!/usr/bin/env bash
# Runs the benchmarks of an optimised build and writes the page of results
# and its plots: build/bench/performance.md and its .png files, or, with
# --update-docs, the committed docs/performance.md and plots. Called by
# ./run bench after the build; with DBG_PPC_PREFIX set (the cross toolchain
# is there) it also counts the PowerPC builds (build/ppc-bench and, in the
# older std::string ABI, build/ppc-bench-legacy-abi) under qemu-ppc with
# the counting plugin. With --strict it exits 1, after
# writing the page, when a target does not hold; other arguments go to the
# Google Benchmark program (e.g. a filter).
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
mkdir -p "$results/callgrind" "$results/callgrind-load"

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
    "$build/bench/dbg_trace_count" "$scratch" "$results/callgrind/trace-cases.txt" \
    >/dev/null 2>"$results/callgrind/valgrind.log"
valgrind --tool=callgrind --collect-atstart=no \
    --callgrind-out-file="$results/callgrind-load/cg.out" \
    "$build/bench/dbg_load_count" "$results/callgrind-load/load-cases.txt" 2>"$results/callgrind-load/valgrind.log"

board=()
if [ -n "${DBG_PPC_PREFIX:-}" ]; then
    qemu=(qemu-ppc -L /usr/powerpc-linux-gnu -plugin "$build/bench/libdbg_count_plugin.so" -d plugin)
    # The board's modules come in both std::string ABIs: each build counted
    # into a directory of its own.
    for abi in cxx11 legacy; do
        echo "bench: PowerPC instruction counts under qemu-ppc, $abi std::string ABI" >&2
        ppc=build/ppc-bench
        [ "$abi" = legacy ] && ppc=build/ppc-bench-legacy-abi
        counted=$results/qemu-$abi
        mkdir -p "$counted"
        "${qemu[@]}" -D "$counted/trace-counts.txt" \
            "$ppc/bench/dbg_trace_count" "$scratch" "$counted/trace-cases.txt" >/dev/null
        "${qemu[@]}" -D "$counted/load-counts.txt" "$ppc/bench/dbg_load_count" "$counted/load-cases.txt"
        powerpc-linux-gnu-strip -o "$scratch/libdbg.so" "$ppc/libdbg.so"
        powerpc-linux-gnu-strip -o "$scratch/spdlog.so" "$ppc/bench/libdbg_spdlog_size.so"
        printf 'libdbg %s\nspdlog %s\n' "$(stat -c %s "$scratch/libdbg.so")" "$(stat -c %s "$scratch/spdlog.so")" \
            >"$counted/sizes.txt"
        { qemu-ppc --version | head -n 1; powerpc-linux-gnu-g++ --version | head -n 1; g++ --version | head -n 1; } \
            >"$counted/versions.txt"
    done
    board=(--board "$results/qemu-cxx11" --board-legacy "$results/qemu-legacy")
fi

status=0
# The page's text around the generated tables is the committed one.
[ "$pages" = docs ] || cp docs/performance.md "$pages/performance.md"
python3 -B bench/report.py --json "$results/dbg_bench.json" "$results/dbg_bench_load.json" \
    --callgrind "$results/callgrind" --callgrind-load "$results/callgrind-load" --operations 10000 \
    "${board[@]}" --doc "$pages/performance.md" --plot-data "$results/plot.dat" \
    --instruction-plot-data "$results/instructions.dat" "${strict[@]}" || status=$?
gnuplot -e "datafile='$results/plot.dat'; outfile='$pages/performance.png'" bench/plot.gp
gnuplot -e "datafile='$results/instructions.dat'; outfile='$pages/instructions.png'" bench/instructions.gp
echo "bench: $pages/performance.md, performance.png and instructions.png written" >&2
exit "$status"

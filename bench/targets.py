"""Reads what ./run bench measured and checks the performance targets.

The targets are in instructions (Callgrind's on the host, the qemu plugin's
for PowerPC) and allocation counts, which repeat from run to run; times vary
with the load of the host and are only reported."""

import glob
import json
import re
from typing import NamedTuple

FILE64 = "trace/file/64/plain/short"
PERCENT64 = "trace/{sink}/64/percent/short"
ERROR64 = "error/file/64/plain/short"
IMC64 = "trace/imc/64/plain/short"
IMC_STANDIN64 = "ref/imc_standin/64/short"
OFSTREAM64 = "ref/ofstream_write/64"
SPDLOG64 = "ref/spdlog/64/plain"            # single-threaded sink: reported only
SPDLOG_MT64 = "ref/spdlog_mt/64/plain"      # thread-safe sink: the peer of a library that locks
MUTEX = "ref/mutex/lock_unlock"
CONTENDED_DBG = "contended/dbg/file/64/real_time/threads:4"
CONTENDED_SPDLOG = "contended/spdlog_mt/64/real_time/threads:4"
OSTRINGSTREAM64 = "ref/ostringstream_str/64"
HEXADUMP256 = "hexadump/256"
SNPRINTF_DUMP256 = "ref/snprintf_hexdump/256"


class Check(NamedTuple):
    label: str
    value: float | None  # None: not measured in this run
    limit: float
    at_most: bool

    @property
    def holds(self):
        if self.value is None:
            return False
        return self.value <= self.limit if self.at_most else self.value >= self.limit

    def bound(self):
        return f"{'≤' if self.at_most else '≥'} {self.limit:g}"


def load_medians(paths):
    """Google Benchmark JSON -> (name -> {'cpu': ns, 'real': ns, 'allocs': n}
    from the median aggregates, or {'skipped': message}; the run's context)."""
    results, context = {}, {}
    scale = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}
    for path in paths:
        with open(path) as stream:
            data = json.load(stream)
        context = context or data.get("context", {})
        for entry in data["benchmarks"]:
            name = entry.get("run_name", entry["name"])
            if entry.get("error_occurred"):
                results[name] = {"skipped": entry.get("error_message", "skipped")}
                continue
            if entry.get("aggregate_name") != "median":
                continue
            factor = scale[entry.get("time_unit", "ns")]
            results[name] = {
                "cpu": entry["cpu_time"] * factor,
                "real": entry["real_time"] * factor,
                "allocs": entry.get("allocs/op", 0.0),
                "per_second": entry.get("items_per_second"),
            }
    return results, context


def load_callgrind(directory, operations):
    """Callgrind dumps, one per case -> case name -> instructions per operation."""
    counts = {}
    for path in glob.glob(directory + "/cg.out.*"):
        name, total = None, None
        with open(path, errors="replace") as stream:
            for line in stream:
                match = re.match(r"desc: Trigger: Client Request: (\S+)", line)
                if match:
                    name = match.group(1)
                match = re.match(r"(?:totals|summary): (\d+)", line)
                if match:
                    total = int(match.group(1))
        if name and total is not None:
            counts[name] = total / operations
    return counts


def load_cases(path):
    """A counting driver's cases file -> case name -> the numbers after the
    name (allocations per operation; for loading, allocations and bytes)."""
    with open(path) as stream:
        return {name: [float(value) for value in values]
                for name, *values in (line.split() for line in stream if line.strip())}


def load_plugin_counts(counts_path, cases_path, operations):
    """The qemu plugin's counts, one line per case in the order the driver
    ran them, paired with the driver's case names -> instructions per
    operation (`operations` for the trace driver, 1 for loading)."""
    with open(cases_path) as stream:
        names = [line.split()[0] for line in stream if line.strip()]
    with open(counts_path) as stream:
        counts = [int(line.split()[1]) for line in stream if line.startswith("instructions ")]
    if len(names) != len(counts):
        raise SystemExit(f"targets.py: {len(counts)} counts in {counts_path} for {len(names)} cases")
    return {name: count / operations for name, count in zip(names, counts)}


def instruction_ratio(counts, numerator, denominator, less=None):
    """counts[numerator] (less counts[less]) ÷ counts[denominator], or None."""
    if numerator not in counts or denominator not in counts or (less and less not in counts):
        return None
    return (counts[numerator] - (counts[less] if less else 0)) / counts[denominator]


def allocations(results, name):
    """Calls of operator new per operation, rounded: they are averages over
    all iterations, and the first ones may grow a buffer."""
    value = results.get(name, {}).get("allocs")
    return None if value is None else round(value, 2)


def arch_checks(arch, counts, cases):
    """The "%" path beside the plain trace, which every architecture and ABI
    holds: the escaped copy may cost one allocation, no more."""
    checks = [
        Check(f"{arch}: 64-byte trace with \"%\" ÷ without, file sink, instructions",
              instruction_ratio(counts, PERCENT64.format(sink="file"), FILE64), 3.0, True),
    ]
    for sink in ("console", "file"):
        name = PERCENT64.format(sink=sink)
        checks.append(Check(f"{arch}: heap allocations per 64-byte trace with \"%\", short origin, {sink} sink",
                            cases[name][0] if name in cases else None, 1.0, True))
    return checks


# The board's limits on a 64-byte file trace, by std::string ABI: against
# spdlog's thread-safe sink; against the bare write, reported only (None).
BOARD_FILE_LIMITS = {
    "legacy": {"spdlog": 0.87, "ofstream": None},
    "cxx11": {"spdlog": 1.05, "ofstream": None},
}


def board_checks(abi, counts, cases):
    """The PowerPC board's targets in one std::string ABI: its own against
    spdlog and the bare write; in the cxx11 ABI, the default one, the "%"
    path's as on x86-64 (the legacy ABI's "%" figures are reported)."""
    limits = BOARD_FILE_LIMITS[abi]
    arch = f"PowerPC, {abi} ABI"
    checks = [Check(f"{arch}: 64-byte trace to a file ÷ spdlog (thread-safe file sink, `%v`), instructions",
                    instruction_ratio(counts, FILE64, SPDLOG_MT64), limits["spdlog"], True)]
    if limits["ofstream"] is not None:
        checks.append(Check(f"{arch}: 64-byte trace to a file ÷ bare `std::ofstream::write`, instructions",
                            instruction_ratio(counts, FILE64, OFSTREAM64), limits["ofstream"], True))
    return checks + (arch_checks(arch, counts, cases) if abi == "cxx11" else [])


def check_targets(results, counts):
    """Every target the team holds on the host, in the order the page lists them."""
    checks = [
        Check("64-byte trace to a file ÷ bare `std::ofstream::write`, instructions",
              instruction_ratio(counts, FILE64, OFSTREAM64), 2.3, True),
        Check("64-byte trace to a file ÷ spdlog (thread-safe file sink, `%v`), instructions",
              instruction_ratio(counts, FILE64, SPDLOG_MT64), 0.67, True),
        Check("64-byte trace to the IMC sink, less the IMC stand-in's own share, "
              "÷ `std::ostringstream` write + `str()`, instructions",
              instruction_ratio(counts, IMC64, OSTRINGSTREAM64, less=IMC_STANDIN64), 2.0, True),
        Check("snprintf dump ÷ `hexaDump`, 256 bytes, instructions",
              instruction_ratio(counts, SNPRINTF_DUMP256, HEXADUMP256), 10.0, False),
    ]
    for sink in ("console", "file"):
        checks.append(Check(f"heap allocations per 64-byte trace without \"%\", short origin, {sink} sink",
                            allocations(results, f"trace/{sink}/64/plain/short"), 0.0, True))
    return checks

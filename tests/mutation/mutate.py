"""The mutation run: how many changes of the library's code the suite notices.

Each worker owns a copy of the project (build/mutate/tree<N>) configured with
the mutate preset. A mutant is written into the worker's copy, the build
recompiles that one translation unit and relinks libdbg.so (the test
programs are not relinked), and the tests run one by one until the first
failure: those that killed mutants of the same file first, then the fastest.
A mutant the suite does not notice then meets the tests of the output from
many threads under ThreadSanitizer (the copy's tsan build): a lock moved or
dropped shows there as a data race, where a plain run may pass by luck.
"""

import argparse
import concurrent.futures
import difflib
import hashlib
import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
from collections import Counter, defaultdict

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import sites  # noqa: E402

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
WORK = os.path.join(ROOT, "build", "mutate")
EQUIVALENT = os.path.join(ROOT, "tests", "mutation", "equivalent.txt")
BUILD = os.path.join("build", "mutate")
MUTATED_DIRS = ("src", "include")
# Enough traces for the soak's checks, few enough for a test run per mutant.
SOAK_COUNT = "100000"
BUILD_TIMEOUT = 600
# The mutation tool's own tests do not run the library.
TOOL_TESTS = ("MutationTool.",)
# How many of the cases that killed mutants of a file run alone first.
KILLERS_FIRST = 3
# The whole ThreadSanitizer run of one surviving mutant.
TSAN_TIMEOUT = 600


def log(message):
    print("mutate: " + message, flush=True)


def project_files():
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "-z"], cwd=ROOT, check=True,
                            capture_output=True).stdout.decode().split("\0")
    return [f for f in listed if f and not f.startswith("build/") and os.path.isfile(os.path.join(ROOT, f))]


def sync_tree(tree):
    """The worker's copy made equal to the project, touching only what differs,
    so that its build stays incremental."""
    for relative in project_files():
        source, target = os.path.join(ROOT, relative), os.path.join(tree, relative)
        with open(source, "rb") as file:
            content = file.read()
        if os.path.isfile(target):
            with open(target, "rb") as file:
                if file.read() == content:
                    continue
        os.makedirs(os.path.dirname(target), exist_ok=True)
        shutil.copyfile(source, target)   # a new time stamp: the build sees the change
        shutil.copymode(source, target)


def run_quietly(command, cwd, timeout=None, env=None):
    result = subprocess.run(command, cwd=cwd, env=env, timeout=timeout, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT)
    return result.returncode, result.stdout.decode(errors="replace")


class Worker:
    def __init__(self, number):
        self.number = number
        self.tree = os.path.join(WORK, "tree{}".format(number))
        self.build = os.path.join(self.tree, BUILD)
        self.current = None        # the file now mutated in the copy, if any

    def prepare(self):
        os.makedirs(self.tree, exist_ok=True)
        sync_tree(self.tree)
        code, output = run_quietly(["cmake", "--preset", "mutate"], self.tree)
        if code == 0:
            # The whole first build of a fresh copy has no time limit: under
            # a heavy load it takes longer than any mutant may.
            code, output = self.compile(timeout=None)
        if code == 0:
            # The test programs are not relinked for a mutant of the library.
            code, output = run_quietly(["cmake", "--preset", "tsan", "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON"],
                                       self.tree)
        if code == 0:
            code, output = self.compile_tsan(timeout=None)
        if code == 0 and self.run_tsan()[0] != "passed":
            code, output = 1, "the unmutated ThreadSanitizer run fails: {}".format(self.run_tsan()[1])
        if code != 0:
            raise RuntimeError("worker {} does not build:\n{}".format(self.number, output[-3000:]))

    def compile(self, timeout=BUILD_TIMEOUT):
        return run_quietly(["cmake", "--build", self.build, "-j1"], self.tree, timeout=timeout)

    def compile_tsan(self, timeout=BUILD_TIMEOUT):
        return run_quietly(["cmake", "--build", "--preset", "tsan", "-j", "1"], self.tree, timeout=timeout)

    def run_tsan(self):
        """('passed' | 'failed' | 'timed out', the first test that failed)."""
        scratch = tempfile.mkdtemp(prefix="dbg-mutant-")
        try:
            code, output = run_quietly(["ctest", "--preset", "tsan", "--stop-on-failure"], self.tree,
                                       timeout=TSAN_TIMEOUT, env=dict(os.environ, TMPDIR=scratch))
        except subprocess.TimeoutExpired:
            return "timed out", "ThreadSanitizer run"
        finally:
            shutil.rmtree(scratch, ignore_errors=True)
        if code == 0:
            return "passed", None
        failed = re.search(r"^\s*\d+ - (\S+)", output[output.find("The following tests FAILED"):], re.M)
        return "failed", "ThreadSanitizer: " + (failed.group(1) if failed else "tsan")

    def restore(self):
        if self.current:
            # A new time stamp, not the original's: the build must see it.
            shutil.copyfile(os.path.join(ROOT, self.current), os.path.join(self.tree, self.current))
            self.current = None

    def write(self, mutant, mutated):
        if self.current != mutant.path:
            self.restore()
        self.current = mutant.path
        with open(os.path.join(self.tree, mutant.path), "wb") as file:
            file.write(mutated)


class Tests:
    """The suite as ctest knows it, run by this script: each GoogleTest
    program whole, stopping at its first failure, and every other test as
    ctest would run it. The test cases that killed mutants of the same file
    run first, alone; then the programs, fastest first."""

    def __init__(self, worker):
        code, output = run_quietly(["ctest", "--test-dir", worker.build, "--show-only=json-v1"], worker.tree)
        if code != 0:
            raise RuntimeError("ctest cannot list the tests:\n" + output[-3000:])
        self.cases = {}        # GoogleTest name -> its ctest entry
        self.programs = {}     # program -> its ctest entry, run whole
        self.others = []
        for test in json.loads(output[output.index("{"):])["tests"]:
            if test["name"].startswith(TOOL_TESTS):
                continue
            properties = {p["name"]: p["value"] for p in test.get("properties", [])}
            entry = {"name": test["name"], "command": test["command"],
                     "cwd": properties.get("WORKING_DIRECTORY", worker.build),
                     "environment": dict(e.split("=", 1) for e in properties.get("ENVIRONMENT", []) if "=" in e),
                     "limit": float(properties.get("TIMEOUT", 120))}
            filters = [w[len("--gtest_filter="):] for w in test["command"] if w.startswith("--gtest_filter=")]
            if filters:
                self.cases[filters[0]] = entry
                program = test["command"][0]
                self.programs.setdefault(program, dict(entry, name=os.path.basename(program),
                                                       command=[program, "--gtest_fail_fast"], limit=0.0))
                self.programs[program]["limit"] += entry["limit"]
            else:
                self.others.append(entry)
        self.seconds = {}

    @staticmethod
    def run_one(test, limit):
        """('passed' | 'failed' | 'timed out', the first GoogleTest case failed)."""
        # A mutant may crash a test before it cleans up: its scratch
        # directories go into one of the run's own, removed afterwards.
        scratch = tempfile.mkdtemp(prefix="dbg-mutant-")
        os.chmod(scratch, 0o1777)   # as /tmp: the tests acting as another user reach into it
        environment = dict(os.environ, DBG_SOAK_COUNT=SOAK_COUNT, TMPDIR=scratch, **test["environment"])
        process = subprocess.Popen(test["command"], cwd=test["cwd"], env=environment, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True)
        try:
            output, _ = process.communicate(timeout=limit)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.communicate()
            return "timed out", None
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)   # whatever the test left running
            except ProcessLookupError:
                pass
            shutil.rmtree(scratch, ignore_errors=True)
        if process.returncode == 0:
            return "passed", None
        failed = re.search(rb"^\[  FAILED  \] ([^ ,\n]+)", output, re.M)
        return "failed", failed.group(1).decode() if failed else None

    def every_unit(self):
        return list(self.programs.values()) + self.others

    def baseline(self):
        """Every program and other test once, unmutated: each must pass;
        their times order the runs."""
        for test in self.every_unit():
            started = time.monotonic()
            outcome, case = self.run_one(test, test["limit"])
            self.seconds[test["name"]] = time.monotonic() - started
            if outcome != "passed":
                raise RuntimeError("the unmutated suite fails: {} {} {}".format(test["name"], outcome, case or ""))

    def run(self, killers):
        """Runs until the first failure: (status, the test that decided it)."""
        first = [name for name, _ in Counter(killers).most_common(KILLERS_FIRST) if name in self.cases]
        for name in first:
            outcome, _ = self.run_one(self.cases[name], 10.0)
            if outcome != "passed":
                return ("killed" if outcome == "failed" else outcome), name
        for test in sorted(self.every_unit(), key=lambda t: self.seconds[t["name"]]):
            outcome, case = self.run_one(test, min(test["limit"], 10.0 + 3 * self.seconds[test["name"]]))
            if outcome != "passed":
                return ("killed" if outcome == "failed" else outcome), case or test["name"]
        return "survived", None


def compile_units(build):
    with open(os.path.join(build, "compile_commands.json")) as file:
        commands = json.load(file)
    units = []
    for entry in commands:
        words = entry["command"].split()[1:]
        arguments = []
        skip = False
        for word in words:
            if skip:
                skip = False
            elif word in ("-o", "-c"):
                skip = word == "-o"
            elif word != entry["file"] and not word.startswith("-W"):
                arguments.append(word)
        units.append((entry["file"], arguments + ["-xc++"]))
    return units


def mutated_files(tree):
    found = {}
    for directory in MUTATED_DIRS:
        for base, _, names in os.walk(os.path.join(tree, directory)):
            for name in names:
                if name.endswith((".cpp", ".h")):
                    path = os.path.join(base, name)
                    found[path] = os.path.relpath(path, tree)
    return found


def all_mutants(worker):
    files = mutated_files(worker.tree)
    units = [u for u in compile_units(worker.build) if u[0] in files]
    return sites.find_mutants(units, files)


def changed_lines(revision):
    diff = subprocess.run(["git", "diff", "-U0", revision, "--", *MUTATED_DIRS], cwd=ROOT, check=True,
                          capture_output=True).stdout.decode()
    lines = defaultdict(set)
    path = None
    for line in diff.splitlines():
        if line.startswith("+++ "):
            path = line[6:] if line.startswith("+++ b/") else None
        elif line.startswith("@@") and path:
            start, _, count = re.match(r"@@ -\S+ \+(\d+)(,(\d+))? @@", line).groups()
            start, count = int(start), int(count) if count is not None else 1
            lines[path].update(range(start, start + count))
    return lines


def sample(mutants, count, seed):
    """count mutants drawn from every file in turn, each file's own shuffled."""
    generator = random.Random(seed)
    by_file = defaultdict(list)
    for mutant in sorted(mutants, key=lambda m: m.identifier):
        by_file[mutant.path].append(mutant)
    for path in sorted(by_file):
        generator.shuffle(by_file[path])
    chosen = []
    while len(chosen) < count and any(by_file.values()):
        for path in sorted(by_file):
            if by_file[path] and len(chosen) < count:
                chosen.append(by_file[path].pop())
    return chosen


def read_equivalent():
    """Identifier -> reason, from the committed list."""
    listed = {}
    with open(EQUIVALENT) as file:
        for line in file:
            if line.strip() and not line.startswith("#"):
                fields = line.rstrip("\n").split("\t")
                if len(fields) != 6 or not fields[5].strip():
                    raise RuntimeError("equivalent.txt: not file, operator, text, replacement, "
                                       "occurrence and reason: " + line)
                listed["\t".join(fields[:5])] = fields[5].strip()
    return listed


def diff_of(mutant, original):
    before = original.decode().splitlines(keepends=True)
    after = mutant.apply(original).decode().splitlines(keepends=True)
    return "".join(difflib.unified_diff(before, after, "a/" + mutant.path, "b/" + mutant.path, n=1))


def build_error(worker, compile):
    """None when the mutant builds; else the compiler's first error, which
    stands where the deciding test would."""
    try:
        code, output = compile()
    except subprocess.TimeoutExpired:
        code, output = 1, "the build timed out"
    if code == 0:
        return None
    errors = [line.replace(worker.tree + os.sep, "") for line in output.splitlines() if "error" in line]
    return (errors or output.splitlines() or ["?"])[0][:300]


class Run:
    def __init__(self, workers, tests, mutants):
        self.workers = workers
        self.tests = tests
        self.pending = defaultdict(list)
        for mutant in mutants:
            self.pending[mutant.path].append(mutant)
        self.lock = threading.Lock()
        self.killers = defaultdict(Counter)
        self.results = []
        self.total = len(mutants)

    def next_for(self, worker):
        with self.lock:
            path = worker.current if self.pending.get(worker.current) else None
            if path is None:
                remaining = [p for p in self.pending if self.pending[p]]
                if not remaining:
                    return None
                path = max(remaining, key=lambda p: len(self.pending[p]))
            return self.pending[path].pop(0)

    def work(self, worker, tests):
        while True:
            mutant = self.next_for(worker)
            if mutant is None:
                worker.restore()
                return
            with open(os.path.join(ROOT, mutant.path), "rb") as file:
                original = file.read()
            started = time.monotonic()
            worker.write(mutant, mutant.apply(original))
            error = build_error(worker, worker.compile)
            if error:
                status, test = "does not build", error
            else:
                with self.lock:
                    killers = dict(self.killers[mutant.path])
                status, test = tests.run(killers)
                if status == "survived":
                    status, test = self.under_tsan(worker)
            with self.lock:
                if status == "killed":
                    self.killers[mutant.path][test] += 1
                self.results.append({"mutant": mutant, "status": status, "test": test,
                                     "seconds": round(time.monotonic() - started, 1),
                                     "diff": diff_of(mutant, original)})
                log("{}/{} {} {}:{} {}{}".format(len(self.results), self.total, status, mutant.path, mutant.line,
                                                 mutant.operator, " by " + test if test else ""))

    @staticmethod
    def under_tsan(worker):
        """The survivor's fate under ThreadSanitizer: (status, the test that decided it)."""
        error = build_error(worker, worker.compile_tsan)
        if error:
            return "does not build", error
        outcome, test = worker.run_tsan()
        if outcome == "passed":
            return "survived", None
        return ("killed" if outcome == "failed" else outcome), test

    def go(self):
        with concurrent.futures.ThreadPoolExecutor(len(self.workers)) as pool:
            for future in [pool.submit(self.work, w, t) for w, t in zip(self.workers, self.tests)]:
                future.result()
        # The last mutant of each worker is undone in its build too.
        for worker in self.workers:
            worker.compile()


def score(counter):
    decided = counter["killed"] + counter["survived"]
    return round(100.0 * counter["killed"] / decided, 1) if decided else None


def carried_over(previous_report, mutants):
    """The results of an earlier report that still hold: a mutant killed,
    timed out or not building stays so while its file is unchanged, since
    tests are only ever added. Survivors and changed files run again."""
    with open(previous_report) as file:
        previous = json.load(file)
    decided = {m["id"]: m for m in previous["mutants"]
               if m["status"] in ("killed", "timed out", "does not build")}
    carried = []
    for mutant in mutants:
        earlier = decided.get(mutant.identifier)
        if earlier and previous["sources"].get(mutant.path) == source_digest(mutant.path):
            carried.append({"mutant": mutant, "status": earlier["status"], "test": earlier["test"],
                            "seconds": earlier["seconds"], "diff": earlier["diff"], "carried": True})
    return carried


def source_digest(path):
    with open(os.path.join(ROOT, path), "rb") as file:
        return hashlib.sha256(file.read()).hexdigest()


def summarise(results, equivalent, seconds, arguments):
    statuses = ("killed", "survived", "equivalent", "does not build", "timed out")
    totals = Counter(r["status"] for r in results)
    per_file, per_operator = defaultdict(Counter), defaultdict(Counter)
    for result in results:
        per_file[result["mutant"].path][result["status"]] += 1
        per_operator[result["mutant"].operator][result["status"]] += 1

    def table(counters):
        return {key: dict({s: counters[key][s] for s in statuses}, score=score(counters[key]))
                for key in sorted(counters)}

    return {
        "run": {"selection": arguments, "seconds": round(seconds), "workers": arguments["jobs"],
                "mutants": len(results), "carried_over": sum(1 for r in results if r.get("carried"))},
        "sources": {path: source_digest(path) for path in sorted(per_file)},
        "totals": dict({s: totals[s] for s in statuses}, score=score(totals),
                       equivalent_share=round(100.0 * totals["equivalent"] / len(results), 1) if results else 0),
        "files": table(per_file),
        "operators": table(per_operator),
        "mutants": [{"id": r["mutant"].identifier, "file": r["mutant"].path, "line": r["mutant"].line,
                     "operator": r["mutant"].operator, "status": r["status"], "test": r["test"],
                     "seconds": r["seconds"], "reason": equivalent.get(r["mutant"].identifier),
                     "diff": r["diff"]}
                    for r in sorted(results, key=lambda r: (r["mutant"].path, r["mutant"].start,
                                                            r["mutant"].operator))],
    }


def markdown(report):
    run, totals = report["run"], report["totals"]
    minutes, seconds = divmod(run["seconds"], 60)
    lines = ["# Mutation run", "",
             "Generated by `./run mutate` ({}); do not edit.".format(describe(run["selection"])), "",
             "Score: **{}%** killed of the killed and surviving mutants ({} killed, {} survived); "
             "{} equivalent ({}% of all), {} do not build, {} timed out; {} mutants.".format(
                 totals["score"], totals["killed"], totals["survived"], totals["equivalent"],
                 totals["equivalent_share"], totals["does not build"], totals["timed out"], run["mutants"]), "",
             "Run time: {} min {} s with {} workers{}.".format(
                 minutes, seconds, run["workers"],
                 "; {} results carried over from an earlier report (`--resume`), the others run anew".format(
                     run["carried_over"]) if run["carried_over"] else ""), ""]
    for title, key in (("File", "files"), ("Operator", "operators")):
        lines += ["| {} | killed | survived | equivalent | does not build | timed out | score |".format(title),
                  "|---|---|---|---|---|---|---|"]
        for name, row in report[key].items():
            lines.append("| `{}` | {} | {} | {} | {} | {} | {} |".format(
                name, row["killed"], row["survived"], row["equivalent"], row["does not build"], row["timed out"],
                "-" if row["score"] is None else "{}%".format(row["score"])))
        lines.append("")
    survivors = [m for m in report["mutants"] if m["status"] == "survived"]
    lines += ["## Survivors", ""]
    if not survivors:
        lines += ["None.", ""]
    for mutant in survivors:
        lines += ["### `{}:{}` {}".format(mutant["file"], mutant["line"], mutant["operator"]), "",
                  "```diff", mutant["diff"].rstrip("\n"), "```", ""]
    equivalents = [m for m in report["mutants"] if m["status"] == "equivalent"]
    lines += ["## Equivalent mutants", ""]
    for mutant in equivalents:
        lines += ["- `{}:{}` {}: {}".format(mutant["file"], mutant["line"], mutant["operator"], mutant["reason"])]
    return "\n".join(lines).rstrip("\n") + "\n"


def describe(selection):
    if selection.get("since"):
        return "lines changed since {}".format(selection["since"])
    if selection.get("match"):
        return "the mutants matching {}".format(selection["match"])
    if selection.get("sample"):
        return "a sample of {} mutants, seed {}".format(selection["sample"], selection["seed"])
    return "every mutant of src/ and include/"


def main():
    parser = argparse.ArgumentParser(prog="./run mutate", description=__doc__.split("\n")[0])
    parser.add_argument("--since", metavar="REV", help="mutate only the lines changed since REV")
    parser.add_argument("--sample", type=int, metavar="N", help="a fixed sample of N mutants from every file")
    parser.add_argument("--seed", type=int, default=17, help="the sample's seed (default 17)")
    parser.add_argument("--match", metavar="REGEX", help="only the mutants whose identifier matches REGEX")
    parser.add_argument("--jobs", type=int, default=2, help="mutants built and tested at once (default 2)")
    parser.add_argument("--report", metavar="DIR",
                        help="where mutation.md and mutation.json go (default: docs/ for a whole run, "
                             "build/mutate/ otherwise)")
    parser.add_argument("--resume", metavar="JSON",
                        help="take the killed, timed out and unbuildable mutants of unchanged files from an "
                             "earlier report (e.g. docs/mutation.json) and run only the others")
    parser.add_argument("--list", action="store_true", help="only list the mutants")
    parser.add_argument("--fail-on-survivor", action="store_true",
                        help="exit 1 when a mutant not listed as equivalent survives")
    arguments = parser.parse_args()

    started = time.monotonic()
    workers = [Worker(n) for n in range(max(1, arguments.jobs))]
    log("preparing {} build trees in {}".format(len(workers), os.path.relpath(WORK, ROOT)))
    with concurrent.futures.ThreadPoolExecutor(len(workers)) as pool:
        for future in [pool.submit(w.prepare) for w in workers]:
            future.result()

    every = all_mutants(workers[0])
    mutants = every
    if arguments.since:
        lines = changed_lines(arguments.since)
        mutants = [m for m in mutants if any(n in lines[m.path] for n in
                                             range(m.line, m.line + m.original.count("\n") + 1))]
    if arguments.sample:
        mutants = sample(mutants, arguments.sample, arguments.seed)
    if arguments.match:
        mutants = [m for m in mutants if re.search(arguments.match, m.identifier)]
    if arguments.list:
        for mutant in mutants:
            print("{}:{}\t{}".format(mutant.path, mutant.line, mutant.identifier))
        return 0

    equivalent = read_equivalent()
    identifiers = {m.identifier for m in every}
    for stale in sorted(set(equivalent) - identifiers):
        log("equivalent.txt lists a mutant that no longer exists: " + stale.replace("\t", " | "))
    to_run = [m for m in mutants if m.identifier not in equivalent]
    results = [{"mutant": m, "status": "equivalent", "test": None, "seconds": 0,
                "diff": diff_of(m, open(os.path.join(ROOT, m.path), "rb").read())}
               for m in mutants if m.identifier in equivalent]
    carried = carried_over(arguments.resume, to_run) if arguments.resume else []
    results += carried
    carried_identifiers = {r["mutant"].identifier for r in carried}
    to_run = [m for m in to_run if m.identifier not in carried_identifiers]

    log("{} mutants, {} listed as equivalent{}, after {} s; the unmutated suite first".format(
        len(mutants), len(results) - len(carried),
        ", {} taken from {}".format(len(carried), arguments.resume) if arguments.resume else "",
        round(time.monotonic() - started)))
    tests = [Tests(w) for w in workers]
    with concurrent.futures.ThreadPoolExecutor(len(workers)) as pool:
        for future in [pool.submit(t.baseline) for t in tests]:
            future.result()
    log("the unmutated suite passes, after {} s".format(round(time.monotonic() - started)))
    run = Run(workers, tests, to_run)
    run.go()
    results += run.results

    selection = {"since": arguments.since, "sample": arguments.sample, "match": arguments.match,
                 "resume": arguments.resume,
                 "seed": arguments.seed if arguments.sample else None, "jobs": len(workers)}
    report = summarise(results, equivalent, time.monotonic() - started, selection)
    whole = not (arguments.since or arguments.sample or arguments.match)
    directory = arguments.report or (os.path.join(ROOT, "docs") if whole else WORK)
    os.makedirs(directory, exist_ok=True)
    with open(os.path.join(directory, "mutation.json"), "w") as file:
        json.dump(report, file, indent=1)
        file.write("\n")
    with open(os.path.join(directory, "mutation.md"), "w") as file:
        file.write(markdown(report))
    totals = report["totals"]
    log("score {}%: {} killed, {} survived, {} equivalent, {} do not build, {} timed out, in {} s; "
        "report in {}".format(totals["score"], totals["killed"], totals["survived"], totals["equivalent"],
                              totals["does not build"], totals["timed out"], report["run"]["seconds"],
                              os.path.relpath(os.path.join(directory, "mutation.md"), ROOT)))
    if arguments.fail_on_survivor and totals["survived"]:
        log("surviving mutants not listed as equivalent:")
        for mutant in report["mutants"]:
            if mutant["status"] == "survived":
                print(mutant["diff"])
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())

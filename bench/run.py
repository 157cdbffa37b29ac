"""Runs the benchmark: one process for each measurement, candidates in turn; writes table.md, results.csv and charts."""
import argparse
import csv
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True  # leaves the source tree as it is
from page import Measured, page

# name: (what one element is, sizes, sizes with --quick); the first candidate of each is what ours is held against
WORKLOADS = {
    "graph": ("object", [1000, 10000, 100000, 1000000, 10000000], [1000, 100000]),
    "classes": ("object, of 1,000 classes in turn", [10000, 100000, 1000000], [100000]),
    "pages": ("object, one page apart", [10000, 100000, 1000000], [10000]),
    "depth": ("object, all inside each other", [1000, 3000, 10000, 30000, 100000, 300000, 1000000], [1000, 10000, 100000]),
    "strings": ("string", [1000, 10000, 100000, 1000000, 10000000], [1000, 100000]),
    "pointers": ("pointer", [100000, 1000000, 10000000], [100000, 1000000]),
    "ptrmap": ("key, first words differ", [1000, 10000, 100000, 1000000], [1000, 100000]),
    "ptrmap1": ("key, objects of one class", [1000, 10000, 100000, 1000000], [100000]),
    "strmap": ("key", [1000, 10000, 100000, 1000000], [1000, 100000]),
    "lines": ("line", [100000, 1000000], [100000]),
    "hugestring": ("byte", [1 << 30], [1 << 26]),
    "blocks": ("byte", [1 << 26], [1 << 26]),
    "depgraph": ("package", [40000], [40000]),
}
INSTRUCTIONS = "instructions"  # of callgrind, for each object of the graph

# How much memory glibc gives back to the system and takes anew depends on the largest block that the process has ever
# freed. Equal heaps: no process gives anything back. Loading is measured with the default heap as well.
EQUAL_HEAPS = {"GLIBC_TUNABLES": f"glibc.malloc.trim_threshold={1 << 40}:glibc.malloc.mmap_threshold={1 << 40}"}
BOTH_HEAPS = ["graph/load", "classes/load"]

LARGE = 1000000  # elements; beyond, there are two processes of one repetition, and few candidates for the graph
FEW = ["by hand", "cereal", "ours"]
DIES, SLOW, WRONG = "dies", "too slow", "wrong"  # instead of a figure
MARKS = [(f"<!-- {part} -->\n", f"<!-- end of {part} -->\n") for part in ("summary", "results")]


class Runner:
    def __init__(self, program, quick, directory):
        self.program, self.quick, self.directory = program, quick, directory
        self.cap = 1.0 if quick else 20.0  # seconds that one repetition may take
        self.rounds = 3  # processes of each candidate
        self.repetitions = 3 if quick else 5  # in each process
        self.min_time = "0.005" if quick else "0.02"  # of each repetition
        self.wrong = {}

    def run(self, case, size, environment, prefix=(), once=False):
        """What one process reports of each repetition; DIES, SLOW or WRONG where it does not."""
        out = self.directory / "out.json"
        out.unlink(missing_ok=True)
        repetitions = 1 if once or size > LARGE else 3 if size == LARGE else self.repetitions
        command = [*prefix, self.program, case, str(size), f"--benchmark_repetitions={repetitions}",
                   "--benchmark_min_time=" + ("1e-9" if once else self.min_time),
                   f"--benchmark_out={out}", "--benchmark_out_format=json"]
        # Preparing and checking take their time too, and callgrind fifty times as long.
        timeout = repetitions * (self.cap * (60 if prefix else 2) + 8e-6 * size)
        try:
            result = subprocess.run(command, cwd=self.directory, env={**os.environ, **environment}, timeout=timeout,
                                    stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        except subprocess.TimeoutExpired:
            return SLOW
        # A process that crashed leaves a file cut short.
        report = json.loads(out.read_text())["benchmarks"] if result.returncode == 0 and out.exists() else []
        report = [each for each in report if each["run_type"] == "iteration"]
        errors = [each["error_message"] for each in report if each.get("error_occurred")]
        if len(report) == repetitions and not errors:
            assert all(each["time_unit"] == "ns" for each in report)
            return report
        if case.startswith("depth/") and not case.endswith("ours"):
            return DIES  # what has no room on the stack crashes, or the child does that makes its file
        self.wrong[case, size] = errors[0] if errors else result.stderr.strip()[-300:] or f"status {result.returncode}"
        return WRONG

    def measure(self, cases, size, environment, ended):
        """Seconds of the shortest repetition by case, or why there is none: whatever disturbs a repetition makes it
        longer. Takes the cases in turn; one that has ended is left out from there on."""
        shortest = {}
        for _ in range(self.rounds if size <= LARGE else 2):
            for case in cases:
                report = ended.get(case) or self.run(case, size, environment)
                if isinstance(report, str):
                    ended[case] = report
                    continue
                seconds = min(each["real_time"] / each["times"] for each in report) / 1e9
                shortest[case] = min(seconds, shortest.get(case, seconds))
                if seconds > self.cap:
                    ended[case] = SLOW
        return {case: shortest.get(case, SLOW) if ended.get(case, SLOW) == SLOW else ended[case] for case in cases}

    def peak(self, case, size):
        """Megabytes at most in use by a process that does it once, with the default heap."""
        report = self.run(case, size, {}, once=True)
        return report if isinstance(report, str) else report[0]["peak_kb"] / 1024

    def instructions(self, case, size):
        out = self.directory / "callgrind.out"
        valgrind = ["valgrind", "--tool=callgrind", "--collect-atstart=no", f"--callgrind-out-file={out}"]
        report = self.run(case, size, {}, valgrind, once=True)
        # Of the parts (the program, and children that check), the one that measured collected something.
        totals = []
        for part in self.directory.glob("callgrind.out*"):
            totals += [int(n) for n in re.findall(r"^(?:totals|summary): (\d+)", part.read_text(), re.M)]
            part.unlink()
        return report if isinstance(report, str) else max(totals) / size

    def measure_all(self, cases, names):
        """(results by name, peaks, instructions), as `page` takes them."""
        results, peaks, instructions = {}, Measured("graph", "object", {}), Measured("graph", "object", {})
        for name in names:
            if name == INSTRUCTIONS:
                size = 5000 if self.quick else 20000
                for operation in "store", "load":
                    instructions.rows[operation, size] = {c: self.instructions(f"graph/{operation}/{c}", size)
                                                          for c in ("by hand", "ours")}
                continue
            results[name] = Measured(name, WORKLOADS[name][0], {})
            for operation in dict.fromkeys(case.rsplit("/", 1)[0] for case in cases if case.startswith(name + "/")):
                here = {case: case.rsplit("/", 1)[1] for case in cases if case.startswith(operation + "/")}
                for heap in [EQUAL_HEAPS, {}] if operation in BOTH_HEAPS else [EQUAL_HEAPS]:
                    ended = {}
                    label = operation.split("/")[1] + ("" if heap else " (default heap)")
                    for size in WORKLOADS[name][2 if self.quick else 1]:
                        if not heap and size > LARGE:
                            continue
                        print(f"{name}: {label}, {size:,}", file=sys.stderr, flush=True)
                        few = {case: c for case, c in here.items() if name != "graph" or size <= LARGE or c in FEW}
                        row = self.measure(few, size, heap, ended)
                        results[name].rows[label, size] = {c: row[case] for case, c in few.items()}
                        if name == "graph" and size >= 100000 and heap:
                            peaks.rows[label, size] = {c: self.peak(case, size) for case, c in few.items()}
        return results, peaks, instructions


def machine():
    processors = pathlib.Path("/proc/cpuinfo").read_text()
    cpu = re.search(r"^model name\s*: (.*)$", processors, re.M)
    memory = int(re.search(r"MemTotal:\s*(\d+)", pathlib.Path("/proc/meminfo").read_text()).group(1)) / 2**20
    system = re.search(r'^PRETTY_NAME="(.*)"', pathlib.Path("/etc/os-release").read_text(), re.M)

    def first_line(*command):
        return subprocess.run(command, capture_output=True, text=True).stdout.splitlines()[:1] or ["unknown"]

    virtual = (" A virtual machine, whose speed changes from minute to minute: compare the columns of one line, not "
               "lines.")
    return (f"{cpu.group(1) if cpu else os.uname().machine}, {os.cpu_count()} cores, {memory:.0f} GB; "
            f"{system.group(1) if system else 'Linux'}; {first_line('c++', '--version')[0]}, -O2; "
            f"library at {first_line('git', 'describe', '--always', '--dirty')[0]}." +
            (virtual if re.search(r"^flags.*\bhypervisor\b", processors, re.M) else ""))


def write_csv(path, results, peaks, instructions):
    with open(path, "w", newline="") as out:
        writer = csv.writer(out)
        writer.writerow(("workload", "operation", "candidate", "n", "value", "unit"))
        in_seconds = [(measured, "s") for measured in results.values()]
        for measured, unit in [*in_seconds, (peaks, "MB"), (instructions, INSTRUCTIONS)]:
            writer.writerows((measured.name, operation, c, n, value, unit)
                             for (operation, n), row in measured.rows.items() for c, value in row.items())


def main():
    names = [*WORKLOADS, INSTRUCTIONS]
    parser = argparse.ArgumentParser()
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--docs", type=pathlib.Path)
    parser.add_argument("program", type=pathlib.Path)
    parser.add_argument("output", type=pathlib.Path)
    parser.add_argument("name", nargs="?", choices=names)
    args = parser.parse_args()

    cases = subprocess.run([args.program, "--list"], capture_output=True, text=True, check=True).stdout.splitlines()
    args.output.mkdir(parents=True, exist_ok=True)
    for old in args.output.glob("*.svg"):
        old.unlink()
    with tempfile.TemporaryDirectory(dir=args.output) as temporary:
        runner = Runner(args.program.resolve(), args.quick, pathlib.Path(temporary).resolve())
        found = runner.measure_all(cases, [args.name] if args.name else names)
    write_csv(args.output / "results.csv", *found)
    first, tables = page(*found, args.output)
    parts = ["\n".join([machine(), "", *first]), "\n".join(tables)]
    text = "\n".join(parts)
    (args.output / "table.md").write_text(text)
    print(text)
    if runner.wrong:
        wrong = (f"{case}, {n}: {cause}" for (case, n), cause in runner.wrong.items())
        sys.exit("script/bench: wrong:\n" + "\n".join(wrong))
    if args.docs:
        performance = args.docs / "performance.md"
        whole = performance.read_text()
        for part, (begin, end) in zip(parts, MARKS):
            before, rest = whole.split(begin)
            whole = before + begin + "\n" + part + "\n" + end + rest.split(end)[1]
        performance.write_text(whole)
        for old in args.docs.glob("performance-*.svg"):
            old.unlink()
        for chart in args.output.glob("performance-*.svg"):
            shutil.copy(chart, args.docs)


main()

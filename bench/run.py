"""Runs the benchmark: one process for each measurement, candidates in turn; writes table.md, results.csv and charts."""
import argparse
import csv
import json
import os
import pathlib
import re
import shutil
import statistics
import subprocess
import sys
import tempfile

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
OVER_SIZES = ["graph", "depth", "strings", "ptrmap", "ptrmap1", "strmap"]  # drawn over the sizes
INSTRUCTIONS = "instructions"  # of callgrind, for each object of the graph
ROUNDS = 5
BEGIN, END = "<!-- results -->\n", "<!-- end of results -->\n"


def fail(text):
    sys.exit("script/bench: " + text)


class Runner:
    def __init__(self, program, quick, directory):
        self.program, self.directory = program, directory
        self.cap = 1.0 if quick else 20.0  # seconds that one measurement may take
        self.min_time = "0.005" if quick else "0.05"
        self.wrong = {}

    def run(self, case, size, prefix=(), limit=None):
        """Seconds and peak kilobytes of one measurement, or None: it took too long or went wrong."""
        out = self.directory / "out.json"
        out.unlink(missing_ok=True)
        command = [*prefix, self.program, case, str(size), "--benchmark_min_time=" + self.min_time,
                   f"--benchmark_out={out}", "--benchmark_out_format=json"]
        try:
            # Preparing and checking take their time too.
            result = subprocess.run(command, cwd=self.directory, timeout=limit or self.cap + 8e-6 * size,
                                    stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        except subprocess.TimeoutExpired:
            return None
        # A process that crashed leaves a file cut short.
        report = json.loads(out.read_text())["benchmarks"] if result.returncode == 0 and out.exists() else []
        if case.startswith("depth/") and not case.endswith("ours") and (not report or report[0].get("error_occurred")):
            return None  # what has no room on the stack dies, or the child does that makes its file
        if result.returncode != 0 or len(report) != 1 or report[0].get("error_occurred"):
            cause = report[0].get("error_message") if report else result.stderr.strip()[-300:]
            self.wrong[case, size] = cause or f"status {result.returncode}"
            return None
        assert report[0]["time_unit"] == "ns"
        return report[0]["real_time"] / 1e9, report[0]["peak_kb"]

    def measure(self, cases, size, slow):
        """Medians by case. Takes the cases in turn; what took too long is slow, and left out from there on."""
        runs = {case: [] for case in cases}
        for _ in range(ROUNDS):
            for case in cases:
                if case in slow:
                    continue
                result = self.run(case, size)
                if result is None or result[0] > self.cap:
                    slow.add(case)
                if result is not None:
                    runs[case].append(result)
        return {case: tuple(map(statistics.median, zip(*each))) for case, each in runs.items()
                if each and (case, size) not in self.wrong}

    def instructions(self, case, size):
        out = self.directory / "callgrind.out"
        prefix = ["valgrind", "--tool=callgrind", "--collect-atstart=no", f"--callgrind-out-file={out}"]
        self.min_time = "1e-9"  # one iteration
        if self.run(case, size, prefix, limit=60 * self.cap) is None:
            return None
        # Of the parts (the program, and children that check), the one that measured collected something.
        totals = [int(n) for part in self.directory.glob("callgrind.out*")
                  for n in re.findall(r"^(?:totals|summary): (\d+)", part.read_text(), re.M)]
        for part in self.directory.glob("callgrind.out*"):
            part.unlink()
        return max(totals) / size


def number(value):
    return f"{value:,.0f}" if value >= 100 else f"{value:.3g}"


def table(workload, rows, candidates):
    """rows: {(operation, size): {candidate: (seconds, kb) or None}}"""
    reference = candidates[0]
    ours = [c for c in candidates if c.startswith("ours")]
    lines = [f"### {workload}", "", f"Nanoseconds for each {WORKLOADS[workload][0]}; the last columns: as a multiple of {reference}.", "",
             "| | N | " + " | ".join(candidates + [f"{c} / {reference}" for c in ours]) + " |",
             "|---|--:|" + "--:|" * (len(candidates) + len(ours))]
    for (operation, size), row in rows.items():
        cells = [operation, f"{size:,}"]
        for c in candidates:
            cells.append(number(row[c][0] / size * 1e9) if row.get(c) else "-")
        for c in ours:
            both = row.get(c) and row.get(reference)
            cells.append(f"{row[c][0] / row[reference][0]:.2f}" if both else "")
        lines.append("| " + " | ".join(cells) + " |")
    return lines + [""]


def memory_table(rows, candidates):
    lines = ["### Peak memory of the graph", "", "Megabytes at most in use by a process that stores, or that loads.", "",
             "| | N | " + " | ".join(candidates) + " |", "|---|--:|" + "--:|" * len(candidates)]
    for (operation, size), row in rows.items():
        if size >= 100000:
            cells = [number(row[c][1] / 1024) if row.get(c) else "-" for c in candidates]
            lines.append(f"| {operation} | {size:,} | " + " | ".join(cells) + " |")
    return lines + [""]


def gnuplot(name, script, directory):
    common = (f'set terminal svg size {{}} font "sans,13" background "white"\nset output "{directory / name}.svg"\n'
              "set grid lc rgb '#dddddd'\nset tics nomirror\nset border 3\n")
    size, script = script
    subprocess.run(["gnuplot"], input=common.format(size) + script, text=True, check=True)


COLORS = ["#0072b2", "#e69f00", "#009e73", "#cc79a7", "#56b4e9", "#d55e00"]


def color(candidates, c):
    """Ours is red; the others in the order of the palette."""
    if c.startswith("ours"):
        return "#990000" if "," in c else "#d62728"
    return COLORS[candidates.index(c)]


def chart_over_sizes(workload, rows, candidates, directory):
    operations = list(dict.fromkeys(operation for operation, _ in rows))
    columns = len(operations)
    script = [f"set multiplot layout 1,{columns}", "set logscale xy", "set format x '10^{%L}'", "set key top left reverse Left",
              "set ylabel 'nanoseconds for each'", f"set xlabel 'N: number of {'objects' if workload in ('graph', 'depth') else 'elements'}'"]
    values = [row[c][0] / size * 1e9 for (_, size), row in rows.items() for c in candidates if row.get(c)]
    script.append(f"set yrange [{min(values) / 2}:{max(values) * 40}]")
    sizes = [size for _, size in rows]
    script.append(f"set xrange [{min(sizes) / 1.5}:{max(sizes) * 1.5}]")
    for operation in operations:
        plots = []
        for i, c in enumerate(candidates):
            points = [(s, row[c][0] / s * 1e9) for (o, s), row in rows.items() if o == operation and row.get(c)]
            if points:
                script.append(f"$data{i} << EOD\n" + "\n".join(f"{x} {y}" for x, y in points) + "\nEOD")
                width = 3 if c.startswith("ours") else 1.5
                dash = 2 if "," in c else 1
                plots.append(f"$data{i} with linespoints lw {width} dt {dash} pt {i + 4} ps 0.7 "
                             f"lc rgb '{color(candidates, c)}' title '{c}'")
        script.append(f"set title '{workload}: {operation}'")
        script.append("plot " + ", ".join(plots))
    gnuplot(workload, (f"{420 * columns},420", "\n".join(script) + "\nunset multiplot\n"), directory)


def bars(name, title, label, entries, directory, logscale=False):
    """entries: (label, value, color)"""
    data = "\n".join(f'"{text}" {i} {value} {int(c[1:], 16)}' for i, (text, value, c) in enumerate(entries))
    low = min(value for _, value, _ in entries)
    script = [f"$data << EOD\n{data}\nEOD", f"set title '{title}'", f"set xlabel '{label}'", "unset key", "set style fill solid",
              f"set yrange [{len(entries) - 0.4}:-0.6]", "set ytics scale 0"]
    script.append(f"set logscale x\nset xrange [{min(low, 1) / 2}:*]" if logscale else "set xrange [0:*]")
    if logscale:
        script.append("set arrow from 1, graph 0 to 1, graph 1 nohead lw 1.5 front")
    script.append("set offsets graph 0, graph 0.12, 0, 0\n"
                  f"plot $data using (0.5*($3+{min(low, 1) / 2 if logscale else 0})):2:({min(low, 1) / 2 if logscale else 0}):3:"
                  "($2-0.35):($2+0.35):4:ytic(1) with boxxyerror lc rgb variable, "
                  "$data using 3:2:(sprintf($3 < 100 ? ' %.3g' : ' %.0f', $3)) with labels left offset 0.3,0")
    gnuplot(name, (f"760,{110 + 24 * len(entries)}", "\n".join(script) + "\n"), directory)


def machine():
    cpu = re.search(r"^model name\s*: (.*)$", pathlib.Path("/proc/cpuinfo").read_text(), re.M)
    memory = int(re.search(r"MemTotal:\s*(\d+)", pathlib.Path("/proc/meminfo").read_text()).group(1)) / 2**20
    system = re.search(r'^PRETTY_NAME="(.*)"', pathlib.Path("/etc/os-release").read_text(), re.M)

    def first_line(*command):
        return subprocess.run(command, capture_output=True, text=True).stdout.splitlines()[:1] or ["unknown"]

    return (f"{cpu.group(1) if cpu else os.uname().machine}, {os.cpu_count()} cores, {memory:.0f} GB; "
            f"{system.group(1) if system else 'Linux'}; {first_line('c++', '--version')[0]}, -O2; "
            f"library at {first_line('git', 'describe', '--always', '--dirty')[0]}.")


def main():
    names = [*WORKLOADS, INSTRUCTIONS]
    parser = argparse.ArgumentParser()
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--docs", type=pathlib.Path)
    parser.add_argument("program", type=pathlib.Path)
    parser.add_argument("output", type=pathlib.Path)
    parser.add_argument("name", nargs="?", choices=names)
    args = parser.parse_args()

    listed = subprocess.run([args.program, "--list"], capture_output=True, text=True, check=True).stdout.splitlines()
    args.output.mkdir(parents=True, exist_ok=True)
    for old in args.output.glob("*.svg"):
        old.unlink()
    markdown = [machine(), "", f"A dash: more than {1 if args.quick else 20} seconds, or no room on the stack, here or at a smaller N.", ""]
    records, ratios = [], []
    with tempfile.TemporaryDirectory(dir=args.output) as temporary:
        runner = Runner(args.program.resolve(), args.quick, pathlib.Path(temporary).resolve())
        for workload in [args.name] if args.name else names:
            if workload == INSTRUCTIONS:
                size = 5000 if args.quick else 20000
                markdown += ["### Instructions", "", f"For each object of a graph of {size:,} (callgrind).", "",
                             "| | by hand | ours |", "|---|--:|--:|"]
                for operation in "store", "load":
                    counts = [runner.instructions(f"graph/{operation}/{c}", size) for c in ("by hand", "ours")]
                    markdown.append(f"| {operation} | " + " | ".join("too long" if n is None else number(n) for n in counts) + " |")
                markdown.append("")
                continue
            cases = [case for case in listed if case.split("/")[0] == workload]
            operations = list(dict.fromkeys(case.split("/")[1] for case in cases))
            candidates = list(dict.fromkeys(case.split("/")[2] for case in cases))
            rows, slow = {}, set()
            for operation in operations:
                for size in WORKLOADS[workload][2 if args.quick else 1]:
                    print(f"{workload}: {operation}, {size:,}", file=sys.stderr, flush=True)
                    here = [case for case in cases if case.split("/")[1] == operation]
                    medians = runner.measure(here, size, slow)
                    rows[operation, size] = {case.split("/")[2]: result for case, result in medians.items()}
                    records += [(*case.split("/"), size, *result) for case, result in medians.items()]
            markdown += table(workload, rows, candidates)
            if workload == "graph":
                markdown += memory_table(rows, candidates)
                size = max(s for _, s in rows if s <= 1000000)
                bars("peers", f"Graph of {size:,} objects", "nanoseconds for each object",
                     [(f"{operation}, {c}", rows[operation, size][c][0] / size * 1e9, color(candidates, c))
                      for operation in operations for c in candidates if rows[operation, size].get(c)], args.output)
            if workload in OVER_SIZES and any(rows.values()):
                chart_over_sizes(workload, rows, candidates, args.output)
            for operation in operations:
                size = max(s for o, s in rows if o == operation and s <= 1000000 or len(rows) <= len(operations))
                row = rows[operation, size]
                ratios += [(f"{workload} {operation}: {c}", row[c][0] / row[candidates[0]][0], color(candidates, c))
                           for c in candidates if c.startswith("ours") and row.get(c) and row.get(candidates[0])]
        if ratios:
            bars("ratios", "Time of this library over that of its measure (left of the line: faster)",
                 "by hand, std, getline, memcpy, Write, Read or plain C++ = 1", ratios, args.output, logscale=True)

    text = "\n".join(markdown)
    (args.output / "table.md").write_text(text)
    with open(args.output / "results.csv", "w", newline="") as out:
        csv.writer(out).writerows([("workload", "operation", "candidate", "n", "seconds", "peak_kb"), *records])
    print(text)
    if args.docs:
        page = args.docs / "performance.md"
        before, rest = page.read_text().split(BEGIN)
        images = []
        for chart in sorted(args.output.glob("*.svg"), key=lambda p: (p.stem not in ("peers", "ratios"), p.stem)):
            shutil.copy(chart, args.docs / f"performance-{chart.name}")
            images += [f"![{chart.stem}](performance-{chart.name})", ""]
        page.write_text(before + BEGIN + "\n" + text + "\n" + "\n".join(images) + "\n" + END + rest.split(END)[1])
    if runner.wrong:
        fail("wrong:\n" + "\n".join(f"{case}, {size}: {cause}" for (case, size), cause in runner.wrong.items()))


main()

"""What a run of the benchmark has found, as the results of docs/performance.md: a summary, tables and charts."""
import dataclasses
import subprocess

# A second candidate that ours is held against, beside the first of each workload.
SECOND = {"graph": "cereal", "depth": "cereal", "ptrmap": "abseil", "ptrmap1": "abseil", "strmap": "abseil"}
# What the summary has, in words.
SUMMARY = {"graph": "A graph of objects", "classes": "The same of 1,000 classes", "pages": "The same, each object on its own page",
           "depth": "A list, each object inside the one before", "strings": "An array of strings", "ptrmap": "A map from pointers",
           "strmap": "A map from strings", "lines": "Lines of a file", "blocks": "64 MB as one block",
           "depgraph": "The packages of a system"}
FIRST_CHARTS = ["peers", "ratios", "depth"]  # before the tables
OVER_SIZES = ["graph", "depth", "strings", "ptrmap", "ptrmap1", "strmap"]  # drawn over the sizes
MAIN_SIZE = 1000000  # the summary and the charts show the largest size up to this one

OURS, OURS_TOO, OTHER, FASTER, SLOWER = "#d62728", "#990000", "#9aa5b1", "#0072b2", "#e07b00"
NAMES = {"ours": "libtavnomcl", "ours, wide": "libtavnomcl, wide", "ours, char[]": "libtavnomcl, char[]"}
COLORS = ["#0072b2", "#e69f00", "#009e73", "#cc79a7", "#56b4e9"]


@dataclasses.dataclass
class Measured:
    """rows: {(operation, N): {candidate: figure, or the word why there is none}}"""
    name: str
    element: str  # what each figure is for
    rows: dict

    @property
    def elements(self):
        return self.element.split(",")[0] + "s"

    @property
    def candidates(self):
        return list(dict.fromkeys(c for row in self.rows.values() for c in row))

    @property
    def ours(self):
        return [c for c in self.candidates if c.startswith("ours")]

    @property
    def references(self):
        return [c for c in (self.candidates[0], SECOND.get(self.name)) if c in self.candidates]

    @property
    def drawn(self):
        """The operations of the charts."""
        return list(dict.fromkeys(operation for operation, _ in self.rows if "(" not in operation))

    def main_ratios(self, reference):
        """[(operation, N, ours / reference)], at the main size, or the largest below it at which both have a figure."""
        found = {}
        for (operation, n), row in self.rows.items():
            factor = ratio(row, "ours", reference)
            if factor and (n <= MAIN_SIZE or operation not in found):
                found[operation] = (operation, n, factor)
        return list(found.values())


def ratio(row, candidate, reference):
    values = row.get(candidate), row.get(reference)
    return values[0] / values[1] if all(isinstance(value, float) for value in values) else None


def number(value, scale=1.0):
    if not isinstance(value, float):
        return value or ""
    return f"{value * scale:,.0f}" if value * scale >= 100 else f"{value * scale:.3g}"


def table(title, text, measured, scale, pairs=()):
    """scale: of N, what a figure is multiplied by."""
    candidates = measured.candidates
    head = ["", f"N, {measured.elements}", *candidates, *(f"{c} / {r}" for c, r in pairs)]
    lines = [f"### {title}", "", text, "", "| " + " | ".join(head) + " |", "|---" + "|--:" * (len(head) - 1) + "|"]
    for (operation, n), row in measured.rows.items():
        factors = [ratio(row, c, r) for c, r in pairs]
        cells = [operation, f"{n:,}", *(number(row.get(c), scale(n)) for c in candidates),
                 *("" if f is None else f"{f:.2f}" for f in factors)]
        lines.append("| " + " | ".join(cells) + " |")
    return [*lines, ""]


def summary(results):
    lines = []
    for measured in (results[name] for name in SUMMARY if name in results):
        parts, sizes = [], set()
        for reference in measured.references:
            found = [each for each in measured.main_ratios(reference) if each[0] in measured.drawn]
            sizes |= {n for _, n, _ in found}
            factors = ", ".join(f"{operation} {factor:.2f}" for operation, _, factor in found)
            parts.append(f"{factors} times {reference}")
        sizes = " or ".join(f"{n:,}" for n in sorted(sizes))
        lines.append(f"- {SUMMARY[measured.name]} (`{measured.name}`, N = {sizes}): {'; '.join(parts)}.")
    return ["The time that this library takes, as a multiple of another's; below 1, this library is faster:", "", *lines, ""]


def gnuplot(path, width, height, script):
    common = [f'set terminal svg size {width},{height} font "sans,13" background "white"', f'set output "{path}"',
              "set grid lc rgb '#dddddd'", "set tics nomirror", "set border 3", "unset key"]
    subprocess.run(["gnuplot"], input="\n".join(common + script) + "\n", text=True, check=True)


def block(name, lines):
    return [f"{name} << EOD", *(" ".join(map(str, line)) for line in lines), "EOD"]


def chart_peers(measured, path):
    """Bars from zero on a linear scale."""
    size = max(n for _, n in measured.rows if n <= MAIN_SIZE)
    bars = []
    for operation in measured.drawn:
        for c, seconds in measured.rows[operation, size].items():
            if isinstance(seconds, float):
                place = len(bars) + measured.drawn.index(operation) / 2
                color = int((OURS if c == "ours" else OTHER)[1:], 16)
                bars.append((f'"{operation}, {NAMES.get(c, c)}"', place, seconds / size * 1e9, color))
    gnuplot(path, 760, 120 + 24 * len(bars), [
        *block("$bars", bars), f"set title 'A graph of N = {size:,} objects (shorter is better)'",
        "set xlabel 'nanoseconds of CPU time for each object'", "set style fill solid", "set xrange [0:*]",
        f"set yrange [{bars[-1][1] + 0.9}:-0.6]", "set ytics scale 0", "set offsets graph 0, graph 0.12, 0, 0",
        "plot $bars using ($3/2):2:(0):3:($2-0.35):($2+0.35):4:ytic(1) with boxxyerror lc rgb variable, "
        "$bars using 3:2:(sprintf(' %.0f', $3)) with labels left offset 0.3,0"])


def chart_ratios(results, path):
    """Dots on a logarithmic scale, joined with the line where both are as fast."""
    dots, place = [], 0
    for measured in (results[name] for name in SUMMARY if name in results):
        for reference in measured.references:
            for operation, n, factor in measured.main_ratios(reference):
                if operation in measured.drawn:
                    size = "" if n == MAIN_SIZE else f", N = {n:,}"
                    dots.append((f'"{measured.name}: {operation}, beside {reference}{size}"', place, factor,
                                 int((FASTER if factor < 1 else SLOWER)[1:], 16)))
                    place += 1
        place += 0.7
    factors = [1, *(factor for _, _, factor, _ in dots)]
    margin = max((len(dot[0]) for dot in dots), default=0) * 6.6 / 860
    gnuplot(path, 860, 140 + 18 * round(place), [
        *block("$dots", dots), "set logscale x", f"set xrange [{min(factors) / 1.6}:{max(factors) * 1.6}]",
        f"set yrange [{place}:-1.8]", "set xtics (0.1, 0.2, 0.5, 1, 2, 5, 10)", "set ytics scale 0 font ',12'",
        "set title 'libtavnomcl beside others (farther left is better)'",
        f"set lmargin at screen {margin:.3f}", "set arrow from 1, graph 0 to 1, graph 1 nohead lw 1.5",
        f'set xlabel "CPU time of libtavnomcl / CPU time of the other\\nN = {MAIN_SIZE:,} where no other is named"',
        f"set label 'libtavnomcl is faster' at graph 0.02, first -1.1 tc rgb '{FASTER}'",
        f"set label 'libtavnomcl is slower' at graph 0.98, first -1.1 right tc rgb '{SLOWER}'",
        *(f"set label '{factor:.2f}' at {factor},{place} font ',11' " +
          ("right offset -0.8,0" if factor < 1 else "left offset 0.8,0") for _, place, factor, _ in dots),
        "plot $dots using (1):2:($3-1):(0):4 with vectors nohead lw 2 lc rgb variable, "
        "$dots using 3:2:4:ytic(1) with points pt 7 ps 0.8 lc rgb variable"])


def chart_over_sizes(measured, path):
    """Lines over N on logarithmic scales, with a cross where a candidate ends."""
    candidates, operations, sizes = measured.candidates, measured.drawn, [n for _, n in measured.rows]
    points, ends = {}, {}  # by operation and candidate: [(N, nanoseconds)], and the first (N, word)
    for (operation, n), row in measured.rows.items():
        for c, figure in row.items():
            if isinstance(figure, float):
                points.setdefault((operation, c), []).append((n, figure / n * 1e9))
            else:
                ends.setdefault((operation, c), (n, figure))
    values = [y for each in points.values() for _, y in each]
    panel, width = 380, 380 * len(operations) + 40
    script = [f"set multiplot layout 1,{len(operations)}", "set logscale xy", "set format x '10^{%L}'",
              "set ytics (" + ", ".join(str(digit * 10**e) for e in range(-1, 5) for digit in (1, 2, 5)) + ")",
              f"set xlabel 'N, the number of {measured.elements}'",
              f"set ylabel 'nanoseconds of CPU time for each {measured.elements[:-1]}'",
              f"set xrange [{min(sizes) / 1.5}:{max(sizes) * 2.2}]",
              f"set yrange [{min(values) / 1.3}:{max(values) * 1.3}]",
              "set tmargin at screen 0.91", "set bmargin at screen 0.22"]

    def style(c):
        ours = c.startswith("ours")
        color = (OURS_TOO if "," in c else OURS) if ours else COLORS[candidates.index(c)]
        return f"pt {7 if ours else 5} lc rgb '{color}'", f"lw {3 if ours else 1.5} dt {2 if ',' in c else 1}", color

    for i, c in enumerate(candidates):
        mark, _, color = style(c)
        script.append(f"set label '{NAMES.get(c, c)}' at screen {0.5 + (i - len(candidates) / 2) * 110 / width},0.04 "
                      f"tc rgb '{color}' point {mark} ps 1 offset 0.8,-0.25")
    for i, operation in enumerate(operations):
        script += [f"set lmargin at screen {(70 + panel * i) / width}",
                   f"set rmargin at screen {(30 + panel * (i + 1)) / width}",
                   f"set title '{measured.name}: {operation} (lower is better)'"]
        plots = []
        for c in candidates:
            mark, line, color = style(c)
            if (operation, c) not in points:
                continue
            data, name = points[operation, c], f"$line{candidates.index(c)}"
            script += block(name, data)
            plots.append(f"{name} with linespoints {mark} {line} ps 0.6")
            if (operation, c) in ends:  # at the height where it was last seen
                (n, word), height = ends[operation, c], data[-1][1]
                script += block(name + "end", [(*data[-1], '""'), (n, height, f'"  {word}"')])
                plots += [f"{name}end with lines dt 3 lw 1 lc rgb '{color}'",
                          f"{name}end using 1:2 every ::1 with points pt 2 ps 1.2 lw 3 lc rgb '{color}'",
                          f"{name}end using 1:2:3 every ::1 with labels left tc rgb '{color}'"]
        script += ["plot " + ", ".join(plots or ["NaN"]), "unset label", "unset ylabel"]
    gnuplot(path, width, 420, script + ["unset multiplot"])


def page(results, peaks, instructions, directory):
    """The page's two parts, in lines: the summary with the first charts, and the tables with the others. results:
    {name: Measured}, in seconds; peaks and instructions: Measured, or None. The charts go to the directory."""
    charts = {}

    def chart(name, draw, data):
        draw(data, directory / f"performance-{name}.svg")
        charts[name] = [f"![{name}](performance-{name}.svg)", ""]

    if "graph" in results:
        chart("peers", chart_peers, results["graph"])
    if any(name in SUMMARY for name in results):
        chart("ratios", chart_ratios, results)
    for name in (name for name in OVER_SIZES if name in results):
        chart(name, chart_over_sizes, results[name])
    first = summary(results)
    for name in FIRST_CHARTS:
        first += charts.pop(name, [])
    tables = ["The columns \"ours\" are this library's. A word instead of a figure: the candidate *dies*, as it has no room "
              "on the stack, or is *too slow*: one repetition, here or at a smaller N, takes more than 20 seconds.", ""]
    for name, measured in results.items():
        tables += table(name, f"Nanoseconds for each {measured.element}; the last columns: ours as a multiple.",
                        measured, lambda n: 1e9 / n, [(c, r) for r in measured.references for c in measured.ours])
        tables += charts.get(name, [])
        if name == "graph" and peaks.rows:
            tables += table("Peak memory of the graph", "Megabytes at most in use by a process that stores, or loads, "
                            "once, with the default heap.", peaks, lambda _: 1.0)
    if instructions.rows:
        tables += table("Instructions", "For each object of a graph, as callgrind counts them.", instructions,
                        lambda _: 1.0)
    return first, tables

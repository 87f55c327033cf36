# SPDX-License-Identifier: Apache-2.0
"""Runs the programs of bench/ as scripts/bench has built them, and tells what came of it."""

import argparse
import collections
import json
import math
import os
import pathlib
import platform
import re
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
EXIT_FAILED = 1
EXIT_MISSED = 3
FIGURES = 19  # that a whole run has to judge
WATCHDOG = 240  # seconds; no program takes half of it
SOURCES = {"bluetooth": ("Bluetooth", 10, 20), "carplay": ("CarPlay", 11, 8), "aap": ("Android Auto", 12, 20)}
NAMINGS = {"different": ("33 names", 3), "alike": ("one name", 4)}

Run = collections.namedtuple("Run", "program filter repetitions seconds")

# The repetitions of one run are mixed with each other, so that what else the machine does hits floor and library alike.
GROUPS = {
    "floors": [Run("list_bench", "^floor/", 15, 0.02)],
    "library": [
        Run("list_bench", "^(floor/|refresh/|read/)", 15, 0.02),
        Run("list_bench", "^refresh_", 3, 0.05),
        Run("holds_bench", ".", 3, 0.02),
    ],
    "instead": [Run("list_bench", "^(instead/|floor/read/|refresh/.*different|read/)", 9, 0.03)],
    "locks": [Run("lock_bench", ".", 9, 0.02)],
    "growth": [
        Run("list_bench", "^growth/", 7, 0.01),
        Run("numbering_bench", ".", 5, 0.01),
        Run("clients_bench", ".", 3, 0.01),
    ],
}
# Everything at once: what is compared stands in one run.
ALL = [Run("list_bench", "^(floor|refresh|read|instead)/", 15, 0.02)] + [
    run for group in ("library", "locks", "growth") for run in GROUPS[group] if run.filter != GROUPS["library"][0].filter
]


class Failed(Exception):
    """What is told in one line on the error stream."""


# ------------------------------------------------------------------------------------------------------- measuring


def program_of(build, name):
    return build / "bench" / name


def measure(build, out, runs):
    """The median of each row, by its name. Of what is timed by hand, and of calls to other processes, by the clock;
    of all else the processor's time, which other work on the machine lengthens less."""
    rows = {}
    with tempfile.TemporaryDirectory(prefix="saved-", dir=build) as saved:
        environment = dict(os.environ, LM_SAVE_FILE_DIR=saved)
        for number, run in enumerate(runs):
            print(f"Measuring {run.program} ({number + 1} of {len(runs)}) ...", flush=True)
            raw = out / f"{number}-{run.program}.json"
            command = [
                str(ROOT / "scripts/private-shm"),
                str(program_of(build, run.program)),
                f"--benchmark_filter={run.filter}",
                f"--benchmark_repetitions={run.repetitions}",
                f"--benchmark_min_time={run.seconds}",
                "--benchmark_enable_random_interleaving=true",
                f"--benchmark_out={raw}",
                "--benchmark_out_format=json",
            ]
            try:
                done = subprocess.run(command, env=environment, capture_output=True, text=True, cwd=ROOT, timeout=WATCHDOG)
            except subprocess.TimeoutExpired as hang:
                raise Failed(f"{run.program} has not ended within {WATCHDOG} s") from hang
            if done.returncode != 0:
                raise Failed(f"{run.program} has failed:\n{done.stdout}{done.stderr}")
            for name, row in medians(json.loads(raw.read_text())["benchmarks"], run.program).items():
                rows.setdefault(name, row)
    return rows


def medians(entries, program):
    repetitions = collections.defaultdict(list)
    for entry in entries:
        if entry["run_type"] != "iteration":
            continue
        if entry.get("error_occurred"):
            raise Failed(f"{program}: {entry['name']}: {entry['error_message']}")
        repetitions[entry["name"]].append(entry)
    rows = {}
    for name, list_of in repetitions.items():
        plain = re.sub(r"/(iterations:\d+|manual_time|real_time)", "", name)
        by_clock = plain != re.sub(r"/iterations:\d+", "", name)
        row = {
            key: statistics.median(entry[key] for entry in list_of)
            for key, value in list_of[0].items()
            if isinstance(value, (int, float)) and not key.endswith("_index") and key not in ("threads", "iterations")
        }
        for key in row.keys() & {"most_ns", "allocations"}:
            row[key] = max(entry[key] for entry in list_of)
        row["ns"] = row["real_time" if by_clock else "cpu_time"]
        row["repetitions"] = len(list_of)
        rows[plain] = row
    return rows


def machine(build):
    model = platform.machine()
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            model = line.split(":", 1)[1].strip()
            break
    cache = (build / "CMakeCache.txt").read_text()
    compiler = re.search(r"^CMAKE_CXX_COMPILER:\w+=(.*)$", cache, re.M).group(1)
    version = subprocess.run([compiler, "--version"], capture_output=True, text=True, check=True).stdout.splitlines()[0]
    folder = subprocess.run(["stat", "-f", "-c", "%T", str(build)], capture_output=True, text=True, check=True).stdout
    return {
        "processor": f"{os.cpu_count()} x {model}, {platform.machine()}",
        "kernel": f"{platform.system()} {platform.release()}",
        "compiler": version,
        "options": re.search(r"^CMAKE_CXX_FLAGS_RELWITHDEBINFO:\w+=(.*)$", cache, re.M).group(1),
        "save_folder": folder.strip(),
    }


# --------------------------------------------------------------------------------------------------------- judging


class Results:
    def __init__(self, rows):
        self.rows = rows
        self.figures = []
        self.orders = []

    def ns(self, name):
        return self.rows[name]["ns"] if name in self.rows else None

    def clock(self, name):
        return self.rows[name]["real_time"] if name in self.rows else None

    def least(self, prefix):
        found = [row["ns"] for name, row in self.rows.items() if name.startswith(prefix)]
        return min(found) if found else None

    def figure(self, name, value, sign, bound, unit=""):
        """One figure to reach; nothing when a part of it was not measured."""
        if value is None:
            return
        reached = value <= bound if sign == "<=" else value >= bound
        self.figures.append(
            {"name": name, "value": value, "sign": sign, "bound": bound, "unit": unit, "reached": reached}
        )


def ratio(one, other):
    return None if one is None or other is None else one / other


def judge(results):
    rows = results.rows
    for source, (title, _, _) in SOURCES.items():
        for naming, (names, bound) in NAMINGS.items():
            floor = results.least(f"floor/refresh/{source}/{naming}/")
            value = ratio(results.ns(f"refresh/{source}/{naming}"), floor)
            results.figure(f"refresh of {title}, {names}: times its floor", value, "<=", bound)
    read = results.ns("read/old")
    results.figure("list read of 33: times its floor", ratio(read, results.least("floor/read/")), "<=", 1.2)

    bus = results.clock("instead/bus/33")
    read_by_clock = results.clock("read/old")
    results.figure("list read of 33: times faster than D-Bus", ratio(bus, read_by_clock), ">=", 200)
    for source, (title, _, bound) in SOURCES.items():
        refresh = results.clock(f"refresh/{source}/different")
        both = None if refresh is None or read_by_clock is None else refresh + read_by_clock
        results.figure(f"refresh of {title} and read: times faster than D-Bus", ratio(bus, both), ">=", bound)

    for kind, limit, text in (
        ("new", lambda n: n * n / 2 + 3 * n, "N²/2 + 3N"),
        ("kept", lambda n: 2 * n, "2N"),
    ):
        calls = {n: row["format_calls"] for n, row in series(rows, f"growth/numbering/{kind}").items()}
        worst = max((count / limit(n) for n, count in calls.items()), default=None)
        results.figure(f"calls of a format function, {kind} numbers, N up to 254: times {text}", worst, "<=", 1)

    if "read/old" in rows:
        results.figure("allocations in a list read into a list of that size", rows["read/old"]["allocations"], "<=", 0)
    for naming, (names, _) in NAMINGS.items():
        allocations = {n: row["allocations"] for n, row in series(rows, f"growth/refresh/{naming}").items()}
        # Bluetooth's table fills up to ten phones, Android Auto's to 22, and CarPlay's from then on.
        grown = [allocations[b] - allocations[a] for a, b in ((3, 9), (12, 21), (24, 33)) if b in allocations]
        results.figure(
            f"allocations that more phones add to a refresh, {names}", max(grown, default=None), "<=", 0
        )
    for source, (title, _, _) in SOURCES.items():
        if f"hold/{source}" in rows:
            median = rows[f"hold/{source}"]["median_ns"] / 1000
            results.figure(f"a hold of the lock of {title}'s table, median", median, "<=", 2, " µs")

    for title, prefix in GROWTHS:
        points = {n: row["ns"] for n, row in series(rows, prefix).items()}
        if len(points) > 3:
            results.orders.append({"name": title, "prefix": prefix, "points": points, **fit(points)})


GROWTHS = (
    ("refresh of Bluetooth, N phones of different names", "growth/refresh/different"),
    ("refresh of Bluetooth, N phones of one name", "growth/refresh/alike"),
    ("numbering of N new phones of one name", "growth/numbering/new"),
    ("numbering of N phones of one name that keep their numbers", "growth/numbering/kept"),
    ("a refresh, N processes refreshing, all together", "growth/clients"),
)


def series(rows, prefix):
    return {int(name.rsplit("/", 1)[1]): row for name, row in rows.items() if re.fullmatch(prefix + r"/\d+", name)}


ORDERS = {
    "1": lambda n: 0.0,
    "N": lambda n: n,
    "N log N": lambda n: n * math.log2(max(n, 1)),
    "N²": lambda n: n * n,
    "N³": lambda n: n**3,
}


def fit(points):
    """The order a + b·f(N) with the least squares of the relative errors; of those about as good, the lowest one."""
    candidates = []
    for order, f in ORDERS.items():
        a, b = line([(f(n), y) for n, y in points.items()])
        errors = [((a + b * f(n)) / y - 1) ** 2 for n, y in points.items()]
        candidates.append({"order": order, "a": a, "b": b, "error": math.sqrt(sum(errors) / len(errors))})
    best = min(candidate["error"] for candidate in candidates)
    return next(candidate for candidate in candidates if candidate["error"] <= 1.1 * best + 0.01)


def line(points):
    """Least squares of the relative errors, neither a nor b being negative."""
    weights = [1 / (y * y) for _, y in points]
    total = sum(weights)
    sx = sum(w * x for w, (x, _) in zip(weights, points))
    sy = sum(w * y for w, (_, y) in zip(weights, points))
    sxx = sum(w * x * x for w, (x, _) in zip(weights, points))
    sxy = sum(w * x * y for w, (x, y) in zip(weights, points))
    divisor = total * sxx - sx * sx
    b = (total * sxy - sx * sy) / divisor if divisor > 0 else 0.0
    a = (sy - b * sx) / total
    if a < 0 and sxx > 0:
        a, b = 0.0, sxy / sxx
    if b < 0:
        a, b = sy / total, 0.0
    return a, b


# --------------------------------------------------------------------------------------------------------- telling


def number(value):
    if value == round(value) or value >= 100:
        return f"{value:.0f}"
    return f"{value:.1f}" if value >= 10 else f"{value:.2f}"


def duration(ns):
    for unit, size in (("ms", 1e6), ("µs", 1e3)):
        if ns >= size:
            return f"{number(ns / size)} {unit}"
    return f"{number(ns)} ns"


def figures_table(results):
    yield ("figure", "measured", "to reach", "")
    for figure in results.figures:
        sign = {"<=": "at most", ">=": "at least"}[figure["sign"]]
        yield (
            figure["name"],
            number(figure["value"]) + figure["unit"],
            f"{sign} {figure['bound']}{figure['unit']}",
            "reached" if figure["reached"] else "missed",
        )


def refresh_table(results):
    head = ("refresh, all slots full", "time", "floor", "times", "plain copy", "times")
    yield (*head, "format calls", "numbered anew", "allocations")
    for source, (title, slots, _) in SOURCES.items():
        for naming, (names, _) in NAMINGS.items():
            row = results.rows.get(f"refresh/{source}/{naming}")
            floor = results.least(f"floor/refresh/{source}/{naming}/")
            copy = results.ns(f"floor/slots/{source}")
            if row is None or floor is None or copy is None:
                continue
            counts = [number(row[key]) for key in ("format_calls", "numbered_anew", "allocations")]
            times = (duration(row["ns"]), duration(floor), number(row["ns"] / floor))
            yield (f"{title}, {slots} of 33, {names}", *times, duration(copy), number(row["ns"] / copy), *counts)


def parts_table(results):
    yield ("refresh, 33 names", "time", "locks and guarded copies", "two copies of the list", "all else")
    for source, (title, _, _) in SOURCES.items():
        refresh, reads = results.ns(f"refresh/{source}/different"), results.ns(f"floor/locked_reads/{source}")
        copy = results.least("floor/read/")
        if None not in (refresh, reads, copy):
            shares = [f"{duration(part)}, {part / refresh:.0%}" for part in (reads, 2 * copy)]
            rest = refresh - reads - 2 * copy
            yield (title, duration(refresh), *shares, f"{duration(rest)}, {rest / refresh:.0%}" if rest > 0 else "0")


OTHERS = (
    ("list read of 33 into a list of that size", "read/old", "allocations"),
    ("list read of 33 into a new list", "read/new", "allocations"),
    ("first refresh of a process, tables and numbers there", "refresh_first", None),
    ("refresh that changes the saved table, fsync() at once", "refresh_saving/fsync", "syncs"),
    ("the same, fsync() doing nothing", "refresh_saving/no_fsync", "syncs"),
    ("D-Bus, 10 devices", "instead/bus/10", None),
    ("D-Bus, 33 devices", "instead/bus/33", None),
    ("JSON file, 10 devices", "instead/json/10", None),
    ("JSON file, 33 devices", "instead/json/33", None),
    ("floor of a read: assigned", "floor/read/assigned", None),
    ("floor of a read: bytes in line", "floor/read/inline_bytes", None),
    ("floor of a read: bytes by memcpy()", "floor/read/called_bytes", None),
    ("floor of a read: the same, texts in place", "floor/read/texts_in_place", None),
    ("floor of a read: the same, in chunks instead of by memcpy()", "floor/read/chunks", None),
    ("as many bytes, no texts", "floor/bytes", None),
)


def others_table(results):
    yield ("what", "time", "counted in each")
    for title, name, counter in OTHERS:
        if name in results.rows:
            row = results.rows[name]
            yield (title, duration(row["ns"]), f"{number(row[counter])} {counter}" if counter else "")


def holds_table(results):
    yield ("held or waited", "median", "99 of 100 within", "longest", "times in one refresh")
    titles = [(f"lock of {title}'s table", f"hold/{source}") for source, (title, _, _) in SOURCES.items()]
    titles.append(("any lock while a process starts", "hold/start"))
    titles.append(("list read behind another thread's save", "read_behind_save"))
    for title, name in titles:
        if name in results.rows:
            row = results.rows[name]
            times = (duration(row[key]) for key in ("median_ns", "p99_ns", "most_ns"))
            yield (title, *times, number(row["holds"]) if "holds" in row else "")


def locks_table(results):
    yield ("taking and giving back", "one process", "2 processes", "4", "8")
    for title, name in (
        ("the segments' lock", "named"),
        ("the same, held already", "named_nested"),
        ("flock()", "flock"),
        ("byte lock, fcntl()", "byte"),
        ("robust pthread mutex", "robust"),
    ):
        times = [results.ns(f"lock/{name}/{count}") for count in (1, 2, 4, 8)]
        if times[0] is not None:
            yield (title, *("" if time is None else duration(time) for time in times))


def growth_table(results):
    yield ("growth", "from", "to", "fitted order", "error of the fit")
    for order in results.orders:
        first, last = min(order["points"]), max(order["points"])
        ends = (f"N = {n}: {duration(order['points'][n])}" for n in (first, last))
        yield (order["name"], *ends, order["order"], f"{order['error'] * 100:.0f} %")


TABLES = (figures_table, refresh_table, parts_table, others_table, holds_table, locks_table, growth_table)


def as_text(table):
    widths = [max(len(row[column]) for row in table) for column in range(len(table[0]))]
    for row in table:
        yield "  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip()


def as_markdown(table):
    head, *body = table
    yield "| " + " | ".join(head) + " |"
    yield "|---" * len(head) + "|"
    for row in body:
        yield "| " + " | ".join(row) + " |"


def tables_of(results):
    tables = [list(table(results)) for table in TABLES]
    return [table for table in tables if len(table) > 1]


def print_all(results):
    for table in reversed(tables_of(results)):  # the figures last: they are what is looked for
        print()
        print("\n".join(as_text(table)))


BEGIN = "<!-- Written by scripts/bench --doc: begin -->"
END = "<!-- Written by scripts/bench --doc: end -->"


def write_doc(path, results, context):
    text = path.read_text()
    before, begin, rest = text.partition(BEGIN)
    _, end, after = rest.partition(END)
    if not begin or not end:
        raise Failed(f"{path}: the two lines that mark the tables' place are not there")
    parts = [
        f"{context['processor']}; {context['kernel']}; {context['compiler']}, `{context['options']}`; saved tables on "
        f"{context['save_folder']}."
    ]
    parts += ["\n".join(as_markdown(table)) for table in tables_of(results)]
    path.write_text(before + BEGIN + "\n\n" + "\n\n".join(parts) + "\n\n" + END + after)


PLOTS = {
    "refresh": ("A refresh of Bluetooth", "phones", ("growth/refresh/different", "growth/refresh/alike"), False),
    "numbering": ("Numbering phones of one name", "phones", ("growth/numbering/new", "growth/numbering/kept"), True),
    "clients": ("A refresh, while a service writes", "processes that refresh", ("growth/clients",), False),
}


def draw(folder, results):
    folder.mkdir(parents=True, exist_ok=True)
    orders = {order["prefix"]: order for order in results.orders}
    for name, (title, axis, prefixes, logarithmic) in PLOTS.items():
        shown = [orders[prefix] for prefix in prefixes if prefix in orders]
        if not shown:
            continue
        lines = [
            "set terminal svg size 720,420 font 'sans-serif,13' background 'white'",
            f"set title '{title}'",
            f"set xlabel '{axis}'",
            "set ylabel 'µs'",
            "set key top left",
            "set grid",
            "set encoding utf8",
            "set logscale xy" if logarithmic else "set yrange [0:*]",
        ]
        plots = []
        for index, order in enumerate(shown):
            lines.append(f"$data{index} << END")
            for n, ns in sorted(order["points"].items()):
                fitted = order["a"] + order["b"] * ORDERS[order["order"]](n)
                lines.append(f"{n} {ns / 1000} {fitted / 1000}")
            lines.append("END")
            color = ("#1f5fa8", "#c0392b")[index]
            plots.append(f"$data{index} using 1:2 with points pt 7 ps 0.6 lc rgb '{color}' title '{order['name']}'")
            plots.append(
                f"$data{index} using 1:3 with lines lw 1.5 lc rgb '{color}' title 'fitted: {order['order']}'"
            )
        lines.append("plot " + ", ".join(plots))
        done = subprocess.run(["gnuplot"], input="\n".join(lines), capture_output=True, text=True)
        if done.returncode != 0:
            raise Failed(f"gnuplot has failed: {done.stderr}")
        head, _, rest = done.stdout.partition("\n")
        (folder / f"{name}.svg").write_text(f"{head}\n<!-- SPDX-License-Identifier: Apache-2.0 -->\n{rest}")


def main():
    parser = argparse.ArgumentParser(prog="bench", add_help=False)
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--only", action="append", choices=GROUPS)
    parser.add_argument("--out", type=pathlib.Path)
    parser.add_argument("--plots", type=pathlib.Path)
    parser.add_argument("--doc", type=pathlib.Path)
    parser.add_argument("--report", action="store_true")
    options = parser.parse_args()
    out = options.out or options.build
    out.mkdir(parents=True, exist_ok=True)
    saved = out / "results.json"
    begin = time.monotonic()

    if options.report:
        if not saved.exists():
            raise Failed(f"there is no {saved}")
        kept = json.loads(saved.read_text())
        rows, context = kept["rows"], kept["context"]
    else:
        runs = [run for group in options.only for run in GROUPS[group]] if options.only else ALL
        rows, context = measure(options.build.resolve(), out.resolve(), runs), machine(options.build)
    results = Results(rows)
    judge(results)
    if not options.only and not options.report and len(results.figures) != FIGURES:
        raise Failed(f"{len(results.figures)} figures were judged instead of {FIGURES}: a row has another name, or is missing")
    if not options.report:
        whole = {"context": context, "figures": results.figures, "orders": results.orders, "rows": rows}
        saved.write_text(json.dumps(whole, indent=1, ensure_ascii=False) + "\n")
    if options.plots:
        draw(options.plots, results)
    if options.doc:
        write_doc(options.doc, results, context)

    print_all(results)
    missed = sum(not figure["reached"] for figure in results.figures)
    print(f"\n{len(results.figures) - missed} figures reached, {missed} missed; {time.monotonic() - begin:.0f} s; {saved}")
    return EXIT_MISSED if missed else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Failed as failure:
        print(f"bench: {failure}", file=sys.stderr)
        sys.exit(EXIT_FAILED)

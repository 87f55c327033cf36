#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the campaigns and prints their table; scripts/trust installs what this needs and calls it.

Each row is a campaign and its negative control: the same campaign over sources from which the row's defence has been taken
by a patch of trust/controls. A row is green when its campaign found nothing and its control was caught.
"""

import argparse
import concurrent.futures
import dataclasses
import datetime
import os
import pathlib
import platform
import re
import shutil
import subprocess
import sys
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
WORK = ROOT / "build/trust"
CONTROL_SOURCE = WORK / "control-source"
PRIVATE_SHM = ROOT / "scripts/private-shm"
QEMU_USER = ["qemu-arm", "-L", "/usr/arm-linux-gnueabihf"]
GUEST_BOOT_SECONDS = 120
NEVER_STARTED = (2, 125, 126, 127)  # wrong options, no shared-memory folder, no program
# One build at a time in a folder, and one control at a time in the copy of the sources.
BUILDING = threading.Lock()
CONTROLLING = threading.Lock()
JOBS = str(os.cpu_count() or 1)


@dataclasses.dataclass
class Row:
    """One line of the table."""
    name: str
    tried: str  # what is tried, in a person's words
    program: str  # of trust/, without "trust_"; or, with a slash, a script of the tree that builds what it needs
    full: list
    quick: list  # None: this row is too slow for the short form
    control: list  # the patches of trust/controls, each of which has to be caught; in the short form the first
    control_args: list = dataclasses.field(default_factory=list)
    preset: str = "release"
    quick_control: bool = True  # whether the short form has time to build the controls
    control_preset: str = ""  # the campaign's own, when empty
    limit_full: int = 3600  # seconds; whatever takes longer hangs
    limit_quick: int = 120
    limit_control: int = 60


@dataclasses.dataclass
class Outcome:
    """What a campaign's closing line said, or why there was none."""
    tried: int = 0
    unit: str = ""
    violations: int = 0
    hangs: int = 0
    crashes: int = 0
    seconds: float = 0
    note: str = ""
    trouble: str = ""  # the campaign could not be run; this is no finding

    def is_clean(self):
        return not self.trouble and self.tried > 0 and self.violations + self.hangs + self.crashes == 0

    def found_something(self):
        return not self.trouble and self.violations + self.hangs + self.crashes > 0


def count(number):
    return ["--count", str(number)]


# The lock's campaign on four machines: the same program each time.
LOCK_KILLS = "holders of locks killed at any instruction"

ROWS = [
    Row("lock-kills", LOCK_KILLS, "lock_kills", count(50000), count(500), ["lock-kills"], count(2000)),
    Row("lock-kills-i686", LOCK_KILLS + ", 32-bit x86", "lock_kills", count(5000), count(200), ["lock-kills"], count(2000),
        preset="i686"),
    Row("lock-kills-qemu-user", LOCK_KILLS + ", 32-bit ARM emulated", "lock_kills", count(1000), count(50), ["lock-kills"],
        count(1000), preset="armhf", limit_control=180),
    Row("lock-kills-arm-kernel", LOCK_KILLS + ", booted 32-bit ARM kernel", "lock_kills", count(1000), None, ["lock-kills"],
        count(1000), preset="guest", limit_control=300),
    Row("lock-garbage", "garbage written over pages of locks", "lock_garbage",
        count(10000), count(300), ["lock-garbage"], count(300)),
    Row("creation", "creators of segments killed before and after each call, and racing", "creation",
        count(10000), count(300), ["creation", "creation-races"], count(500)),
    Row("truncation", "tables read while they are cut, lengthened and replaced", "truncation",
        count(1000000), count(20000), ["truncation"], count(20000)),
    Row("odd-objects", "something else in a table's place", "odd_objects",
        count(2000), count(108), ["odd-objects"], count(12)),
    Row("saved-table", "different states of the disk after a power cut during a save", "saved_table",
        count(100000), count(4000), ["saved-table", "saved-table-folder", "saved-table-in-place"], count(2000)),
    Row("damaged-table", "damaged saved tables loaded", "damaged_table",
        count(100000), count(5000), ["damaged-table"], count(2000)),
    Row("failed-calls", "system calls of a load or save that fail", "failed_calls",
        count(1000), count(300), ["failed-calls"], count(200)),
    Row("fields", "tables with every value in every field", "fields",
        count(500000), count(10000), ["fields"], count(1000)),
    Row("notifier", "disturbances of the notifier: kills, garbage, a full ring, participants that are stopped", "notifier",
        count(15000) + ["--seconds", "60"], count(400), ["notifier", "notifier-lock"], count(60)),
    Row("fuzz", "executions of the fuzz targets, under ASan and UBSan", "scripts/fuzz",
        ["--seconds", "60"], ["--seconds", "3"], ["fuzz"], ["--replay"]),
    Row("model", "refreshes compared with a naive model, under ASan and UBSan", "model",
        count(1000000), count(5000), ["model"], count(2000), preset="asan-ubsan", control_preset="release"),
    Row("processes", "whole processes by chance, against a model in Python", "scripts/processes",
        count(1000), count(25), ["processes"], count(100)),
    Row("idlctl", "looks of idlctl at units full of garbage, under ASan and UBSan", "scripts/inspectors",
        count(400), count(8), ["idlctl-pipe", "idlctl-json", "idlctl-lock"], count(40) + ["--seed", "1", "--plain"],
        quick_control=False, limit_control=180),
    Row("soak", "a unit under load, one client of which lives through it all", "soak",
        ["--seconds", "600"], ["--seconds", "10"], ["soak", "soak-mappings"], ["--seconds", "4"]),
]


def parse(text, exit_code):
    """The outcome that the closing line tells; a campaign that broke off before it has crashed."""
    lines = [line for line in text.splitlines() if line.startswith("TRUST\t")]
    if not lines and exit_code in NEVER_STARTED:
        return Outcome(trouble="could not be started (%s)" % exit_code)
    if not lines:
        return Outcome(crashes=1, note="broke off (%s)" % exit_code)
    fields = (lines[-1].split("\t") + [""])[:9]
    outcome = Outcome(int(fields[2]), fields[3], int(fields[4]), int(fields[5]), int(fields[6]), float(fields[7]), fields[8])
    if exit_code not in (0, 1) or (exit_code == 0) != outcome.is_clean():
        outcome.crashes += 1
        outcome.note += "; ended with %s" % exit_code
    return outcome


def run(command, limit, log):
    """Runs a campaign under a watchdog. Its complaints go to the log."""
    started = time.monotonic()
    with open(log, "w", encoding="utf-8") as complaints:
        process = subprocess.Popen(command, cwd=ROOT, stdout=subprocess.PIPE, stderr=complaints, text=True,
                                   errors="replace", start_new_session=True)
        try:
            text, _ = process.communicate(timeout=limit)
            outcome = parse(text, process.returncode)
        except subprocess.TimeoutExpired:
            outcome = Outcome(hangs=1, note="killed after %d s" % limit)
        finally:
            # What a campaign leaves behind must not disturb the next.
            try:
                os.killpg(process.pid, 9)
            except ProcessLookupError:
                pass
            process.wait()
    outcome.seconds = time.monotonic() - started
    return outcome


def build(source, folder, preset, targets, log):
    """Configures where that is still to be done, and builds. True when all went well."""
    with open(log, "w", encoding="utf-8") as said:
        def step(command):
            return subprocess.run(command, cwd=source, stdout=said, stderr=subprocess.STDOUT, check=False).returncode == 0
        with BUILDING:
            return (step(["cmake", "--preset", preset, "-B", str(folder)])
                    and step(["cmake", "--build", str(folder), "-j", JOBS, "--target"] + targets))


def build_row(row, source, folder, preset, arguments, log):
    """Builds what the row runs, outside its watchdog. A script does that itself when it is asked to do no more."""
    if not is_script(row):
        return build(source, folder, preset, ["trust_" + row.program], log)
    with open(log, "w", encoding="utf-8") as said, BUILDING:
        return subprocess.run([str(source / row.program), "--build-only"] + [word for word in arguments if word in ("--replay", "--plain")],
                              cwd=source, stdout=said, stderr=subprocess.STDOUT, check=False).returncode == 0


def log_of(row, what):
    return WORK / "logs" / ("%s.%s.log" % (row.name, what))


def built_by(preset):
    return "armhf" if preset == "guest" else preset


def is_script(row):
    return "/" in row.program


def command_of(row, source, folder, arguments):
    if is_script(row):
        return [str(source / row.program)] + arguments
    program = [str(folder / "trust" / ("trust_" + row.program))] + arguments
    return [str(PRIVATE_SHM)] + (QEMU_USER if row.preset == "armhf" else []) + program


def run_in_guest(row, source, folder, arguments, limit, log):
    """On the booted kernel; the guest passes the closing line on."""
    plan = WORK / "guest-plan"
    program = folder / "trust" / ("trust_" + row.program)
    plan.write_text("%s %s %s\n" % (row.name, program, " ".join(arguments)), encoding="utf-8")
    with open(log, "w", encoding="utf-8") as said:
        started = time.monotonic()
        code = subprocess.run([str(source / "scripts/arm/boot-guest"), str(plan), str(limit), str(limit + GUEST_BOOT_SECONDS)],
                              cwd=source, stdout=said, stderr=subprocess.STDOUT, check=False).returncode
    console = log.read_text(encoding="utf-8", errors="replace").replace("GUEST: TRUST\t", "TRUST\t")
    outcome = parse(console, code) if "GUEST: RESULT" in console else Outcome(trouble="the guest came to no result, see %s" % log)
    outcome.seconds = time.monotonic() - started
    return outcome


def campaign(row, quick):
    """The row's campaign over the sources as they are."""
    arguments = row.quick if quick else row.full
    limit = row.limit_quick if quick else row.limit_full
    preset = built_by(row.preset)
    folder = ROOT / "build" / preset
    if not build_row(row, ROOT, folder, preset, arguments, log_of(row, "build")):
        return Outcome(trouble="not built, see %s" % log_of(row, "build").relative_to(ROOT))
    if row.preset == "guest":
        return run_in_guest(row, ROOT, folder, arguments, limit, log_of(row, "campaign"))
    return run(command_of(row, ROOT, folder, arguments), limit, log_of(row, "campaign"))


def copy_sources():
    """Brings the copy for the controls up to date; what has not changed keeps its time, so that little is built anew."""
    listed = subprocess.run(["git", "ls-files", "-coz", "--exclude-standard"], cwd=ROOT, check=True, capture_output=True, text=True).stdout
    names = [name for name in listed.split("\0") if name and (ROOT / name).is_file()]
    for name in names:
        source, copy = ROOT / name, CONTROL_SOURCE / name
        content = source.read_bytes()
        if not copy.exists() or copy.read_bytes() != content:
            copy.parent.mkdir(parents=True, exist_ok=True)
            copy.write_bytes(content)
            shutil.copymode(source, copy)
    for leftover in CONTROL_SOURCE.rglob("*.orig"):
        leftover.unlink()


def control(row, patch):
    """The same campaign with a defence taken away."""
    copy_sources()
    libraries = CONTROL_SOURCE / "build/target"
    if not libraries.exists():
        libraries.parent.mkdir(exist_ok=True)
        libraries.symlink_to(ROOT / "build/target")
    what = "control-" + patch
    path = ROOT / "trust/controls" / (patch + ".patch")
    # What the campaign has to complain of, where something else could be found as well; any finding when it does not say.
    caught_as = re.search(r"^# Caught as: (.*)$", path.read_text(encoding="utf-8"), re.MULTILINE)
    with open(path, encoding="utf-8") as change, \
            open(log_of(row, what), "w", encoding="utf-8") as said:
        if subprocess.run(["patch", "-p1", "--no-backup-if-mismatch"], cwd=CONTROL_SOURCE, stdin=change, stdout=said, stderr=said,
                          check=False).returncode != 0:
            return Outcome(trouble="the patch %s does not apply" % patch)
    preset = built_by(row.control_preset or row.preset)
    folder = CONTROL_SOURCE / "build" / preset
    if not build_row(row, CONTROL_SOURCE, folder, preset, row.control_args, log_of(row, what)):
        return Outcome(trouble="the control %s was not built" % patch)
    log = log_of(row, what + "-run")
    if row.preset == "guest":
        shutil.copytree(ROOT / "build/arm/kernel", CONTROL_SOURCE / "build/arm/kernel", dirs_exist_ok=True)
        outcome = run_in_guest(row, CONTROL_SOURCE, folder, row.control_args, row.limit_control, log)
    else:
        outcome = run(command_of(row, CONTROL_SOURCE, folder, row.control_args), row.limit_control, log)
    if caught_as and not re.search(caught_as.group(1), log.read_text(encoding="utf-8", errors="replace")):
        outcome.trouble = "something else was found than '%s'" % caught_as.group(1)
    return outcome


def selected(arguments):
    if not arguments.only:
        return [row for row in ROWS if not arguments.quick or row.quick is not None]
    names = {row.name: row for row in ROWS}
    unknown = [name for name in arguments.only if name not in names]
    if unknown:
        sys.exit("trust: there is no row %s; see --list" % unknown[0])
    return [names[name] for name in arguments.only]


def duration(seconds):
    return "%.1f s" % seconds if seconds < 120 else "%d min %02d s" % (seconds // 60, seconds % 60)


def table(lines):
    """The lines as Markdown, its columns aligned."""
    heads = ["Row", "Tried", "How often", "Violations", "Hangs", "Crashes", "Control caught", "Time", "Besides"]
    cells = [heads] + lines
    widths = [max(len(line[column]) for line in cells) for column in range(len(heads))]
    text = ["| " + " | ".join(cell.ljust(width) for cell, width in zip(line, widths)) + " |" for line in cells]
    text.insert(1, "|" + "|".join("-" * (width + 2) for width in widths) + "|")
    return "\n".join(text)


def machine():
    """Processor, kernel and compiler, for whoever compares figures."""
    model = re.search(r"model name\s*: (.*)", pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8"))
    compiler = subprocess.run(["g++", "-dumpfullversion"], capture_output=True, text=True, check=False).stdout.strip()
    return "%s, %d cores, Linux %s, g++ %s" % (model.group(1) if model else platform.machine(), os.cpu_count(),
                                               platform.release(), compiler)


def whole_row(row, arguments):
    """Campaign and controls; the row's line in the table, and whether it is green."""
    print("... %s" % row.name, file=sys.stderr, flush=True)
    outcome = campaign(row, arguments.quick)
    begun = time.monotonic()
    # Where the campaign itself could not be run, its control would prove nothing.
    controls = []
    are_due = not arguments.no_controls and (row.quick_control or not arguments.quick)
    due = row.control[:1] if arguments.quick else row.control
    if are_due and not outcome.trouble:
        with CONTROLLING:
            begun = time.monotonic()
            controls = [(patch, control(row, patch)) for patch in due]
    missed = [patch for patch, result in controls if not result.found_something()]
    caught = "%d of %d" % (len(controls) - len(missed), len(due)) if are_due else "not run"
    trouble = [outcome.trouble] + ["%s: %s" % (patch, result.trouble or "NOT CAUGHT") for patch, result in controls
                                   if patch in missed]
    green = outcome.is_clean() and not missed and not arguments.no_controls
    print("    %s is %s, %s; controls %s in %s" % (row.name, "green" if green else "RED", duration(outcome.seconds), caught,
                                                  duration(time.monotonic() - begun)), file=sys.stderr, flush=True)
    return [row.name + ("" if green else " **RED**"), row.tried, "{:,}".format(outcome.tried), str(outcome.violations),
            str(outcome.hangs), str(outcome.crashes), caught, duration(outcome.seconds),
            "; ".join(part for part in [outcome.note] + trouble if part)], green


def main():
    options = argparse.ArgumentParser(prog="scripts/trust", description="runs the campaigns and prints their table")
    options.add_argument("--quick", action="store_true", help="the short form, about three minutes once everything is built; "
                         "with the first control of each row, and without those that take as long to build (idlctl's)")
    options.add_argument("--jobs", type=int, default=1, metavar="N", help="as many rows at a time")
    options.add_argument("--only", nargs="+", metavar="ROW", help="these rows alone")
    options.add_argument("--list", action="store_true", help="the rows")
    options.add_argument("--no-controls", action="store_true", help="without the negative controls; no row is then green")
    arguments = options.parse_args()
    if arguments.list:
        for row in ROWS:
            print("%-22s %s" % (row.name, row.tried))
        return 0

    (WORK / "logs").mkdir(parents=True, exist_ok=True)
    started = time.monotonic()
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        results = list(pool.map(lambda row: whole_row(row, arguments), selected(arguments)))
    lines = [line for line, _ in results]
    passed = sum(green for _, green in results)
    failed = len(results) - passed

    text = "%s\n\n%s UTC; %s; `scripts/trust%s`; %s with building.\n" % (
        table(lines), datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%d %H:%M"), machine(),
        "".join(" " + word for word in sys.argv[1:]), duration(time.monotonic() - started))
    (WORK / "table.md").write_text(text, encoding="utf-8")
    print(text)
    print("%d passed, %d failed" % (passed, failed))
    return 0 if failed == 0 and passed > 0 else 1


sys.exit(main())

#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Units full of garbage, and everything of the built idlctl that looks at one: random bytes in tables, locks and saved
tables, each of them cut, lengthened, absent, or something else in its place.

No look may crash or hang, end with a code that it does not have, print JSON that is none or not as its schema has it,
let a name steer a terminal, or change anything.

    scripts/private-shm tests/idlctl/program/garbage.py --idlctl PROGRAM --schemas FOLDER [--count N] [--seed N]

Needs a shared-memory folder of its own. Exits 1 when something was found, after a line that starts with TRUST, and 2
when it could not begin.
"""

import argparse
import concurrent.futures
import os
import pathlib
import random
import stat
import subprocess
import sys
import tempfile
import threading
import time
import unicodedata

import outputs
import unit

WATCHDOG = 10  # seconds, for one look
AT_ONCE = 4
MAX_FINDINGS = 20
SANITIZER_EXIT = 99  # no code of idlctl's
TABLES = sorted(unit.SEGMENTS)

LOOKS = [
    ["list", "--explain"], ["list", "--explain", "--json"],
    ["watch", "-n", "1", "--timeout", "1ms"], ["watch", "-n", "1", "--timeout", "1ms", "--json"],
    ["wait", "--name", "*", "--timeout", "1ms", "--json"],
    ["doctor"], ["doctor", "--json"],
    ["suffixes", "show"], ["suffixes", "show", "--json"],
    ["suffixes", "check"], ["suffixes", "check", "--json"],
]
for SOURCE in TABLES:
    LOOKS += [["dump", SOURCE], ["dump", SOURCE, "--hex"], ["dump", SOURCE, "--check"], ["dump", SOURCE, "--check", "--json"]]
LOOKS += [["dump", str(unit.table_path(SOURCE)), "--as", SOURCE, "--check", "--json"] for SOURCE in TABLES]
LOOKS += [["dump", str(unit.lock_path("bt")), "--as", "cp", "--check"]]


class Vandal:
    """Makes units, the same ones for the same seed."""

    def __init__(self, seed, save_folder):
        self.random = random.Random(seed)
        self.save_folder = pathlib.Path(save_folder)

    def unit(self):
        unit.clear(self.save_folder)
        for source in TABLES:
            self.put(unit.table_path(source), self.table(source))
            self.put(unit.lock_path(source), self.lock())
        self.put(self.save_folder / unit.SAVED_TABLE, self.saved())

    def put(self, path, bytes_):
        """Mostly the bytes; sometimes fewer, more, none, nothing or something else."""
        chance = self.random.randrange(16)
        if chance == 0:
            return
        if chance == 1:
            self.odd_object(path)
            return
        if chance in (2, 3):
            bytes_ = bytes_[:self.random.randrange(len(bytes_) + 1)]
        elif chance == 4:
            bytes_ += self.random.randbytes(self.random.choice((1, 8, 4096, 100000)))
        elif chance == 5:
            bytes_ = b""
        path.write_bytes(bytes_)

    def odd_object(self, path):
        self.random.choice((
            lambda: os.mkfifo(path),
            path.mkdir,
            lambda: path.symlink_to("/dev/shm/nowhere"),
            lambda: path.symlink_to(path),
            lambda: path.symlink_to("/dev/zero"),
            lambda: unit.make_socket(path)))()

    def name(self):
        chance = self.random.randrange(6)
        if chance == 0:
            return self.random.randbytes(self.random.randrange(300))
        if chance == 1:
            return b"x" * self.random.randrange(400)
        return self.random.choice((b"", b"Phone", b"Phone 2", b"\x1b[2J\x1b]0;x\x07", b"\xff\xfe", b"\xe2\x80\xaetxt", b"\xf0\x9f\x93\xb1",
                                   b"\xed\xa0\x80", b"\xcc\x81\xcc\x81", b"%s%n\\\"\n\r\t", b"\xf4\x90\x80\x80", b"\xc2\x9b31m"))

    def byte(self):
        return self.random.choice((0, 1, 3, 255, self.random.randrange(256)))

    def table(self, source):
        if self.random.randrange(3) == 0:
            return self.random.randbytes(unit.SIZES[source])
        if source == "bt":
            bytes_ = unit.bt_table(*[unit.bt_slot(self.byte(), self.name(), self.name()) for _ in range(self.random.randrange(11))])
        elif source == "aap":
            bytes_ = unit.aap_table(*[
                unit.aap_slot(self.name(), self.name(), self.byte(), self.byte(),
                              self.random.choice((0, 1, -1, 2147483647, -2147483648))) for _ in range(self.random.randrange(13))])
        elif source == "cp":
            bytes_ = unit.cp_table(*[
                unit.cp_slot(self.random.choice((0, 1, 7, 1 << 41, (1 << 64) - 1)), self.name(), self.byte(), self.byte(), self.byte(),
                             self.byte()) for _ in range(self.random.randrange(12))],
                current=self.random.choice((0, 7, 1 << 41, (1 << 64) - 1)), initialised=self.byte())
        else:
            bytes_ = unit.func_info(self.byte())
        return self.sprinkled(bytes_)

    def saved(self):
        if self.random.randrange(3) == 0:
            return self.random.randbytes(unit.SAVED_SIZE)
        return self.sprinkled(unit.saved_table(*[
            unit.saved_record(self.byte(), self.name(), self.byte(), self.random.choice((0, 1, 1, 1, 255)))
            for _ in range(self.random.randrange(11))]))

    def lock(self):
        return self.random.choice((
            lambda: self.random.randbytes(unit.LOCK_SIZE),
            lambda: bytes(unit.LOCK_SIZE),
            unit.lock_page,
            lambda: unit.lock_page(unit.held_by(self.random.randrange(1, 128)), holder=self.random.getrandbits(32)),
            lambda: unit.lock_page(unit.held_by(self.random.randrange(1, 128)) | 1 << 31),
            lambda: unit.lock_page(self.random.getrandbits(32)),
            lambda: unit.lock_page(version=self.random.getrandbits(32)),
            lambda: self.sprinkled(unit.lock_page())))()

    def sprinkled(self, bytes_):
        changed = bytearray(bytes_)
        for _ in range(self.random.choice((0, 0, 1, 8, 200))):
            changed[self.random.randrange(len(changed))] = self.random.randrange(256)
        return bytes(changed)


def picture_of(*folders):
    """Everything but when it was read last."""
    picture = {}
    for folder in folders:
        for path in [folder] + sorted(folder.rglob("*")):
            status = path.lstat()
            picture[path] = (status.st_mode, status.st_uid, status.st_gid, status.st_ino, status.st_size, status.st_mtime_ns,
                             status.st_ctime_ns, path.read_bytes() if stat.S_ISREG(status.st_mode) else None)
    return picture


class Findings:
    """What was found, by kinds; texts go to standard error."""

    def __init__(self, seed):
        self.seed = seed
        self.counts = {"violations": 0, "hangs": 0, "crashes": 0}

    def add(self, kind, round_, text):
        self.counts[kind] += 1
        print("idlctl: %s: seed %d, round %d: %s" % (kind, self.seed, round_, text), file=sys.stderr, flush=True)

    def are_enough(self):
        return sum(self.counts.values()) >= MAX_FINDINGS


def is_odd(character):
    """Whether a terminal may obey or hide it. What Python's tables do not know yet is let be: idlctl's may be younger. But there are
    characters that never will be any."""
    category = unicodedata.category(character)
    if category == "Cn":
        return 0xFDD0 <= ord(character) <= 0xFDEF or ord(character) & 0xFFFE == 0xFFFE
    return category[0] in "CZ"


def complaint_of(arguments, done, schemas):
    """What is wrong with a look, as its kind and a text; nothing when all is well."""
    command = unit.command_of(arguments)
    if done.returncode < 0 or done.returncode == SANITIZER_EXIT:
        return "crashes", "ended with %d: %r" % (done.returncode, done.stderr[-2000:])
    if done.returncode not in unit.EXIT_CODES[command] - {2}:
        return "violations", "ended with %d: %r" % (done.returncode, done.stderr[-300:])
    if "--json" in arguments:
        # What could not be opened has no JSON; a list of which one table could not be read has.
        texts = done.stdout.splitlines(True) if command == "watch" else [done.stdout]
        if command in ("dump", "suffixes show", "suffixes check") and done.returncode == 3 and not done.stdout:
            return None
        try:
            for text in texts:
                outputs.parsed(text, schemas[command])
        except outputs.Wrong as wrong:
            return "violations", str(wrong)
        return None if texts else ("violations", "printed nothing")
    for output in (done.stdout, done.stderr):
        try:
            text = output.decode("utf-8")
        except UnicodeDecodeError:
            return "violations", "printed what is no UTF-8: %r" % output[:300]
        odd = {character for character in text if is_odd(character) and character not in "\n "}
        if odd:
            return "violations", "printed %s" % sorted(hex(ord(character)) for character in odd)
    return None


def main():
    options = argparse.ArgumentParser()
    options.add_argument("--idlctl", type=pathlib.Path, required=True)
    options.add_argument("--schemas", type=pathlib.Path, required=True)
    options.add_argument("--count", type=int, default=10, help="so many units")
    options.add_argument("--seed", type=int, default=None)
    options = options.parse_args()
    seed = random.SystemRandom().getrandbits(32) if options.seed is None else options.seed
    print("idlctl: seed %d" % seed, file=sys.stderr, flush=True)
    if not os.access(options.idlctl, os.X_OK):
        sys.exit(2)
    schemas = outputs.schemas(options.schemas)
    for sanitizer in ("ASAN_OPTIONS", "UBSAN_OPTIONS"):
        os.environ[sanitizer] = "exitcode=%d:halt_on_error=1" % SANITIZER_EXIT
    findings = Findings(seed)
    started = time.monotonic()
    tried = 0
    codes = {}
    with tempfile.TemporaryDirectory() as folder, concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
        save_folder = pathlib.Path(folder)
        vandal = Vandal(seed, save_folder)
        idlctl = unit.Idlctl(options.idlctl, save_folder)

        hung = threading.Event()  # a hang costs its whole watchdog, and more of them say no more

        def look(arguments):
            try:
                return None if hung.is_set() else idlctl.run(*arguments, timeout=WATCHDOG)
            except subprocess.TimeoutExpired:
                hung.set()
                return None

        for round_ in range(options.count):
            vandal.unit()
            before = picture_of(unit.SHARED_MEMORY, save_folder)
            for arguments, done in zip(LOOKS, pool.map(look, LOOKS)):
                tried += 1
                if done is None:
                    findings.add("hangs", round_, "%s, or one beside it" % " ".join(arguments))
                    continue
                codes[done.returncode] = codes.get(done.returncode, 0) + 1
                complaint = complaint_of(arguments, done, schemas)
                if complaint is not None:
                    findings.add(complaint[0], round_, "%s: %s" % (" ".join(arguments), complaint[1]))
            if picture_of(unit.SHARED_MEMORY, save_folder) != before:
                findings.add("violations", round_, "something was changed")
            if hung.is_set() or findings.are_enough():
                break
    note = "%d units; ended with %s" % (round_ + 1, ", ".join("%d: %d" % pair for pair in sorted(codes.items())))
    counts = findings.counts
    print("\t".join(["TRUST", "idlctl", str(tried), "looks", str(counts["violations"]), str(counts["hangs"]),
                     str(counts["crashes"]), "%.1f" % (time.monotonic() - started), note]))
    sys.exit(0 if tried > 0 and sum(counts.values()) == 0 else 1)


main()

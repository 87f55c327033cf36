#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""How the built idlctl meets a terminal and a pipe: colour, columns, hostile names, lines as they come, readers that go.

    scripts/private-shm tests/idlctl/program/terminal_test.py --idlctl PROGRAM

Needs a shared-memory folder of its own.
"""

import argparse
import os
import pathlib
import pty
import re
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unicodedata
import unittest

import unit

OPTIONS = argparse.Namespace()
COLOUR = re.compile(rb"\x1b\[[0-9;]*m")
LOOKS = [("list",), ("list", "--explain"), ("watch", "--timeout", "10ms"), ("dump", "bt"), ("dump", "bt", "--check"),
         ("doctor",), ("suffixes", "show"), ("suffixes", "check")]
COLOURED = LOOKS[:-1]  # the last one finds nothing
WITH_JSON = LOOKS + [("wait", "--count", "1", "--timeout", "1ms")]


def columns_of(text):
    """The columns that a text takes on a terminal, by Python's own tables."""
    return sum(0 if unicodedata.combining(c) else 2 if unicodedata.east_asian_width(c) in "WF" else 1 for c in text)


class ABench(unittest.TestCase):
    """A Bluetooth table and saved numbers."""

    def setUp(self):
        folder = tempfile.mkdtemp(dir=unit.SHARED_MEMORY)
        self.addCleanup(shutil.rmtree, folder)
        unit.clear(folder)
        self.idlctl = unit.Idlctl(OPTIONS.idlctl, folder)
        unit.table_path("bt").write_bytes(unit.bt_table(unit.bt_slot(3, b"Phone"), unit.bt_slot(3, b"Twin")))
        (self.idlctl.save_folder / unit.SAVED_TABLE).write_bytes(unit.saved_table(unit.saved_record(3, b"Phone", 1)))


class OnATerminal(ABench):
    """What people see."""

    def on_terminal(self, *arguments, **environment):
        """What the command writes to a terminal that is its standard output."""
        ours, its = pty.openpty()
        process = subprocess.Popen([self.idlctl.program, *arguments], env=self.idlctl.environment(**environment),
                                   stdin=subprocess.DEVNULL, stdout=its, stderr=subprocess.DEVNULL)
        os.close(its)
        said = b""
        deadline = time.monotonic() + unit.WATCHDOG
        while True:
            ready, _, _ = select.select([ours], [], [], max(0, deadline - time.monotonic()))
            self.assertTrue(ready, "it does not end: %s" % (arguments,))
            try:
                more = os.read(ours, 65536)
            except OSError:  # it was the terminal's last writer
                break
            if not more:
                break
            said += more
        os.close(ours)
        process.wait(unit.WATCHDOG)
        return said

    def testThereIsColourAndTheSameText(self):
        for look in COLOURED:
            with self.subTest(look=look):
                coloured = self.on_terminal(*look, TERM="xterm")

                self.assertRegex(coloured, COLOUR)
                self.assertEqual(COLOUR.sub(b"", coloured).replace(b"\r\n", b"\n"), self.idlctl.run(*look).stdout)

    def testThereIsNoneWhereItWasNotWantedOrIsNotUnderstood(self):
        for look in LOOKS:
            for environment in ({"NO_COLOR": "1", "TERM": "xterm"}, {"TERM": "dumb"}):
                with self.subTest(look=look, environment=environment):
                    self.assertNotIn(b"\x1b", self.on_terminal(*look, **environment))

    def testThereIsNoneInAPipe(self):
        for look in LOOKS:
            with self.subTest(look=look):
                self.assertNotIn(b"\x1b", self.idlctl.run(*look).stdout)

    def testThereIsNeverColourInJson(self):
        for look in WITH_JSON:
            with self.subTest(look=look):
                said = self.on_terminal(*look, "--json", TERM="xterm")

                self.assertIn(b'"schema":', said)
                self.assertNotIn(b"\x1b", said)

    def testNoNameSteersIt(self):
        hostile = [b"\x1b[2Jgone", b"\x9b31m", "\u202etxt.exe".encode(), "\u2066x".encode(), b"bell\x07", b"over\rwritten",
                   b"two\nlines", b"\xff\xfe", "\u009b1m".encode(), "\u200bwide".encode()]
        unit.table_path("bt").write_bytes(
            unit.bt_table(*[unit.bt_slot(k, name, name) for k, name in enumerate(hostile)]))
        unit.table_path("aap").write_bytes(
            unit.aap_table(*[unit.aap_slot(name, name, btid=99, port=k % 2) for k, name in enumerate(hostile)]))
        (self.idlctl.save_folder / unit.SAVED_TABLE).write_bytes(
            unit.saved_table(*[unit.saved_record(k, name, 1) for k, name in enumerate(hostile)]))
        for look in LOOKS + [("dump", "aap", "--check"), ("dump", "bt", "--hex")]:
            with self.subTest(look=look):
                done = self.idlctl.run(*look)
                for text in (done.stdout.decode("utf-8"), done.stderr.decode("utf-8")):
                    odd = {c for c in text if c != "\n" and unicodedata.category(c)[0] in "CZ" and c != " "}
                    self.assertEqual(odd, set())
        self.assertIn(rb'"\x1b[2Jgone"', self.idlctl.run("list").stdout)
        self.assertIn(rb'"two\nlines"', self.idlctl.run("list").stdout)

    def testColumnsAlignByWhatIsSeen(self):
        names = ["Phone", "\u65e5\u672c\u8a9e\u306e\u96fb\u8a71", "re\u0301sume\u0301", "\u00fcber", "\U0001F4F1 phone",
                 "\ud55c\uad6d", "\uff21\uff22", "x" * 60]
        unit.table_path("bt").write_bytes(
            unit.bt_table(*[unit.bt_slot(k, name.encode()) for k, name in enumerate(names)]))

        lines = self.idlctl.run("list").stdout.decode("utf-8").splitlines()

        self.assertEqual(len(lines), 1 + len(names))
        starts = {columns_of(line[:line.rindex(" bt ") + 1]) for line in lines[1:]}
        self.assertEqual(starts, {columns_of(lines[0][:lines[0].index("Type")])})


class ThroughAPipe(ABench):
    """What other programs read."""

    def setUp(self):
        super().setUp()
        self.write(b"Phone")

    def write(self, name):
        other = unit.SHARED_MEMORY / "other"
        other.write_bytes(unit.bt_table(unit.bt_slot(3, name)))
        other.rename(unit.table_path("bt"))

    def watch(self, *arguments):
        process = self.idlctl.start("watch", "--interval", "5ms", *arguments)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.stdout.close)
        return process

    def line(self, process):
        ready, _, _ = select.select([process.stdout], [], [], unit.WATCHDOG)
        self.assertTrue(ready, "no line has come")
        return process.stdout.readline()

    def testEachLineOfAWatchComesAtOnce(self):
        for arguments in ((), ("--json",)):
            with self.subTest(arguments=arguments):
                self.write(b"Phone")
                watch = self.watch(*arguments)
                while b"Phone" not in self.line(watch):
                    pass
                self.write(b"Renamed")

                self.assertIn(b"Renamed", self.line(watch))
                self.assertIsNone(watch.poll())

    def testAReaderThatGoesEndsItWithoutAWord(self):
        for look in (look for look in COLOURED if look[0] != "watch"):
            with self.subTest(look=look):
                ours, its = os.pipe()
                os.close(ours)
                done = subprocess.run([self.idlctl.program, *look], env=self.idlctl.environment(), stdout=its,
                                      stderr=subprocess.PIPE, timeout=unit.WATCHDOG, check=False)
                os.close(its)

                self.assertEqual(done.returncode, -signal.SIGPIPE)
                self.assertNotRegex(done.stderr.lower(), rb"pipe|error|idlctl:")

    def testAReaderThatGoesEndsAWatchAtItsNextLine(self):
        watch = self.watch("--json")
        self.line(watch)
        watch.stdout.close()

        self.write(b"Renamed")

        self.assertEqual(watch.wait(unit.WATCHDOG), -signal.SIGPIPE)

    def testMessagesAreNoData(self):
        unit.remove(unit.table_path("bt"))

        done = self.idlctl.run("list")

        self.assertEqual(done.stdout, b"")
        self.assertIn(b"absent", done.stderr)


def main():
    options = argparse.ArgumentParser()
    options.add_argument("--idlctl", type=pathlib.Path, required=True)
    _, rest = options.parse_known_args(namespace=OPTIONS)
    unittest.main(argv=sys.argv[:1] + rest)


main()

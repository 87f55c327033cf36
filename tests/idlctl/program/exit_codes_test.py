#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Each exit code of each command of the built idlctl: made to happen, and the same in its --help and in docs/idlctl.md.

    scripts/private-shm tests/idlctl/program/exit_codes_test.py --idlctl PROGRAM --page docs/idlctl.md

Needs a shared-memory folder of its own.
"""

import argparse
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
import unittest.mock

import unit

OPTIONS = argparse.Namespace()
ONE_PHONE = unit.bt_table(unit.bt_slot(3, b"Phone"))


class EachExitCode(unittest.TestCase):
    """A command ends with what it has found."""

    def setUp(self):
        folder = tempfile.mkdtemp(dir=unit.SHARED_MEMORY)
        self.addCleanup(shutil.rmtree, folder)
        unit.clear(folder)
        self.idlctl = unit.Idlctl(OPTIONS.idlctl, folder)
        self.saved = self.idlctl.save_folder / unit.SAVED_TABLE
        self.made = set()

    def expect(self, code, *arguments, **more):
        done = self.idlctl.run(*arguments, **more)
        self.assertEqual(done.returncode, code, (arguments, done.stdout, done.stderr))
        self.made.add(code)
        return done

    def expectWithJson(self, code, *arguments):
        self.expect(code, *arguments)
        self.expect(code, *arguments, "--json")

    def expectWhenStopped(self, code, number, *arguments):
        """Stops the command by a signal as soon as it takes signals."""
        process = self.idlctl.start(*arguments)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.kill)
        deadline = time.monotonic() + unit.WATCHDOG
        blocked = 0
        while not blocked >> (number - 1) & 1:
            self.assertLess(time.monotonic(), deadline)
            status = pathlib.Path("/proc/%d/status" % process.pid).read_text(encoding="utf-8")
            blocked = int(re.search(r"^SigBlk:\s*(\w+)", status, re.MULTILINE).group(1), 16)
        process.send_signal(number)
        self.assertEqual(process.wait(unit.WATCHDOG), code, arguments)
        self.made.add(code)

    def expectAll(self, command):
        """Whether every code that the command has was made to happen."""
        self.assertEqual(self.made, unit.EXIT_CODES[command])

    def expectUsage(self, *arguments):
        self.assertEqual(self.expect(2, *arguments).stdout, b"")

    def test_NoCommandIsWrong(self):
        self.expectUsage()
        self.expectUsage("lst")
        self.expectUsage("--wrong")

    def test_HelpIsNot(self):
        self.expect(0, "--help")
        self.expect(0, "--help-all")

    def test_List(self):
        self.expectWithJson(0, "list")
        self.expectUsage("list", "--wrong")
        unit.table_path("bt").write_bytes(ONE_PHONE)
        self.expectWithJson(0, "list")
        self.expectWithJson(0, "list", "--explain")
        os.truncate(unit.table_path("bt"), 7)
        self.expectWithJson(0, "list")
        with self.idlctl.for_nobody() as other:
            if other is None:
                # Without root there is no second user, and the first is asked about its own table.
                self.skipTest("3 is for a table that may not be read, and root may read all")
            unit.table_path("bt").chmod(0)
            self.made.add(other.run("list", user=unit.NOBODY).returncode)
            self.expectAll("list")

    def test_Watch(self):
        self.expectWithJson(0, "watch", "--timeout", "10ms")
        self.expectWithJson(124, "watch", "-n", "1", "--timeout", "10ms")
        self.expectUsage("watch", "-n", "0")
        self.expectUsage("watch", "-n", "-1")
        self.expectUsage("watch", "--timeout", "5")
        self.expectWhenStopped(0, signal.SIGINT, "watch")
        self.expectWhenStopped(0, signal.SIGTERM, "watch", "-n", "1", "--json")
        self.expectAll("watch")

    def test_Wait(self):
        self.expectWithJson(0, "wait", "--count", "0", "--timeout", "1ms")
        self.expectWithJson(0, "wait", "--source", "bt", "--state", "absent")
        self.expectWithJson(124, "wait", "--source", "bt", "--state", "present", "--timeout", "1ms")
        self.expectWithJson(124, "wait", "--name", "*", "--timeout", "1ms")
        self.expectUsage("wait")
        self.expectUsage("wait", "--source", "bt")
        self.expectUsage("wait", "--state", "absent")
        self.expectUsage("wait", "--btid", "256")
        self.expectUsage("wait", "--count", "-1", "--timeout", "1ms")
        self.expectUsage("wait", "--count", "x", "--timeout", "1ms")
        self.expectUsage("wait", "--source", "usb", "--state", "absent")
        self.expectWhenStopped(1, signal.SIGTERM, "wait", "--count", "9")
        self.expectAll("wait")

    def test_Dump(self):
        self.expectWithJson(3, "dump", "bt")
        self.expectWithJson(3, "dump", "/nowhere/at-all")
        unit.table_path("bt").write_bytes(ONE_PHONE)
        for more in ((), ("--hex",), ("--check",), ("--json",), ("--check", "--json")):
            self.expect(0, "dump", "bt", *more)
        self.expectUsage("dump")
        self.expectUsage("dump", "bt", "--hex", "--json")
        self.expectUsage("dump", "bt", "--as", "usb")
        self.expectUsage("dump", self.idlctl.program)  # no table is so long
        unit.table_path("bt").write_bytes(unit.bt_table(unit.bt_slot(3, b"A"), unit.bt_slot(3, b"B")))
        self.expectWithJson(0, "dump", "bt")
        self.expectWithJson(1, "dump", "bt", "--check")
        unit.table_path("bt").write_bytes(unit.bt_table(unit.bt_slot(3, b"x" * 81)))
        self.expectWithJson(4, "dump", "bt")
        self.expectWithJson(4, "dump", "bt", "--check")
        for size in (0, 3, 500, 1123):
            os.truncate(unit.table_path("bt"), size)
            self.expectWithJson(4, "dump", "bt")
            self.expect(4, "dump", "bt", "--hex")
        unit.remove(unit.table_path("bt"))
        os.mkfifo(unit.table_path("bt"))
        self.expectWithJson(3, "dump", "bt")
        self.expectAll("dump")

    def test_Publish(self):
        self.expect(0, "publish", "bt", "--timeout", "0ms")
        self.expect(0, "publish", "bt", "--phone", 'name="Phone" id=3', "--timeout", "0ms")
        self.expectUsage("publish")
        self.expectUsage("publish", "usb")
        before = unit.table_path("bt").read_bytes()
        self.assertEqual(before, ONE_PHONE)
        self.expectUsage("publish", "bt", "--phone", "id=256")
        self.expectUsage("publish", "bt", "--phone", "id=255")
        self.expectUsage("publish", "bt", "--phone", "port=1")
        self.expectUsage("publish", "bt", "--current", "1")
        self.expect(3, "publish", "bt", "--file", "/nowhere/at-all")
        self.expect(3, "publish", "bt", "--file", "/")
        text = unit.SHARED_MEMORY / "text"
        for content in ("{}", "[]", "", "{", '{"slots": [{"slot": 99, "id": 3}]}', '{"source": "cp", "slots": []}'):
            text.write_text(content, encoding="utf-8")
            self.expectUsage("publish", "bt", "--file", str(text))
        self.assertEqual(unit.table_path("bt").read_bytes(), before)
        stand_in = self.idlctl.start("publish", "bt")
        self.addCleanup(stand_in.stdout.close)
        self.addCleanup(stand_in.stderr.close)
        self.assertIn(b"stop with Ctrl-C", stand_in.stderr.readline())
        self.expect(1, "publish", "bt", "--timeout", "0ms")
        stand_in.terminate()
        self.assertEqual(stand_in.wait(unit.WATCHDOG), 0)
        unit.table_path("aap").mkdir()
        self.expect(3, "publish", "aap", "--timeout", "0ms")
        self.expectAll("publish")

    def test_Run(self):
        story = unit.SHARED_MEMORY / "story.scn"
        story.write_text("expect list count=0\n", encoding="utf-8")
        self.expect(0, "run", str(story))
        self.expect(3, "run", str(story), "--junit", "/nowhere/at-all.xml")
        story.write_text("expect list count=1\n", encoding="utf-8")
        self.expect(1, "run", str(story))
        story.write_text("phne add anna\n", encoding="utf-8")
        self.assertIn(b"did you mean 'phone'", self.expect(2, "run", str(story)).stderr)
        self.expect(3, "run", "/nowhere/at-all.scn")
        self.expectUsage("run")
        self.expectUsage("run", str(story), "--speed", "0")
        self.expectUsage("run", "-", "--step")
        self.expectAll("run")

    def test_Record(self):
        recording = unit.SHARED_MEMORY / "recording"
        self.expect(0, "record", "--timeout", "1ms", "-o", str(recording))
        self.expect(3, "record", "--timeout", "1ms", "-o", str(recording))
        self.expect(0, "record", "--timeout", "1ms", "-o", str(recording), "--force")
        self.expectUsage("record", "--from", str(recording), "--force")
        self.expect(0, "record", "--from", str(recording), "--pseudonymise", "-o", "-")
        self.expect(0, "record", "--from", str(recording), "--pseudonymise")
        self.expectWhenStopped(0, signal.SIGTERM, "record")
        self.expectUsage("record", "--timeout", "5")
        self.expectUsage("record", "--from", str(recording), "--interval", "1s")
        self.expect(3, "record", "--from", "/nowhere/at-all")
        self.expect(3, "record", "--timeout", "1ms", "-o", "/nowhere/at-all")
        recording.write_text(recording.read_text(encoding="ascii").replace('"version":1', '"version":2'), encoding="ascii")
        self.expectUsage("record", "--from", str(recording))
        recording.write_text("garbage\n", encoding="ascii")
        self.expect(4, "record", "--from", str(recording))
        self.expectAll("record")

    def test_Replay(self):
        recording = unit.SHARED_MEMORY / "recording"
        unit.table_path("bt").write_bytes(ONE_PHONE)
        recording.write_bytes(self.expect(0, "record", "--timeout", "1ms").stdout)
        self.expect(1, "replay", str(recording))
        self.expect(0, "replay", str(recording), "--take-over")
        self.expect(0, "replay", str(recording), "--to-scenario")
        self.expect(1, "replay", str(recording), "--check", "--here")
        unit.remove(unit.table_path("bt"))
        self.expect(0, "replay", str(recording), "--check", "--here")
        self.assertFalse(unit.table_path("bt").exists())
        self.expectUsage("replay")
        self.expectUsage("replay", "-", "--step")
        self.expectUsage("replay", str(recording), "--check", "--to-scenario")
        self.expectUsage("replay", str(recording), "--speed", "0")
        self.expect(3, "replay", "/nowhere/at-all")
        stand_in = self.idlctl.start("publish", "bt")
        self.addCleanup(stand_in.stdout.close)
        self.addCleanup(stand_in.stderr.close)
        self.assertIn(b"stop with Ctrl-C", stand_in.stderr.readline())
        self.expect(1, "replay", str(recording))
        stand_in.terminate()
        self.assertEqual(stand_in.wait(unit.WATCHDOG), 0)
        unit.remove(unit.table_path("bt"))
        text = recording.read_text(encoding="ascii")
        recording.write_text(text.replace('"name":"Phone","port"', '"name":"Phony","port"'), encoding="ascii")
        self.assertIn(b"went apart", self.expect(1, "replay", str(recording), "--check", "--here").stdout)
        recording.write_text(text.replace('"version":1', '"version":2'), encoding="ascii")
        self.expectUsage("replay", str(recording), "--check")
        recording.write_text(text.replace('"size":"1124"', '"size":"7"'), encoding="ascii")
        for how in ((), ("--check", "--here"), ("--to-scenario",)):
            self.expect(4, "replay", str(recording), *how)
        self.expectAll("replay")

    def test_Comply(self):
        self.expectWithJson(3, "comply", "bt", "--for", "1ms")
        unit.table_path("bt").write_bytes(ONE_PHONE)
        self.expectWithJson(0, "comply", "bt", "--for", "20ms")
        unit.table_path("bt").write_bytes(unit.bt_table(unit.bt_slot(3, b"x" * 81)))
        self.expectWithJson(1, "comply", "bt", "--for", "1s")  # time for a look that gets the lock on a busy machine
        with open("/dev/full", "wb") as full:
            for more in ((), ("--json",)):
                process = self.idlctl.start("comply", "bt", "--for", "1ms", *more, stdout=full)
                self.addCleanup(process.stderr.close)
                self.assertEqual(process.wait(unit.WATCHDOG), 3)
        self.expectUsage("comply")
        self.expectUsage("comply", "funcinfo")
        self.expectAll("comply")

    def test_ARunThatIsStoppedLeavesNoFolder(self):
        folder = pathlib.Path(tempfile.mkdtemp(dir=unit.SHARED_MEMORY))
        self.addCleanup(shutil.rmtree, folder)
        story = folder / "story.scn"
        story.write_text("wait 1h\n", encoding="utf-8")
        for arguments in ((), ("--step",)):
            for number in (signal.SIGINT, signal.SIGTERM):
                silent, _ = pipe = os.pipe()
                with unittest.mock.patch.dict(os.environ, TMPDIR=str(folder)):
                    process = self.idlctl.start("run", str(story), *arguments, stdin=silent)
                self.addCleanup(process.stdout.close)
                self.addCleanup(process.stderr.close)
                self.addCleanup(process.kill)
                deadline = time.monotonic() + unit.WATCHDOG
                while not list(folder.glob("idl-scenario-*")):
                    self.assertLess(time.monotonic(), deadline)
                process.send_signal(number)
                self.assertEqual(process.wait(unit.WATCHDOG), 1, arguments)
                self.assertEqual(list(folder.glob("idl-scenario-*")), [], arguments)
                for descriptor in pipe:
                    os.close(descriptor)

    def test_ARunIsSteppedByEnter(self):
        story = unit.SHARED_MEMORY / "story.scn"
        story.write_text("wait 0ms ; wait 1ms\n", encoding="utf-8")
        process = self.idlctl.start("run", str(story), "--step", stdin=subprocess.PIPE)
        self.addCleanup(process.kill)
        _, told = process.communicate(b"\n\n", unit.WATCHDOG)
        self.assertEqual((process.returncode, told), (0, b"1: wait 0ms [Enter] 1: wait 1ms [Enter] "))

    def test_SuffixesShow(self):
        self.expectWithJson(0, "suffixes", "show")
        self.saved.write_bytes(b"\xff" * 99)
        self.expectWithJson(0, "suffixes", "show")
        self.expectUsage("suffixes")
        self.expectUsage("suffixes", "show", "--wrong")
        unit.remove(self.saved)
        self.saved.mkdir()
        self.expectWithJson(3, "suffixes", "show")
        self.expectAll("suffixes show")

    def test_SuffixesCheck(self):
        self.expectWithJson(0, "suffixes", "check")
        self.saved.write_bytes(unit.saved_table(unit.saved_record(3, b"Phone", 1)))
        self.expectWithJson(0, "suffixes", "check")
        self.saved.write_bytes(unit.saved_table(unit.saved_record(3, b"Phone", 0)))
        self.expectWithJson(1, "suffixes", "check")
        self.saved.write_bytes(unit.saved_table(unit.saved_record(3, b"Phone", 1), unit.saved_record(4, b"Phone", 1)))
        self.expectWithJson(4, "suffixes", "check")
        self.saved.write_bytes(unit.saved_table(unit.saved_record(3, b"Phone", 1))[:-1])
        self.expectWithJson(4, "suffixes", "check")
        self.expectUsage("suffixes", "check", "--wrong")
        unit.remove(self.saved)
        os.mkfifo(self.saved)
        self.expectWithJson(3, "suffixes", "check")
        self.expectAll("suffixes check")

    def test_SuffixesForget(self):
        self.expect(1, "suffixes", "forget", "--all")
        self.saved.write_bytes(unit.saved_table(unit.saved_record(3, b"Phone", 1), unit.saved_record(4, b"Phone", 2)))
        self.expectUsage("suffixes", "forget")
        self.expectUsage("suffixes", "forget", "--all", "--btid", "3")
        self.expect(1, "suffixes", "forget", "--btid", "9")
        self.expect(0, "suffixes", "forget", "--btid", "3")
        self.assertEqual(self.saved.read_bytes(), unit.saved_table(unit.saved_record(4, b"Phone", 2)))
        self.expect(0, "suffixes", "forget", "--all")
        self.assertEqual(self.saved.read_bytes(), bytes(unit.SAVED_SIZE))
        unit.remove(self.saved)
        self.saved.mkdir()
        self.expect(3, "suffixes", "forget", "--all")
        self.expectAll("suffixes forget")

    def test_Doctor(self):
        self.expectWithJson(1, "doctor")
        for source, table in (("bt", ONE_PHONE), ("cp", unit.cp_table()), ("aap", unit.aap_table()),
                              ("funcinfo", unit.func_info(1))):
            unit.table_path(source).write_bytes(table)
        self.expectWithJson(0, "doctor")
        os.truncate(unit.table_path("aap"), 500)
        self.expectWithJson(1, "doctor")
        self.expectUsage("doctor", "bt")
        self.expectAll("doctor")

    def test_Exec(self):
        self.assertEqual(self.idlctl.run("exec", "--", "sh", "-c", "exit 7").returncode, 7)
        self.expectUsage("exec")
        self.expect(3, "exec", "--", "/no/such/program")
        self.expectAll("exec")

    def test_APrivateBenchThatCannotBeHad(self):
        file = unit.SHARED_MEMORY / "file"
        file.write_bytes(b"")
        for command in unit.EXIT_CODES.keys() - {"run", "exec", "suffixes forget"}:
            arguments = {"publish": ["bt"], "dump": ["bt"], "comply": ["bt"], "replay": ["none"], "wait": ["--count", "0"],
                         "completion": ["bash"]}.get(command, [])
            done = self.idlctl.run("--private=lab", *command.split(), *arguments, environment={"XDG_RUNTIME_DIR": str(file)})
            self.assertEqual((done.returncode, done.stdout), (3, b""), command)

    def test_Completion(self):
        self.expect(0, "completion", "bash")
        self.expect(0, "completion", "zsh")
        self.expectUsage("completion", "fish")
        self.expectAll("completion")

    def test_AreThoseOfThePageAndOfEachHelp(self):
        page = OPTIONS.page.read_text(encoding="utf-8")
        rows = re.findall(r"^\| `([a-z ]+)` \| ([0-9 ]+) \|$", page, re.MULTILINE)

        self.assertEqual({command: {int(code) for code in codes.split()} for command, codes in rows}, unit.EXIT_CODES)
        for command, codes in unit.EXIT_CODES.items():
            told = self.expect(0, *command.split(), "--help").stdout.decode()
            told = told[told.index("Exit codes"):]
            self.assertEqual({int(code) for code in re.findall(r"^  (\d+)  +\S", told, re.MULTILINE)}, codes, command)


def main():
    options = argparse.ArgumentParser()
    options.add_argument("--idlctl", type=pathlib.Path, required=True)
    options.add_argument("--page", type=pathlib.Path, required=True)
    _, rest = options.parse_known_args(namespace=OPTIONS)
    unittest.main(argv=sys.argv[:1] + rest)


main()

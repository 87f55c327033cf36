#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Everything that the built idlctl prints with --json, over many units, against docs/schemas.

    scripts/private-shm tests/idlctl/program/json_test.py --idlctl PROGRAM --schemas FOLDER

Needs a shared-memory folder of its own.
"""

import argparse
import os
import pathlib
import select
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

import outputs
import unit

OPTIONS = argparse.Namespace()
HOSTILE = [b"\x1b[2Jgone", b"\xff\xfe\x80", "\u202etxt.exe".encode(), b"line\nfeed\r\t", b'"quoted" \\ back', b"\xed\xa0\x80",
           "\U0001F4F1 \u65e5\u672c".encode(), b"\x00", b"x" * 300, b"\xc3"]
LOOKS = [
    ("list",), ("list", "--explain"),
    ("watch", "--timeout", "20ms", "--interval", "5ms"),
    ("wait", "--count", "1", "--timeout", "1ms"), ("wait", "--name", "*", "--timeout", "1ms"),
    ("wait", "--source", "bt", "--state", "present", "--timeout", "1ms"),
    ("dump", "bt"), ("dump", "cp", "--check"), ("dump", "aap", "--check"), ("dump", "funcinfo", "--check"),
    ("dump", "bt", "--check"), ("dump", "/dev/shm/AapDeviceList", "--as", "aap", "--check"),
    ("doctor",),
    ("suffixes", "show"), ("suffixes", "check"),
]


def absent(_):
    pass


def healthy(idlctl):
    """As the bench's own stand-ins make it, with numbers that a client would have saved."""
    idlctl.publish("bt", "--phone", 'name="iPhone" id=3', "--phone", 'name="iPhone" id=4')
    idlctl.publish("cp", "--phone", 'name="iPhone" identifier=9223372036854788153 btid=3', "--current", "9223372036854788153")
    idlctl.publish("aap", "--phone", 'name="Android" id="a" port=2', "--phone", 'name="Claims" id="b" btid=77 port=1')
    unit.table_path("funcinfo").write_bytes(unit.func_info(1))
    (idlctl.save_folder / unit.SAVED_TABLE).write_bytes(
        unit.saved_table(unit.saved_record(3, b"iPhone", 1), unit.saved_record(4, b"iPhone", 2)))


def hostile(idlctl):
    unit.table_path("bt").write_bytes(unit.bt_table(*[unit.bt_slot(k, name, name) for k, name in enumerate(HOSTILE)]))
    unit.table_path("cp").write_bytes(
        unit.cp_table(*[unit.cp_slot((1 << 63) + k, name, k) for k, name in enumerate(HOSTILE)], current=(1 << 64) - 1))
    unit.table_path("aap").write_bytes(unit.aap_table(
        *[unit.aap_slot(name, name, 255, 200 if k % 2 else 255, -2147483648 if k % 3 else 2147483647)
          for k, name in enumerate(HOSTILE)]))
    (idlctl.save_folder / unit.SAVED_TABLE).write_bytes(
        unit.saved_table(*[unit.saved_record(k, name, k, 1 + k) for k, name in enumerate(HOSTILE)]))


def suspicious(idlctl):
    unit.table_path("bt").write_bytes(unit.bt_table(unit.bt_slot(3, b"A"), unit.bt_slot(3, b"A")))
    unit.table_path("cp").write_bytes(unit.cp_table(unit.cp_slot(5, b"A", 9), unit.cp_slot(5, b"A"), initialised=0) + b"more")
    unit.table_path("aap").write_bytes(unit.aap_table(*[unit.aap_slot(b"a", b"A", port=1)] * 3, unit.aap_slot(b"b", b"B")))
    (idlctl.save_folder / unit.SAVED_TABLE).write_bytes(
        unit.saved_table(unit.saved_record(3, b"\xffA", 1), unit.saved_record(4, b"\xffA", 1), unit.saved_record(255, b"B", 0)))


def zeros(_):
    for source, path in ((source, unit.table_path(source)) for source in unit.SIZES):
        path.write_bytes(bytes(unit.SIZES[source]))


def cut(size):
    def make(idlctl):
        hostile(idlctl)
        unit.table_path("funcinfo").write_bytes(unit.func_info(1))
        for source in unit.SIZES:
            os.truncate(unit.table_path(source), size)
        os.truncate(idlctl.save_folder / unit.SAVED_TABLE, size)
    make.__name__ = "cut to %d bytes" % size
    return make


def odd_objects(idlctl):
    os.mkfifo(unit.table_path("bt"))
    unit.table_path("cp").mkdir()
    unit.table_path("aap").symlink_to("/dev/shm/nowhere")
    unit.make_socket(unit.table_path("funcinfo"))
    os.mkfifo(unit.lock_path("bt"))
    (idlctl.save_folder / unit.SAVED_TABLE).mkdir()


def odd_locks(idlctl):
    """A lock of each state; those of the living are held by this process."""
    healthy(idlctl)
    unit.lock_path("bt").write_bytes(unit.lock_page(unit.held_by(5), holder=4242))
    unit.lock_path("cp").write_bytes(unit.lock_page(0x12345678))
    unit.lock_path("aap").write_bytes(unit.lock_page(version=2))
    unit.lock_path("funcinfo").write_bytes(b"")


def free_locks(_):
    unit.table_path("bt").write_bytes(unit.bt_table())
    unit.lock_path("bt").write_bytes(unit.lock_page())
    unit.lock_path("cp").mkdir()
    unit.lock_path("aap").symlink_to("/dev/shm/nowhere")


STATES = [absent, healthy, hostile, suspicious, zeros, cut(0), cut(3), cut(500), cut(1100), odd_objects, odd_locks, free_locks]


class EveryOutput(unittest.TestCase):
    """Over each unit, each look is as its schema has it."""

    def setUp(self):
        folder = tempfile.mkdtemp(dir=unit.SHARED_MEMORY)
        self.addCleanup(shutil.rmtree, folder)
        unit.clear(folder)
        self.idlctl = unit.Idlctl(OPTIONS.idlctl, folder)
        self.schemas = outputs.schemas(OPTIONS.schemas)
        self.seen = {}

    def look(self, arguments, idlctl=None, **more):
        command = unit.command_of(arguments)
        done = (idlctl or self.idlctl).run(*arguments, "--json", **more)
        self.assertIn(done.returncode, unit.EXIT_CODES[command] - {2}, (arguments, done.stderr))
        texts = done.stdout.splitlines(True) if command == "watch" else [done.stdout]
        if command in ("dump", "suffixes show", "suffixes check") and done.returncode == 3:
            self.assertEqual(done.stdout, b"")
            self.assertNotEqual(done.stderr, b"")
            return []
        found = []
        for text in texts:
            try:
                found.append(outputs.parsed(text, self.schemas[command]))
            except outputs.Wrong as wrong:
                self.fail("%s: %s" % (" ".join(arguments), wrong))
        self.seen.setdefault(command, []).extend(found)
        return found

    def lookAtAll(self):
        for state in STATES:
            unit.clear(self.idlctl.save_folder)
            state(self.idlctl)
            for arguments in LOOKS:
                with self.subTest(state=state.__name__, look=" ".join(arguments)):
                    self.look(arguments)

    def testIsAsItsSchemaHasIt(self):
        self.lookAtAll()

        for command in self.schemas:
            self.assertTrue(self.seen.get(command), command)
        said = {finding["id"] for object_ in self.seen["doctor"] for finding in object_["findings"]}
        self.assertGreater(len(said), 15, said)

    def testIsNotWhatASchemaLetsThroughWhenOnePlaceIsBroken(self):
        self.lookAtAll()

        for command, found in self.seen.items():
            places = set()
            for value in found:
                for place, broken in outputs.broken_ones(value):
                    if place not in places:
                        places.add(place)
                        self.assertFalse(self.schemas[command].is_valid(broken), (command, place))
            self.assertGreater(len(places), 3, command)

    def testNamesEveryStateOfALock(self):
        states = set()
        for state in (absent, healthy, odd_locks, free_locks):
            unit.clear(self.idlctl.save_folder)
            state(self.idlctl)
            [doctor] = self.look(("doctor",))
            states |= {source["lock"] for source in doctor["sources"].values()}
        unit.clear(self.idlctl.save_folder)
        odd_locks(self.idlctl)
        with unit.living_slot(unit.lock_path("bt"), 5):
            [doctor] = self.look(("doctor",))

        self.assertEqual(doctor["sources"]["bt"]["lock"], "held")
        self.assertEqual(doctor["sources"]["bt"]["holder"], 4242)
        self.assertTrue(doctor["sources"]["bt"]["readWithoutLock"])
        self.assertLessEqual({"absent", "not a lock", "new", "free", "held by the dead", "garbage", "of another version"}, states)

    def testSaysWhatAUserMayNotRead(self):
        with self.idlctl.for_nobody() as other:
            if other is None:
                # Who owns the table may read it: this takes a second user.
                self.skipTest("another user can be had by root alone")
            self.idlctl.save_folder.chmod(0o755)
            healthy(self.idlctl)
            for path in unit.SHARED_MEMORY.iterdir():
                if path.is_file():
                    path.chmod(0)
            (self.idlctl.save_folder / unit.SAVED_TABLE).chmod(0)
            for arguments in LOOKS:
                with self.subTest(look=" ".join(arguments)):
                    self.look(arguments, other, user=unit.NOBODY)

        [doctor] = self.seen["doctor"]
        self.assertEqual({source["state"] for source in doctor["sources"].values()}, {"unreadable"})

    def testTellsEachKindOfEventInALineOfItsOwn(self):
        unit.table_path("bt").write_bytes(unit.bt_table(unit.bt_slot(3, b"A"), unit.bt_slot(4, b"B")))
        watch = self.idlctl.start("watch", "--json", "--interval", "5ms")
        self.addCleanup(watch.wait)
        self.addCleanup(watch.kill)
        self.addCleanup(watch.stdout.close)
        self.addCleanup(watch.stderr.close)
        told = []

        def await_(kind):
            deadline = time.monotonic() + unit.WATCHDOG
            while True:
                ready, _, _ = select.select([watch.stdout], [], [], max(0, deadline - time.monotonic()))
                line = watch.stdout.readline() if ready else b""
                self.assertTrue(line, "%s was awaited after %s" % (kind, told))
                told.append(outputs.parsed(line, self.schemas["watch"]))
                if told[-1]["event"] == kind:
                    return told[-1]

        def write_to(source, bytes_):
            other = unit.SHARED_MEMORY / "other"
            other.write_bytes(bytes_)
            other.rename(unit.table_path(source))

        def write(*slots):
            write_to("bt", unit.bt_table(*slots))

        await_("initial")
        write(unit.bt_slot(3, b"A"), unit.bt_slot(4, b"B"), unit.bt_slot(5, b"\xffC"))
        self.assertEqual(await_("added")["device"]["nameHex"], "ff43")
        write(unit.bt_slot(3, b"A"), unit.bt_slot(4, b"B"))
        await_("removed")
        write(unit.bt_slot(3, b"A2"), unit.bt_slot(4, b"B"))
        self.assertEqual(await_("changed")["fields"], ["name"])
        unit.table_path("bt").unlink()
        await_("sourceLost")
        write(unit.bt_slot(3, b"A2"), unit.bt_slot(4, b"B"))
        await_("sourceBack")
        write_to("aap", unit.aap_table(unit.aap_slot(b"a", b"X", port=1), unit.aap_slot(b"b", b"Y", port=2)))
        await_("added")
        await_("added")
        write_to("aap", unit.aap_table(unit.aap_slot(b"a", b"X", port=2), unit.aap_slot(b"b", b"Y", port=1)))
        await_("moved")
        await_("changed")

    def testNamesTheFolderOfTheSavedNumbers(self):
        system = "/var/lib/lm-save-files"
        script = "mount -t tmpfs tmpfs /var/lib && { [ -z \"$1\" ] || mkdir \"$1\"; } && shift && exec \"$@\""
        environment = dict(os.environ, HOME="/home/somebody")
        for variable in ("LM_SAVE_FILE_DIR", "XDG_STATE_HOME"):
            environment.pop(variable, None)

        def path_of(folder, *arguments, **more):
            with self.idlctl.for_nobody() as other:
                if other is None:
                    # The folders of root and of a user differ: this takes both.
                    self.skipTest("another user can be had by root alone")
                as_other = ["setpriv", "--reuid", str(unit.NOBODY), "--regid", str(unit.NOBODY), "--clear-groups"]
                done = subprocess.run(
                    ["unshare", "--mount", "sh", "-c", script, "sh", folder, *as_other, other.program, "doctor", "--json",
                     *arguments], env=dict(environment, **more), stdout=subprocess.PIPE, check=False, timeout=unit.WATCHDOG)
            return outputs.parsed(done.stdout, self.schemas["doctor"])["saved"]["path"]

        self.assertEqual(path_of(system), system + "/IDLSuffix.ini")
        self.assertEqual(path_of(""), "/home/somebody/.local/state/lm-save-files/IDLSuffix.ini")
        self.assertEqual(path_of(system, LM_SAVE_FILE_DIR="/given"), "/given/IDLSuffix.ini")
        self.assertEqual(path_of(system, "--save-dir", "/said", LM_SAVE_FILE_DIR="/given"), "/said/IDLSuffix.ini")

    def testKeepsEveryBitOfALongNumber(self):
        healthy(self.idlctl)

        [phone] = [phone for phone in self.idlctl.json("list")["devices"] if phone["type"] == "cp"]

        self.assertEqual(phone["cpDeviceId"], "9223372036854788153")
        self.assertEqual(self.idlctl.json("dump", "cp")["currentPhone"], "9223372036854788153")

    def testHasTheBytesOfANameThatIsNoUtf8(self):
        unit.table_path("bt").write_bytes(unit.bt_table(unit.bt_slot(3, b"a\xffb"), unit.bt_slot(4, "\u65e5".encode())))

        first, second = self.idlctl.json("list")["devices"]

        self.assertEqual((first["name"], first["nameHex"]), ("a\ufffdb", "61ff62"))
        self.assertEqual(second["name"], "\u65e5")
        self.assertNotIn("nameHex", second)


def main():
    options = argparse.ArgumentParser()
    options.add_argument("--idlctl", type=pathlib.Path, required=True)
    options.add_argument("--schemas", type=pathlib.Path, required=True)
    _, rest = options.parse_known_args(namespace=OPTIONS)
    unittest.main(argv=sys.argv[:1] + rest)


main()

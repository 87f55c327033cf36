#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""The examples as processes: what the publishers write, as idlctl reads it, and what the clients print.

    scripts/private-shm tests/examples/examples_test.py --examples FOLDER --idlctl PROGRAM [--preloaded LIBRARY]

Needs a shared-memory folder of its own.
"""

import argparse
import json
import os
import pathlib
import queue
import shutil
import subprocess
import sys
import tempfile
import threading
import unittest

OPTIONS = argparse.Namespace()
WATCHDOG = 60  # seconds, for whatever is waited for
SHARED_MEMORY = pathlib.Path("/dev/shm")

ANNA = "Anna's phone"


class TheExamples(unittest.TestCase):
    """On a machine without any table."""

    def setUp(self):
        for path in SHARED_MEMORY.iterdir():
            if path.is_dir():
                shutil.rmtree(path)
            else:
                path.unlink()
        self.saved = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.saved)
        self.environment = dict(os.environ, LM_SAVE_FILE_DIR=self.saved)

    def run_program(self, program, *arguments):
        done = subprocess.run([program, *arguments], env=self.environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, timeout=WATCHDOG, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, b""), (program, arguments))
        return done.stdout.decode()

    def example(self, name, *arguments):
        return self.run_program(OPTIONS.examples / name, *arguments)

    def idlctl(self, *arguments):
        return json.loads(self.run_program(OPTIONS.idlctl, *arguments, "--json"))

    def publish_all(self):
        """Anna's phone is paired, plugged in for Android Auto, and known to CarPlay; two more have one name."""
        self.example("publisher-bt", "3", ANNA, "4", "iPhone")
        self.example("publisher-carplay", "77", "iPhone", "0", "0x50", ANNA, "3")
        self.example("publisher-aap", "aap-1", ANNA, "3", "2", "aap-2", "Pixel", "255", "4")

    def names(self, output):
        return [line.split("name=", 1)[1] for line in output.splitlines()]

    def test_APublisherWritesAWholeTable(self):
        self.publish_all()

        bt, cp, aap = (self.idlctl("dump", source, "--check") for source in ("bt", "cp", "aap"))
        for table in (bt, cp, aap):
            self.assertEqual(table["findings"], [])
        self.assertEqual([(slot["id"], slot["name"], slot["address"]) for slot in phones_of(bt)],
                         [(3, ANNA, "00:00:5E:00:53:01"), (4, "iPhone", "00:00:5E:00:53:01")])
        self.assertEqual([(slot["identifier"], slot["name"], slot["btid"], slot["session"]) for slot in phones_of(cp)],
                         [("77", "iPhone", 0, 1), ("80", ANNA, 3, 2)])
        self.assertEqual([(slot["id"], slot["name"], slot["btid"], slot["port"]) for slot in phones_of(aap)],
                         [("aap-1", ANNA, 3, 2), ("aap-2", "Pixel", 255, 4)])

    def test_APublisherWritesUnderItsLock(self):
        """Each write to a table, also the size word's and those of CarPlay's defaults."""
        if OPTIONS.preloaded is None:
            # Nothing can be loaded before it, and without the hook no write is seen.
            self.skipTest("a sanitizer's runtime has to be the first that is loaded")
        seen = pathlib.Path(self.saved, "writes-seen")
        self.environment.update(LD_PRELOAD=str(OPTIONS.preloaded), WRITES_SEEN=str(seen))
        self.publish_all()
        for table in ("BtPairedDeviceList", "LmSCarplayResource", "AapDeviceList"):
            self.assertGreaterEqual(seen.read_text().split().count(table), 2, f"the hook has not seen {table}'s size word and phones")

        careless = subprocess.run([sys.executable, "-c", "import os; os.pwrite(os.open('/dev/shm/AapDeviceList', os.O_RDWR), b'x', 8)"],
                                  env=self.environment, stderr=subprocess.PIPE, timeout=WATCHDOG, check=False)
        self.assertEqual((careless.returncode, careless.stderr), (99, b"AapDeviceList is written without its lock\n"))

    def test_APublisherWithoutPhonesLeavesNoneListed(self):
        self.publish_all()
        for publisher in ("publisher-bt", "publisher-carplay", "publisher-aap"):
            self.example(publisher)

        self.assertEqual(self.idlctl("list")["devices"], [])
        self.assertEqual(self.example("client"), "")

    def test_APublisherEndsATextThatIsTooLong(self):
        self.example("publisher-bt", "3", "x" * 300)
        self.example("publisher-carplay", "77", "y" * 300, "0")
        self.example("publisher-aap", "z" * 300, "z" * 300, "255", "1")

        for source in ("bt", "cp", "aap"):
            self.assertEqual(self.idlctl("dump", source, "--check")["findings"], [])
        self.assertEqual([len(row["name"]) for row in self.idlctl("list")["devices"]], [255, 256, 80])

    def test_APublisherTellsThatItsTableTakesFewerPhones(self):
        for publisher, source, slots, phone in (("publisher-bt", "bt", 10, ["3", ANNA]), ("publisher-carplay", "cp", 11, ["77", ANNA, "3"]),
                                                ("publisher-aap", "aap", 12, ["aap-1", ANNA, "3", "1"])):
            done = subprocess.run([OPTIONS.examples / publisher, *(phone * (slots + 1))], env=self.environment, stderr=subprocess.PIPE,
                                  timeout=WATCHDOG, check=False)
            self.assertEqual((done.returncode, done.stderr), (1, f"{publisher}: not published, or not all\n".encode()))
            self.assertEqual(len(phones_of(self.idlctl("dump", source))), slots)

    def test_APublisherRefusesWordsThatMakeNoPhone(self):
        for publisher, *words in (("publisher-bt", "3"), ("publisher-bt", "255", ANNA), ("publisher-bt", "anna", ANNA), ("publisher-bt", "", ANNA),
                                  ("publisher-carplay", "77", ANNA), ("publisher-carplay", "0", ANNA, "3"), ("publisher-carplay", "77", ANNA, "256"),
                                  ("publisher-aap", "aap-1", ANNA, "3"), ("publisher-aap", "", ANNA, "3", "1"),
                                  ("publisher-aap", "aap-1", ANNA, "-1", "1"), ("publisher-aap", "aap-1", ANNA, "3", "2147483648")):
            done = subprocess.run([OPTIONS.examples / publisher, *words], env=self.environment, stderr=subprocess.PIPE, timeout=WATCHDOG,
                                  check=False)
            self.assertEqual((done.returncode, done.stderr.split(b" [")[0]), (2, f"usage: {publisher}".encode()), words)
        self.assertEqual(list(SHARED_MEMORY.iterdir()), [])

    def test_ACarPlayPublisherKeepsWhatItFinds(self):
        resource = SHARED_MEMORY / "LmSCarplayResource"
        image = bytearray(13736)
        image[5120:5124] = b"kept"
        image[13733:13736] = b"end"
        resource.write_bytes(image)
        self.example("publisher-carplay")

        begun = resource.read_bytes()
        self.assertEqual((begun[5120:5128], begun[13732:13736], begun[452]), (b"keptkept", b"\x01end", 10))

        changed = bytearray(begun)
        changed[452] = 99
        resource.write_bytes(changed)
        self.example("publisher-carplay")
        self.assertEqual(resource.read_bytes(), bytes(changed))

    def test_APublisherKeepsTheRulesOfItsTable(self):
        """Watched from outside, while it publishes a phone, and none, and a phone."""
        watched = {"bt": ("publisher-bt", ["3", ANNA]), "cp": ("publisher-carplay", ["77", ANNA, "3"]),
                   "aap": ("publisher-aap", ["aap-1", ANNA, "3", "1"])}
        for publisher, _ in watched.values():
            self.example(publisher)
        watchers = {source: subprocess.Popen([OPTIONS.idlctl, "comply", source, "--for", "3s", "--json"], stdout=subprocess.PIPE)
                    for source in watched}
        for watcher in watchers.values():
            self.addCleanup(watcher.stdout.close)
            self.addCleanup(watcher.wait)
            self.addCleanup(watcher.kill)
        while any(watcher.poll() is None for watcher in watchers.values()):
            for publisher, phone in watched.values():
                self.example(publisher, *phone)
                self.example(publisher)

        for source, watcher in watchers.items():
            verdicts = {rule["id"]: rule["verdict"] for rule in json.load(watcher.stdout)["rules"]}
            self.assertEqual({verdicts.pop(rule) for rule in ("ends-texts", "keeps-free-slots-free", "keeps-size-word", "notifies")},
                             {"passed"}, source)
            self.assertNotIn("broken", verdicts.values(), (source, verdicts))

    def test_AClientPrintsTheList(self):
        self.publish_all()

        self.assertEqual(self.example("client").splitlines(), [
            " 1/ 4: type=1, btid=255, port=1, session=1, suffix= 2, name=iPhone 2",
            " 2/ 4: type=2, btid=255, port=4, session=2, suffix= 1, name=Pixel",
            " 3/ 4: type=2, btid=  3, port=2, session=1, suffix= 1, name=" + ANNA,
            " 4/ 4: type=0, btid=  4, port=0, session=0, suffix= 1, name=iPhone"])

    def test_AClientWithAFormatNamesPhonesInItsWay(self):
        self.publish_all()

        self.assertEqual(self.names(self.example("client-with-format")), ["iPhone (2)", "Pixel", ANNA, "iPhone"])

    def test_AClientThatFollowsSeesEachSourceChange(self):
        self.example("publisher-bt")
        with Follower(self.environment) as follower:
            self.assertEqual(follower.next_list(), [])
            self.example("publisher-bt", "3", ANNA)
            self.assertEqual(self.names(follower.await_list(1)), [ANNA])
            self.example("publisher-carplay", "77", "iPhone", "0")
            self.assertEqual(self.names(follower.await_list(2)), ["iPhone", ANNA])
            self.example("publisher-aap", "aap-2", "Pixel", "255", "4")
            self.assertEqual(self.names(follower.await_list(3)), ["iPhone", "Pixel", ANNA])
            self.example("publisher-carplay")
            self.assertEqual(self.names(follower.await_list(2)), ["Pixel", ANNA])


def phones_of(table):
    return [slot for slot in table["slots"] if slot["occupied"]]


class Follower:
    """A running client-that-follows. Whatever it does not print in time is a failure."""

    def __init__(self, environment):
        self.process = subprocess.Popen([OPTIONS.examples / "client-that-follows"], env=environment, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE)
        self.lines = queue.Queue()
        self.reader = threading.Thread(target=self.read)
        self.reader.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        self.reader.join()
        self.process.stdout.close()

    def read(self):
        for line in self.process.stdout:
            self.lines.put(line.decode().rstrip("\n"))

    def next_list(self):
        """The phones' lines of the next list that it prints."""
        heading = self.lines.get(timeout=WATCHDOG)
        return [self.lines.get(timeout=WATCHDOG) for _ in range(int(heading.split(" phones")[0]))]

    def await_list(self, count):
        """The next list of so many phones."""
        while True:
            phones = self.next_list()
            if len(phones) == count:
                return "\n".join(phones)


def main():
    options = argparse.ArgumentParser()
    options.add_argument("--examples", type=pathlib.Path, required=True)
    options.add_argument("--idlctl", type=pathlib.Path, required=True)
    options.add_argument("--preloaded", type=pathlib.Path, help="made of WritesUnderLock.cpp")
    _, rest = options.parse_known_args(namespace=OPTIONS)
    unittest.main(argv=sys.argv[:1] + rest)


main()

#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Whole processes against a model of them, by chance: services that publish, are killed with and without the lock, die
half-way through a record and come again; clients that refresh, are restarted, and are killed in the middle of a refresh.

After every refresh the client's list and the saved file have to be what the model says; whoever is killed, nobody may hang
or die of it, and the saved file is the old one or the new one, whole.

    scripts/private-shm tests/processes/state_machine.py --agents FOLDER [--examples N] [--seed N] [--shrink]

Needs a shared-memory folder of its own. Exits 1 when something was found, after a line that starts with TRUST, and 2
when it could not begin.
"""

import argparse
import functools
import os
import pathlib
import random
import select
import shutil
import subprocess
import sys
import tempfile
import time
import traceback

import hypothesis
from hypothesis import HealthCheck, Phase, settings, strategies
from hypothesis.stateful import RuleBasedStateMachine, rule, run_state_machine_as_test

import model
from model import AAP, BT, CP

WATCHDOG = 30  # seconds, for any answer
SHARED_MEMORY = pathlib.Path("/dev/shm")
SOURCES = {BT: "bt", CP: "cp", AAP: "aap"}
CLIENTS = (0, 1)


class Hang(Exception):
    """An agent has not answered."""


class Crash(Exception):
    """An agent ended that nobody had killed."""


class Agent:
    """A process that answers each line with lines."""

    def __init__(self, program, *arguments, environment=None):
        self.name = " ".join((program.name,) + arguments)
        self.process = subprocess.Popen([str(program), *arguments], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL, env=environment)
        self.said = b""
        self.expect("ok")

    def line(self):
        deadline = time.monotonic() + WATCHDOG
        while b"\n" not in self.said:
            ready, _, _ = select.select([self.process.stdout], [], [], max(0, deadline - time.monotonic()))
            if not ready:
                raise Hang(self.name)
            part = os.read(self.process.stdout.fileno(), 65536)
            if not part:
                raise Crash("%s ended with %s" % (self.name, self.process.wait()))
            self.said += part
        found, self.said = self.said.split(b"\n", 1)
        return found.decode()

    def tell(self, text):
        try:
            self.process.stdin.write(text.encode() + b"\n")
            self.process.stdin.flush()
        except BrokenPipeError:
            raise Crash("%s ended with %s" % (self.name, self.process.wait())) from None

    def expect(self, answer):
        found = self.line()
        assert found == answer, "%s said %s" % (self.name, found)

    def do(self, text):
        self.tell(text)
        self.expect("ok")

    def wait(self):
        try:
            return self.process.wait(WATCHDOG)
        except subprocess.TimeoutExpired:
            raise Hang(self.name + " does not end") from None

    def close(self):
        self.process.stdin.close()
        self.process.stdout.close()

    def kill(self):
        if self.process.poll() is None:
            self.process.kill()
        self.wait()
        try:
            self.close()
        except BrokenPipeError:
            pass  # the last command was not taken any more

    def end(self):
        self.process.stdin.close()
        code = self.wait()
        self.process.stdout.close()
        if code != 0:
            raise Crash("%s ended with %s" % (self.name, code))


NAMES = strategies.sampled_from([b"Phone", b"Phone", b"Phone 2", b"Tab", b"", b"P", b"x" * 79 + b"ab", b"x" * 79 + b"ac",
                                 b"x" * 300])
BTIDS = strategies.sampled_from([1, 2, 3, 1, 2, 0, 254, 255, 255])
IDENTIFIERS = strategies.sampled_from([1, 2, 3, 4, model.USB_ATTACHED + 1, model.USB_ATTACHED + 2, model.USB_ATTACHED, 0])
PHONES = {
    BT: strategies.builds(model.BtPhone, BTIDS, NAMES),
    CP: strategies.builds(model.CpPhone, IDENTIFIERS, NAMES, BTIDS, strategies.integers(0, 1), strategies.integers(0, 255)),
    AAP: strategies.builds(model.AapPhone, strategies.sampled_from([b"a", b"b", b"c", b"", b"i" * 300]), NAMES,
                           strategies.integers(0, 255), BTIDS, strategies.sampled_from([0, 0, 1, 2, 3, -1])),
}
CHANGES = strategies.sampled_from([BT, CP, AAP]).flatmap(
    lambda source: strategies.tuples(strategies.just(source), strategies.integers(0, model.Unit.SLOTS[source] - 1),
                                     PHONES[source]))
SOME_SOURCE = strategies.sampled_from([BT, CP, AAP])
SOME_CLIENT = strategies.sampled_from(CLIENTS)


class Counts:
    """Of all examples together."""
    steps = 0
    examples = 0
    kills = 0
    half = 0
    lists = 0
    forestalled = 0


def step(**drawn):
    """A rule that is counted when it has come to its end."""
    def counting(method):
        @functools.wraps(method)
        def counted(self, *arguments, **values):
            method(self, *arguments, **values)
            Counts.steps += 1
        return rule(**drawn)(counted)
    return counting


class Processes(RuleBasedStateMachine):
    """A unit with its three services and up to two clients, which share the saved file."""

    agents = None  # the folder of the programs

    def __init__(self):
        super().__init__()
        Counts.examples += 1
        for path in SHARED_MEMORY.iterdir():
            path.unlink()
        self.folder = tempfile.mkdtemp(prefix="lm-test-")
        self.environment = dict(os.environ, LM_SAVE_FILE_DIR=self.folder)
        self.unit = model.Unit()
        self.disk = model.Disk()
        self.publishers = {}
        self.clients = {}  # by number: the process, and the model of it

    def teardown(self):
        for agent in list(self.publishers.values()) + [agent for agent, _ in self.clients.values()]:
            agent.kill()
        shutil.rmtree(self.folder)

    def publisher(self, source):
        if source not in self.publishers:
            self.publishers[source] = Agent(self.agents / "publisher_agent", SOURCES[source])
        return self.publishers[source]

    def told(self, source):
        for _, client in self.clients.values():
            client.heard[source] += 1

    # --- The services

    @step(source=SOME_SOURCE)
    def initialise(self, source):
        self.publisher(source).do("initialise")
        self.unit.initialise(source)

    @step(changes=strategies.lists(CHANGES, min_size=1, max_size=12), is_followed=strategies.booleans())
    def put(self, changes, is_followed):
        for source, slot, phone in changes:
            self.publisher(source).do("put %d %s" % (slot, phone.words()))
            self.unit.write(source, slot, phone.image())
            self.told(source)
        if is_followed:
            for number in self.clients:
                for source in sorted({change[0] for change in changes}):
                    self.refresh_one(number, source)

    @step(change=CHANGES)
    def clear(self, change):
        source, slot, _ = change
        self.publisher(source).do("clear %d" % slot)
        self.unit.clear(source, slot)
        self.told(source)

    @step(identifier=IDENTIFIERS)
    def connect(self, identifier):
        self.publisher(CP).do("connect %d" % identifier)
        self.unit.current_phone = identifier
        self.told(CP)

    @step(source=SOME_SOURCE)
    def kill_publisher(self, source):
        self.killed(source)

    @step(source=SOME_SOURCE)
    def kill_publisher_with_the_lock(self, source):
        self.publisher(source).do("hold")
        self.killed(source)

    def killed(self, source):
        self.publisher(source).kill()
        del self.publishers[source]
        Counts.kills += 1

    @step(change=CHANGES)
    def crash_half_way(self, change):
        source, slot, phone = change
        agent = self.publisher(source)
        agent.tell("crash %d %s" % (slot, phone.words()))
        assert agent.wait() == -9
        agent.kill()
        del self.publishers[source]
        self.unit.write(source, slot, phone.image()[:phone.half()])
        Counts.half += 1

    @step(has_bluetooth=strategies.booleans())
    def set_functions(self, has_bluetooth):
        agent = Agent(self.agents / "publisher_agent", "func")
        agent.do("bluetooth %d" % has_bluetooth)
        agent.end()
        self.unit.has_bluetooth = has_bluetooth

    # --- The clients

    def client(self, number):
        if number not in self.clients:
            self.start_client(number, False)
        return self.clients[number]

    def start_client(self, number, number_first):
        agent = Agent(self.agents / "client_agent", environment=self.environment)
        self.clients[number] = agent, model.Client(self.unit, self.disk, number_first)
        if number_first:
            agent.do("number-first")
        agent.do("initialise")

    @step(number=SOME_CLIENT, number_first=strategies.sampled_from([False, False, True]), is_killed=strategies.booleans(),
          sources=strategies.sampled_from([(), (BT, CP, AAP), (BT, CP, AAP), (AAP, CP, BT)]))
    def restart_client(self, number, number_first, is_killed, sources):
        if number in self.clients:
            agent, _ = self.clients.pop(number)
            if is_killed:
                agent.kill()
                Counts.kills += 1
            else:
                agent.end()
        self.start_client(number, number_first)
        for source in sources:
            self.refresh_one(number, source)

    @step(number=SOME_CLIENT, sources=strategies.sampled_from([(BT,), (CP,), (AAP,), (BT, CP, AAP), (BT, AAP), (AAP, CP)]))
    def refresh(self, number, sources):
        for source in sources:
            self.refresh_one(number, source)

    def refresh_one(self, number, source):
        agent, client = self.client(number)
        agent.do("refresh %d" % source)
        is_there = client.refresh(source)
        agent.tell("list")
        answer = agent.line()
        if not is_there:
            assert answer == "none", answer
            return
        assert answer.startswith("list "), answer
        seen = [self.row(agent.line()) for _ in range(int(answer.split()[1]))]
        expected = client.number(client.ordered_as(seen))
        assert seen == expected, "the list is\n%s\nnot\n%s" % ("\n".join(map(str, seen)), "\n".join(map(str, expected)))
        assert self.saved() == self.disk.file, "the saved file differs"
        Counts.lists += 1

    @staticmethod
    def row(line):
        words = line.split(" ")
        texts = {at: bytes.fromhex(words[at][1:]) for at in (1, 6, 8, 9, 10)}
        numbers = {at: int(words[at]) for at in (0, 2, 3, 4, 5, 7)}
        return model.Device(*[texts.get(at, numbers.get(at)) for at in range(11)])

    def saved(self):
        path = pathlib.Path(self.folder, "IDLSuffix.ini")
        return path.read_bytes() if path.exists() else None

    @staticmethod
    def phones_in(image):
        """Whom a saved file is about, in no order."""
        assert image is not None and len(image) == model.FILE_SIZE, "no whole file was saved"
        records = [model.record(image, index) for index in range(model.MAX_SAVED)]
        return sorted((btid, name) for in_use, btid, name, _ in records if in_use)

    @step(number=SOME_CLIENT, source=SOME_SOURCE, delay=strategies.sampled_from([0, 0.0002, 0.001, 0.003]))
    def kill_client_in_a_refresh(self, number, source, delay):
        agent, client = self.client(number)
        del self.clients[number]
        agent.tell("refresh %d" % source)
        time.sleep(delay)  # what is hit by that does not matter
        agent.kill()
        Counts.kills += 1
        before = self.disk.file
        if not client.refresh(source):
            assert self.saved() == before, "a client that waits has saved"
            return
        rows = client.merged()
        client.number(rows)
        found = self.saved()
        keys = [(row.btid, row.port if row.btid == model.NOT_PAIRED else 0) for row in rows]
        if len(set(keys)) == len(keys):  # of equal keys nobody knows the order in which they were numbered
            assert found in (before, self.disk.file), "the saved file is neither the old one nor the new one"
        else:
            assert found == before or self.phones_in(found) == self.phones_in(client.image), (
                "the saved file is neither the old one nor one of the new one's phones")
        Counts.forestalled += 1 if found == before and self.disk.file != before else 0
        self.disk.file = found

    @step(number=SOME_CLIENT)
    def listen(self, number):
        agent, client = self.client(number)
        for source, count in client.heard.items():
            agent.tell("heard %d %d" % (source, count))
            answer = agent.line()
            assert answer == "heard %d" % count, "%s, not %d of %s" % (answer, count, SOURCES[source])


def explore(arguments, seed):
    """What was found: its kind, and the text."""
    phases = [Phase.generate] + ([Phase.shrink] if arguments.shrink else [])
    chosen = settings(max_examples=arguments.examples, stateful_step_count=30, deadline=None, database=None, phases=phases,
                      derandomize=False, print_blob=False, report_multiple_bugs=False,
                      suppress_health_check=list(HealthCheck))
    try:
        run_state_machine_as_test(hypothesis.seed(seed)(Processes), settings=chosen)
    except Exception as error:  # pylint: disable=broad-except
        traceback.print_exc()
        kind = {Hang: "hangs", Crash: "crashes"}.get(type(error), "violations")
        return {kind: 1}
    return {}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--agents", type=pathlib.Path, required=True)
    parser.add_argument("--examples", "--count", type=int, default=15)
    parser.add_argument("--seed", type=int, default=random.SystemRandom().getrandbits(32))
    parser.add_argument("--shrink", action="store_true", help="look for the shortest failing example; takes minutes")
    arguments = parser.parse_args()
    if any(SHARED_MEMORY.iterdir()):
        print("processes: the shared-memory folder is not empty; run this through scripts/private-shm", file=sys.stderr)
        return 2
    for program in ("publisher_agent", "client_agent"):
        if not os.access(arguments.agents / program, os.X_OK):
            print("processes: there is no %s" % (arguments.agents / program), file=sys.stderr)
            return 2
    print("processes: seed %d" % arguments.seed, file=sys.stderr, flush=True)
    Processes.agents = arguments.agents.resolve()
    started = time.monotonic()
    found = explore(arguments, arguments.seed)
    note = "%d examples, %d lists compared, %d killed, %d half-way through a record, %d saves forestalled" % (
        Counts.examples, Counts.lists, Counts.kills, Counts.half, Counts.forestalled)
    print("\t".join(["TRUST", "processes", str(Counts.steps), "steps of processes", str(found.get("violations", 0)),
                     str(found.get("hangs", 0)), str(found.get("crashes", 0)), "%.1f" % (time.monotonic() - started), note]),
          flush=True)
    return 1 if found or Counts.steps == 0 else 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""read_tables_test.py READER IDLCTL...: the reader of the tables gives what idlctl gives, in many states of a unit.

Runs in a shared-memory folder of its own. The states are those of healthy services, of hostile names, of garbage from a
fixed seed, and of tables that are cut at many places.
"""

import importlib.util
import json
import os
import random
import subprocess
import sys
import tempfile

READER = [sys.executable, sys.argv[1]]
SPECIFICATION = importlib.util.spec_from_file_location("read_tables", sys.argv[1])
MODULE = importlib.util.module_from_spec(SPECIFICATION)
SPECIFICATION.loader.exec_module(MODULE)
IDLCTL = sys.argv[2:]
SEGMENTS = {"bt": ("BtPairedDeviceList", 1124), "cp": ("LmSCarplayResource", 13736), "aap": ("AapDeviceList", 6292),
            "funcinfo": ("FuncInfo", 2108)}
NAMES = ["iPhone", "iPhone", "T\\xc3\\xa9l\\xc3\\xa9phone", "\\xff\\xfe \\x1b[2J", "\\xe6\\x90", "\\xed\\xa0\\x80", "\\xf0\\x9f\\x98\\x80",
         "x" * 300, ""]

compared = 0


def output_of(command, codes):
    done = subprocess.run(command, capture_output=True, timeout=60, check=False)
    assert done.returncode in codes, f"{command}: {done.returncode}: {done.stderr}"
    return json.loads(done.stdout)


def compare(what, path=None):
    global compared
    # As a program where it reads this machine's segments; else without one, which takes less time.
    theirs = (output_of(READER + [what], [0]) if path is None
              else MODULE.read_saved(path) if what == "saved" else MODULE.read_table(what, path))
    if what == "saved":
        ours = output_of(IDLCTL + ["suffixes", "show", "--json", "--save-dir", os.path.dirname(path)], [0])
    else:
        ours = output_of(IDLCTL + ["dump", "--json"] + (["--as", what, path] if path else [what]), [0, 4])
        del ours["readWithoutLock"]
    assert ours == theirs, f"{what} {path}\nidlctl:\n{json.dumps(ours, indent=1)}\nreader:\n{json.dumps(theirs, indent=1)}"
    compared += 1
    return ours


def publish(what, phones, *more):
    arguments = [argument for phone in phones for argument in ("--phone", phone)]
    subprocess.run(IDLCTL + ["publish", what, "--timeout", "1ms", *arguments, *more], check=True, timeout=60,
                   stderr=subprocess.DEVNULL)


def main():
    publish("bt", [f'id={k + 1} name="{name}" address="00:00:5E:00:53:0{k}" info=4294967295' for k, name in enumerate(NAMES)])
    publish("cp", [f'identifier={k + (1 << 63)} name="{name}" btid={k} session={k}' for k, name in enumerate(NAMES)],
            "--current", str(1 << 63))
    publish("aap", [f'id="{name}x" name="{name}" btid=255 port={-k}' for k, name in enumerate(NAMES)])
    for what in ("bt", "cp", "aap"):
        table = compare(what)
        assert any(slot["occupied"] for slot in table["slots"]) and not all(slot["occupied"] for slot in table["slots"])

    chance = random.Random(7)
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "table")
        for what, (segment, size) in SEGMENTS.items():
            whole = b""
            if what != "funcinfo":
                with open("/dev/shm/" + segment, "rb") as file:
                    whole = file.read()
            for bytes_ in [chance.randbytes(size), bytes(size), b"\xff" * size, chance.randbytes(size + 5), whole]:
                for length in {len(bytes_), 0, 3, 4, chance.randrange(len(bytes_) + 1), chance.randrange(len(bytes_) + 1)}:
                    with open(path, "wb") as file:
                        file.write(bytes_[:length])
                    compare(what, path)

        saved = os.path.join(folder, "IDLSuffix.ini")
        compare("saved", saved)
        record = b"\1\3" + b"iPhone".ljust(260, b"\0") + b"\2"
        no_end = b"\1\4" + b"x" * 260 + b"\1"
        other = b"\7\5" + b"\xff\xfe".ljust(260, b"\0") + b"\0"
        for bytes_ in [b"", record, record + no_end + other, record + bytes(263) + other, chance.randbytes(2630),
                       chance.randbytes(100), (record + no_end)[:300], bytes(2630), (record * 10), (record * 11)]:
            with open(saved, "wb") as file:
                file.write(bytes_)
            compare("saved", saved)

        # What would be noticed: one byte that is another.
        with open(path, "wb") as file:
            file.write(whole := chance.randbytes(1124))
        ours = compare("bt", path)
        with open(path, "wb") as file:
            file.write(bytes([whole[0] ^ 1]) + whole[1:])
        assert output_of(READER + ["bt", "--file", path], [0]) != ours
    print(f"{compared} comparisons")


main()

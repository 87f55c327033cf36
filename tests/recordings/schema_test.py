#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""schema_test.py SOURCE_FOLDER IDLCTL...: what `record` and `comply --json` write is what the schemas say, to the last key.

The recordings are those of the gallery, and one made here of a unit that is well and then damaged.
"""

import copy
import glob
import json
import os
import subprocess
import sys

import jsonschema

SOURCE = sys.argv[1]
IDLCTL = sys.argv[2:]


def validator(name):
    with open(os.path.join(SOURCE, "docs/schemas", name), encoding="ascii") as file:
        schema = json.load(file)
    jsonschema.Draft202012Validator.check_schema(schema)
    return jsonschema.Draft202012Validator(schema)


def demand(schema, text):
    found = json.loads(text)
    schema.validate(found)
    assert json.dumps(found, sort_keys=True) == json.dumps(found), "the keys are not sorted"
    assert text.isascii() and "\x1b" not in text
    return found


def demand_refusal(schema, found, path, value):
    """A control: the schema is one that something can fail."""
    found = copy.deepcopy(found)
    part = found
    for key in path[:-1]:
        part = part[key]
    part[path[-1]] = value
    assert not schema.is_valid(found), f"{path} may be {value!r}"


def run(*arguments, codes=(0,)):
    done = subprocess.run(IDLCTL + list(arguments), capture_output=True, text=True, timeout=60, check=False)
    assert done.returncode in codes, f"{arguments}: {done.returncode}: {done.stderr}"
    return done.stdout


def main():
    lines = 0
    schema = validator("recording.schema.json")
    texts = [run("record", "--timeout", "1ms")]
    run("publish", "bt", "--timeout", "1ms", "--phone", r'id=3 name="\xff\u{202e}iPhone"')
    run("publish", "aap", "--timeout", "1ms", "--phone", r'id="a" name="\x1b[2J" btid=3 port=-1')
    run("publish", "cp", "--timeout", "1ms", "--phone", f'identifier={(1 << 64) - 1} name="x" btid=3', "--current", "7")
    texts.append(run("record", "--timeout", "1ms"))
    os.truncate("/dev/shm/BtPairedDeviceList", 300)
    os.remove("/dev/shm/LmSCarplayResource")
    os.mkdir("/dev/shm/LmSCarplayResource")
    with open("/dev/shm/AapDeviceList", "r+b") as file:
        file.write(b"\xff" * 6292)
    texts.append(run("record", "--timeout", "1ms"))
    texts.append(run("record", "--timeout", "1ms", "--pseudonymise"))
    for path in glob.glob(os.path.join(SOURCE, "examples/recordings/*.jsonl")):
        with open(path, encoding="ascii") as file:
            texts.append(file.read())
    for text in texts:
        for number, line in enumerate(text.splitlines()):
            found = demand(schema, line)
            lines += 1
            assert found["line"] == number + 1
            if number > 5:
                continue  # of these, enough have been spoilt
            demand_refusal(schema, found, ["colour"], "red")
            demand_refusal(schema, found, ["schema"], 2)
            demand_refusal(schema, found, ["line"], 0)
            if found["event"] == "table":
                demand_refusal(schema, found, ["pass"], 1)
                if "list" in found:
                    demand_refusal(schema, found, ["pass"], False)
                for at, row in enumerate(found.get("list", {}).get("rows", [])):
                    demand_refusal(schema, found, ["list", "rows", at, "cpDeviceId"], 7)
                    demand_refusal(schema, found, ["list", "rows", at, "btid"], row["btid"] + 256)

    schema = validator("comply.schema.json")
    for source in ("bt", "aap"):
        found = demand(schema, run("comply", source, "--for", "20ms", "--json", codes=(0, 1)).replace("\n", ""))
        demand_refusal(schema, found, ["rules", 0, "verdict"], "perhaps")
        demand_refusal(schema, found, ["rules", 0, "colour"], "red")
    print(f"{lines} lines of {len(texts)} recordings")


main()

#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Reads the tables of a unit with nothing but their documented offsets: docs/writing-a-service.md, "The tables".

    read_tables.py bt                        # a segment in /dev/shm
    read_tables.py aap --file table.bin      # its bytes in a file
    read_tables.py saved --file IDLSuffix.ini

Prints one JSON object, as `idlctl dump --json` and `idlctl suffixes show --json` do. It takes no lock: whoever needs more
than a look has to hold the segment's.
"""

import argparse
import json
import mmap
import struct
import sys

# The word, the segment, and of its slots where they begin, how many there are and what a slot is.
# B, H, I, Q are unsigned little-endian integers of 1, 2, 4 and 8 bytes, i a signed one of 4, x a byte that nobody reads.
TABLES = {
    "bt": ("BtPairedDeviceList", 1124, 4, 10, "<I B 81s 18s I B B 2x",
           ("header", "id", "name", "address", "info", "flag1", "flag2")),
    "cp": ("LmSCarplayResource", 13736, 1800, 11, "<Q 256s B B B 2x B 26x",
           ("identifier", "name", "btid", "inSession", "session", "valid")),
    "aap": ("AapDeviceList", 6292, 4, 12, "<I B 257s 257s B i",
            ("header", "session", "name", "id", "btid", "port")),
    "funcinfo": ("FuncInfo", 2108, 4, 0, "", ()),
}

SAVED_RECORD = struct.Struct("<B B 260s B")
SAVED_RECORDS = 10


def bytes_of(path, size):
    """The first bytes of a file or segment, at most `size`, and how long it is."""
    with open(path, "rb") as file:
        length = file.seek(0, 2)
        if length == 0:
            return b"", 0
        # Whoever cuts the segment short now kills this process, and no other.
        with mmap.mmap(file.fileno(), min(length, size), access=mmap.ACCESS_READ) as view:
            return bytes(view), length


def put_text(fields, key, field):
    """A text ends at its first NUL, or with its field. What is no UTF-8 is shown as U+FFFD, with all its bytes beside."""
    text = field.split(b"\0", 1)[0]
    shown = text.decode("utf-8", "surrogateescape")
    fields[key] = "".join("\ufffd" if "\udc80" <= character <= "\udcff" else character for character in shown)
    if fields[key] != shown:
        fields[key + "Hex"] = text.hex()
    return len(text) < len(field)


def is_occupied(word, slot):
    if word == "bt":
        return slot["id"] != 255
    if word == "cp":
        return slot["valid"] != 0 and slot["identifier"] != 0
    return slot["id"][0] != 0


def read_table(word, path):
    segment, size, first, count, layout, names = TABLES[word]
    data, length = bytes_of(path or "/dev/shm/" + segment, size)
    table = {"schema": 1, "source": word, "segment": segment, "size": str(length), "slots": []}
    if len(data) >= 4:
        table["dataSize"] = struct.unpack_from("<I", data)[0]
    layout = struct.Struct(layout)
    for number in range(count):
        at = first + number * layout.size
        if at + layout.size > len(data):
            break
        values = dict(zip(names, layout.unpack_from(data, at)))
        slot = {"slot": number, "occupied": is_occupied(word, values)}
        for name, value in values.items():
            if isinstance(value, bytes):
                if not put_text(slot, name, value):
                    slot[name + "HasNoEnd"] = True
            else:
                slot[name] = str(value) if name == "identifier" else value  # 64 bits
        table["slots"].append(slot)
    # A field that the segment is too short for counts as 0.
    whole = data.ljust(size, b"\0") if len(data) < size else data
    if word == "cp":
        table["currentPhone"] = str(struct.unpack_from("<Q", data, 1072)[0] if len(data) >= 1080 else 0)
        table["initialised"] = whole[13732]
    if word == "funcinfo":
        table["btFunctionFlag"] = whole[512]
    return table


def read_saved(path):
    saved = {"schema": 1, "path": path, "present": True, "entries": []}
    try:
        data, _ = bytes_of(path, SAVED_RECORD.size * SAVED_RECORDS)
    except FileNotFoundError:
        data = b""
        saved["present"] = False
    data = data.ljust(SAVED_RECORD.size * SAVED_RECORDS, b"\0")
    for in_use, btid, name, suffix in SAVED_RECORD.iter_unpack(data):
        if in_use == 0:
            break  # nor is any behind it
        text = name.split(b"\0", 1)[0]
        entry = {"btid": btid, "suffix": suffix}
        put_text(entry, "name", text + b"\0")
        put_text(entry, "displayed", text + (b" %d" % suffix if suffix >= 2 else b"") + b"\0")
        saved["entries"].append(entry)
    return saved


def main():
    parser = argparse.ArgumentParser(description="decodes the tables of a unit")
    parser.add_argument("what", choices=[*TABLES, "saved"])
    parser.add_argument("--file", help="the bytes; without it the segment of this machine")
    arguments = parser.parse_args()
    if arguments.what == "saved" and not arguments.file:
        parser.error("saved needs --file")
    try:
        found = (read_saved(arguments.file) if arguments.what == "saved"
                 else read_table(arguments.what, arguments.file))
    except OSError as error:
        sys.exit(f"read_tables: {error}")
    print(json.dumps(found, indent=2, sort_keys=True))


if __name__ == "__main__":
    main()

# SPDX-License-Identifier: Apache-2.0
"""What a unit with a few processes has to show, in Python: the tables byte by byte, and clients that read them.

It knows the formats from docs/writing-a-service.md, and nothing of the library's code.
"""

import dataclasses
import struct

BT, CP, AAP = 0, 1, 2
NOT_PAIRED = 255
USB_ATTACHED = 1 << 41
MAX_SAVED = 10
RECORD_SIZE = 263
FILE_SIZE = MAX_SAVED * RECORD_SIZE


def field(text, size):
    """A text in a field: cut, and zeros behind."""
    return text[:size - 1].ljust(size, b"\0")


def text_in(image):
    """The text that a field holds."""
    return bytes(image).split(b"\0", 1)[0]


@dataclasses.dataclass(frozen=True)
class BtPhone:
    """A phone in the Bluetooth table."""
    id: int
    name: bytes

    def image(self):
        return struct.pack("<IB", 0, self.id) + field(self.name, 81) + field(b"", 18) + struct.pack("<IBBBB", 0, 1, 0, 0, 0)

    def words(self):
        return "%d .%s" % (self.id, self.name.hex())

    def half(self):
        """How many bytes a service has written that dies half-way through the name."""
        return 5 + len(text_in(field(self.name, 81))) // 2


@dataclasses.dataclass(frozen=True)
class CpPhone:
    """A phone in CarPlay's table."""
    identifier: int
    name: bytes
    btid: int
    in_session: int
    session: int

    def image(self):
        return (struct.pack("<Q", self.identifier) + field(self.name, 256)
                + bytes([self.btid, self.in_session, self.session, 0, 0, 1]) + bytes(26))

    def words(self):
        return "%d .%s %d %d %d" % (self.identifier, self.name.hex(), self.btid, self.in_session, self.session)

    def half(self):
        return 8 + len(text_in(field(self.name, 256))) // 2


@dataclasses.dataclass(frozen=True)
class AapPhone:
    """A phone in Android Auto's table."""
    id: bytes
    name: bytes
    session: int
    btid: int
    port: int

    def image(self):
        return (struct.pack("<IB", 0, self.session) + field(self.name, 257) + field(self.id, 257)
                + struct.pack("<Bi", self.btid, self.port))

    def words(self):
        return ".%s .%s %d %d %d" % (self.id.hex(), self.name.hex(), self.session, self.btid, self.port)

    def half(self):
        return 262 + len(text_in(field(self.id, 257))) // 2


class Unit:
    """The shared memory of a unit. All of it is zero until somebody writes."""

    SLOTS = {BT: 10, CP: 11, AAP: 12}
    SIZES = {BT: 112, CP: 296, AAP: 524}

    def __init__(self):
        self.tables = {source: bytearray(self.SLOTS[source] * self.SIZES[source]) for source in (BT, CP, AAP)}
        self.current_phone = 0
        self.has_cp_defaults = False
        self.has_bluetooth = False

    def initialise(self, source):
        """A service writes its empty table."""
        if source == BT:
            free = bytearray(112)
            free[4] = NOT_PAIRED
            self.tables[BT][:] = free * 10
        elif source == AAP:
            free = bytearray(524)
            free[519] = NOT_PAIRED
            self.tables[AAP][:] = free * 12
        else:
            self.write_cp_defaults()

    def write_cp_defaults(self):
        self.tables[CP][:] = bytes(len(self.tables[CP]))
        self.current_phone = 0
        self.has_cp_defaults = True

    def write(self, source, slot, image):
        start = slot * self.SIZES[source]
        self.tables[source][start:start + len(image)] = image

    def clear(self, source, slot):
        free = bytearray(self.SIZES[source])
        if source == BT:
            free[4] = NOT_PAIRED
            free[108] = 1
        elif source == AAP:
            free[519] = NOT_PAIRED
        self.write(source, slot, free)

    def slots(self, source):
        size = self.SIZES[source]
        return [bytes(self.tables[source][start:start + size]) for start in range(0, len(self.tables[source]), size)]


@dataclasses.dataclass
class Device:
    """A row of the list, as clients tell it."""
    type: int
    name: bytes
    btid: int
    port: int = 0
    session: int = 0
    cp_id: int = 0
    aap_id: bytes = b""
    suffix: int = 0
    bt_name: bytes = b""
    cp_name: bytes = b""
    aap_name: bytes = b""

    def unnamed(self):
        """All but what the numbering makes of it."""
        return (self.type, self.btid, self.port, self.session, self.cp_id, self.aap_id, self.bt_name, self.cp_name,
                self.aap_name)


def read_bt(unit):
    rows = []
    for slot in unit.slots(BT):
        if slot[4] != NOT_PAIRED:
            name = text_in(slot[5:86])
            rows.append(Device(BT, name, slot[4], bt_name=name))
    return rows


def read_cp(unit):
    rows = []
    for slot in unit.slots(CP):
        identifier = struct.unpack_from("<Q", slot)[0]
        if slot[269] == 0 or identifier == 0:
            continue
        name = text_in(slot[8:264])
        is_attached = identifier == unit.current_phone or unit.current_phone & USB_ATTACHED
        rows.append(Device(CP, name, slot[264] or NOT_PAIRED, 1 if is_attached else 0, 1 if slot[265] else slot[266],
                           cp_id=identifier, cp_name=name))
    return rows


def read_aap(unit):
    rows = []
    for slot in unit.slots(AAP):
        identifier = text_in(slot[262:519])
        if identifier:
            name = text_in(slot[5:262])
            rows.append(Device(AAP, name, slot[519], struct.unpack_from("<i", slot, 520)[0], slot[4], aap_id=identifier,
                               aap_name=name))
    return rows


class Disk:
    """The saved file, which all clients share; None: there is none."""

    def __init__(self):
        self.file = None


def record(image, index):
    part = image[index * RECORD_SIZE:(index + 1) * RECORD_SIZE]
    return part[0], part[1], text_in(part[2:262]), part[262]


class Client:
    """A client from its start to its end."""

    READERS = {BT: read_bt, CP: read_cp, AAP: read_aap}

    def __init__(self, unit, disk, number_first):
        self.unit = unit
        self.disk = disk
        self.number_first = number_first
        self.is_started = False
        self.read = {BT: [], CP: [], AAP: []}
        self.table = []  # (name, btid, port, number) of the last list
        self.image = bytes(FILE_SIZE)
        self.heard = {BT: 0, CP: 0, AAP: 0}
        if not unit.has_cp_defaults:
            unit.write_cp_defaults()
        self.awaits_bluetooth = unit.has_bluetooth

    def shown(self, name, number):
        if self.number_first:
            return b"%d. %s" % (number, name)
        return name if number in (0, 1) else b"%s %d" % (name, number)

    def load(self):
        if self.disk.file is not None:
            self.image = self.disk.file
        for index in range(MAX_SAVED):
            in_use, btid, name, number = record(self.image, index)
            if in_use == 0:
                break
            self.table.append((name, btid, 0, number))
        if len({self.shown(entry[0], entry[3]) for entry in self.table}) != len(self.table):
            self.table = []

    def refresh(self, source):
        """Takes over a table. True when there is a list to number now."""
        self.read[source] = [dataclasses.replace(row) for row in self.READERS[source](self.unit)]
        if source == BT:
            self.awaits_bluetooth = False
        if not self.is_started and not self.awaits_bluetooth:
            self.is_started = True
            self.load()
        return self.is_started

    def merged(self):
        """The list without numbers, in one of the orders that it may have."""
        paired = [dataclasses.replace(row) for row in self.read[BT]]
        usb, unknown = [], []
        for source in (CP, AAP):
            for row in self.read[source]:
                if row.btid == NOT_PAIRED:
                    if row.port > 0:
                        usb.append(dataclasses.replace(row))
                    continue
                match = next((candidate for candidate in paired if candidate.btid == row.btid), None)
                if match is None:
                    if row.port != 0:
                        unknown.append(dataclasses.replace(row, btid=NOT_PAIRED))
                    continue
                for name in ("type", "name", "btid", "port", "session", "cp_id", "aap_id"):
                    setattr(match, name, getattr(row, name))
                if source == CP:
                    match.cp_name = row.cp_name
                else:
                    match.aap_name = row.aap_name
        return sorted(usb + unknown, key=lambda row: row.port) + sorted(paired, key=lambda row: row.btid)

    def ordered_as(self, seen):
        """The list without numbers in the order seen, as far as that is one that it may have: equal keys in any order."""
        rows = self.merged()
        for index, other in enumerate(seen[:len(rows)]):
            def is_placed_so(at):
                row = rows[at]
                here = rows[index]
                same_part = (row.btid == NOT_PAIRED) == (here.btid == NOT_PAIRED)
                same_key = row.port == here.port if row.btid == NOT_PAIRED else row.btid == here.btid
                return row.unnamed() == other.unnamed() and same_part and same_key
            found = next((at for at in range(index, len(rows)) if is_placed_so(at)), None)
            if found is not None:
                rows.insert(index, rows.pop(found))
        return rows

    def number(self, rows):
        """Numbers the rows, which are in their final order, and says what the saved file is then."""
        table = [[row.name, row.btid, row.port, 0] for row in rows]
        for key in (1, 2):
            for old in self.table:
                if old[key] == (NOT_PAIRED if key == 1 else 0):
                    continue
                first = next((entry for entry in table if entry[key] == old[key]), None)
                if first is not None and first[0] == old[0]:
                    first[3] = old[3]
        for entry in table:
            if entry[3] == 0:
                taken = {self.shown(other[0], other[3]) for other in table if other[3] != 0}
                entry[3] = next((k for k in range(1, len(table) + 1) if self.shown(entry[0], k) not in taken), 0)
        self.table = [tuple(entry) for entry in table]
        for row, entry in zip(rows, table):
            row.suffix = entry[3]
            row.name = self.shown(entry[0], entry[3])
        self.save()
        return rows

    def save(self):
        paired = [entry for entry in self.table if entry[1] != NOT_PAIRED]
        if len(paired) > MAX_SAVED:
            return
        image = b"".join(bytes([1, btid]) + field(name, 260) + bytes([number]) for name, btid, _, number in paired)
        image = image.ljust(FILE_SIZE, b"\0")
        if [record(image, i) for i in range(MAX_SAVED)] != [record(self.image, i) for i in range(MAX_SAVED)]:
            self.image = image
            self.disk.file = image

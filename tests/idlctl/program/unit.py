# SPDX-License-Identifier: Apache-2.0
"""The built idlctl, and units for it to look at: tables, locks and saved tables byte by byte, with offsets of their own.

Everything here is for a shared-memory folder of one's own (scripts/private-shm).
"""

import contextlib
import fcntl
import json
import os
import pathlib
import shutil
import socket
import struct
import subprocess
import tempfile

WATCHDOG = 60  # seconds, for any run
SHARED_MEMORY = pathlib.Path("/dev/shm")
SEGMENTS = {"bt": "BtPairedDeviceList", "cp": "LmSCarplayResource", "aap": "AapDeviceList", "funcinfo": "FuncInfo"}
SIZES = {"bt": 1124, "cp": 13736, "aap": 6292, "funcinfo": 2108}
SIZE_WORDS = {"bt": 1120, "cp": 13728, "aap": 6288, "funcinfo": 2104}
SAVED_TABLE = "IDLSuffix.ini"
SAVED_RECORD = 263
SAVED_SIZE = 2630
LOCK_SIZE = 4096
NOBODY = 65534

# What each command may end with. The test of exit codes holds this against the documentation and against each --help.
EXIT_CODES = {
    "list": {0, 2, 3},
    "watch": {0, 2, 124},
    "wait": {0, 1, 2, 124},
    "dump": {0, 1, 2, 3, 4},
    "publish": {0, 1, 2, 3},
    "run": {0, 1, 2, 3},
    "record": {0, 2, 3, 4},
    "replay": {0, 1, 2, 3, 4},
    "comply": {0, 1, 2, 3},
    "suffixes show": {0, 2, 3},
    "suffixes check": {0, 1, 2, 3, 4},
    "suffixes forget": {0, 1, 2, 3},
    "doctor": {0, 1, 2},
    "exec": {2, 3},  # and its program's
    "completion": {0, 2},
}


def command_of(arguments):
    """The command that arguments name, as EXIT_CODES has it."""
    return " ".join(arguments[:2]) if arguments[0] == "suffixes" else arguments[0]


class Idlctl:
    """The program, and the folder of saved numbers that it is to use."""

    def __init__(self, program, save_folder):
        self.program = str(program)
        self.save_folder = pathlib.Path(save_folder)

    def environment(self, **more):
        environment = {name: value for name, value in os.environ.items() if name not in ("NO_COLOR", "TERM")}
        return dict(environment, LM_SAVE_FILE_DIR=str(self.save_folder), **more)

    def run(self, *arguments, user=None, timeout=WATCHDOG, environment=None, **more):
        """Runs it to its end. The result has returncode, stdout and stderr, both as bytes."""
        if user is not None:
            more.update(user=user, group=user, extra_groups=[])
        return subprocess.run([self.program, *arguments], env=self.environment(**(environment or {})), stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=timeout, check=False, **more)

    def start(self, *arguments, **more):
        """Starts it; its output is read by whoever asked."""
        more = dict(dict(stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE), **more)
        return subprocess.Popen([self.program, *arguments], env=self.environment(), bufsize=0, **more)

    def json(self, *arguments):
        return json.loads(self.run(*arguments, "--json").stdout)

    def publish(self, source, *arguments):
        """Lets a stand-in write its table; the table stays."""
        done = self.run("publish", source, *arguments, "--timeout", "0ms")
        assert done.returncode == 0, done.stderr

    @contextlib.contextmanager
    def for_nobody(self):
        """The same program where every user can run it; None where this process cannot become another user."""
        folder = pathlib.Path(tempfile.mkdtemp(prefix="lm-idlctl-"))
        try:
            folder.chmod(0o755)
            copy = folder / "idlctl"
            shutil.copyfile(self.program, copy)
            copy.chmod(0o755)
            other = Idlctl(copy, self.save_folder)
            try:
                ran = other.run("--help", user=NOBODY).returncode == 0
            except (OSError, subprocess.SubprocessError):
                ran = False
            yield other if ran else None
        finally:
            shutil.rmtree(folder)


def table_path(source):
    return SHARED_MEMORY / SEGMENTS[source]


def lock_path(source):
    return SHARED_MEMORY / ("LmLock." + SEGMENTS[source])


def remove(path):
    if path.is_dir() and not path.is_symlink():
        shutil.rmtree(path)
    else:
        with contextlib.suppress(FileNotFoundError):
            path.unlink()


def clear(save_folder):
    """A machine without anything."""
    for path in list(SHARED_MEMORY.iterdir()) + list(pathlib.Path(save_folder).iterdir()):
        if path != pathlib.Path(save_folder):
            remove(path)


def text(bytes_, size):
    return bytes_[:size].ljust(size, b"\0")


def bt_slot(id_=255, name=b"", address=b"", info=0, flag1=1, flag2=0, header=0):
    return struct.pack("<IB81s18sIBB2x", header, id_, text(name, 81), text(address, 18), info, flag1, flag2)


def aap_slot(id_=b"", name=b"", session=0, btid=255, port=0, header=0):
    return struct.pack("<IB257s257sBi", header, session, text(name, 257), text(id_, 257), btid, port)


def cp_slot(identifier=0, name=b"", btid=0, in_session=0, session=0, valid=1):
    return struct.pack("<Q256sBBB2xB26x", identifier, text(name, 256), btid, in_session, session, valid)


def bt_table(*slots):
    return struct.pack("<I", SIZE_WORDS["bt"]) + b"".join(list(slots) + [bt_slot()] * (10 - len(slots)))


def aap_table(*slots):
    return struct.pack("<I", SIZE_WORDS["aap"]) + b"".join(list(slots) + [aap_slot()] * (12 - len(slots)))


def cp_table(*slots, current=0, initialised=1):
    table = bytearray(SIZES["cp"])
    struct.pack_into("<I", table, 0, SIZE_WORDS["cp"])
    struct.pack_into("<Q", table, 1072, current)
    for k, slot in enumerate(slots):
        table[1800 + 296 * k:1800 + 296 * (k + 1)] = slot
    table[13732] = initialised
    return bytes(table)


def func_info(flag):
    table = bytearray(SIZES["funcinfo"])
    struct.pack_into("<I", table, 0, SIZE_WORDS["funcinfo"])
    table[512] = flag
    return bytes(table)


def saved_record(btid=0, name=b"", suffix=0, in_use=1):
    return struct.pack("<BB260sB", in_use, btid, text(name, 260), suffix)


def saved_table(*records):
    return b"".join(records).ljust(SAVED_SIZE, b"\0")


def held_by(slot):
    """The word of a lock that is held by whoever has that slot."""
    return slot << 24 | (slot * 0x4D & 0xFF) << 16 | (slot * 0xB5 & 0xFF) << 8 | (slot * 0xC7 & 0xFF)


def lock_page(word=0, version=1, holder=0):
    """An intact lock of that word."""
    head = struct.pack("<4sII", b"LmLk", version, LOCK_SIZE)
    checksum = 0x811C9DC5
    for byte in head:
        checksum = (checksum ^ byte) * 0x01000193 & 0xFFFFFFFF
    page = bytearray(LOCK_SIZE)
    page[0:24] = head + struct.pack("<III", checksum, word, ~checksum & 0xFFFFFFFF)
    slot = word >> 24 & 0x7F
    struct.pack_into("<I", page, 64 + 4 * slot, holder)
    return bytes(page)


@contextlib.contextmanager
def living_slot(path, slot):
    """Has a slot of the lock's file, as a process that uses it does."""
    descriptor = os.open(path, os.O_RDWR)
    try:
        fcntl.fcntl(descriptor, fcntl.F_OFD_SETLK, struct.pack("hhqqi4x", fcntl.F_WRLCK, os.SEEK_SET, slot, 1, 0))
        yield
    finally:
        os.close(descriptor)


def make_socket(path):
    """Something in a table's place that cannot even be opened."""
    with socket.socket(socket.AF_UNIX) as made:
        made.bind(str(path))

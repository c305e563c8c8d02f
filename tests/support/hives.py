"""Registry hives made by hivex, and what hivex reads in them."""

import base64
import ctypes
import random
import struct
import subprocess
import tempfile
import xml.etree.ElementTree as ET
from datetime import datetime, timezone
from pathlib import Path

INSTALLED = ["Microsoft", "Windows NT", "CurrentVersion", "AppCompatFlags", "InstalledSDB"]
MOMENT = 132_000_000_000_000_000  # FILETIME ticks; what hivex makes takes the time of its parent
SZ, EXPAND_SZ, BINARY, DWORD, QWORD = 1, 2, 3, 4, 11


def sealed(base):
    """The base block of a hive: its fields, padded, and their checksum."""
    base, checksum = base[:508].ljust(508, b"\0"), 0
    for word, in struct.iter_unpack("<I", base):
        checksum ^= word
    return (base + struct.pack("<I", checksum)).ljust(4096, b"\0")


def empty_hive():
    """A hive with a root key and nothing else, for hivex to add to."""
    def cell(contents):
        size = (len(contents) + 4 + 7) // 8 * 8
        return struct.pack("<i", -size) + contents.ljust(size - 4, b"\0")
    none, head, bin_size = 0xFFFFFFFF, 32, 4096
    security_at = head + 88
    root = cell(struct.pack("<2sHQ15I2H4s", b"nk", 0x2C, MOMENT, 0, head, 0, 0, none, none, 0, none,
                            security_at, none, 0, 0, 0, 0, 0, 4, 0, b"root"))
    descriptor = struct.pack("<BBHIIII", 1, 0, 0x8004, 0, 0, 0, 0)
    security = cell(struct.pack("<2sHIIII", b"sk", 0, security_at, security_at, 1, len(descriptor))
                    + descriptor)
    cells = root + security + struct.pack("<i", bin_size - head - len(root + security))
    base = struct.pack("<4sIIQ7I", b"regf", 1, 1, MOMENT, 1, 5, 0, 1, head, bin_size, 1)
    return (sealed(base + "SOFTWARE".encode("utf-16-le"))
            + struct.pack("<4sII20x", b"hbin", 0, bin_size) + cells).ljust(8192, b"\0")


def text(value):
    return (value + "\0").encode("utf-16-le")


def installed(path, description, moment, kind=0x10000):
    """The usual values of an installed database: name, type and data."""
    return [("DatabasePath", SZ, text(path)), ("DatabaseType", DWORD, struct.pack("<I", kind)),
            ("DatabaseDescription", SZ, text(description)),
            ("DatabaseInstallTimeStamp", QWORD, struct.pack("<Q", moment))]


class SetValue(ctypes.Structure):
    _fields_ = [("key", ctypes.c_char_p), ("kind", ctypes.c_int), ("length", ctypes.c_size_t),
                ("data", ctypes.c_char_p)]


def hivex(name, *arguments, handle=True):
    """Calls hivex for a handle, or for success alone, with an exception for every failure."""
    function = getattr(ctypes.CDLL("libhivex.so.0", use_errno=True), "hivex_" + name)
    function.restype = ctypes.c_size_t if handle else ctypes.c_int
    answer = function(*arguments)
    if answer == (0 if handle else -1):
        raise OSError(ctypes.get_errno(), f"hivex_{name} failed")
    return ctypes.c_void_p(answer)


def make_hive(path, databases):
    """Writes a software hive in which the databases, values by the names of their keys, are
    installed. Keys below a database's stand in a dictionary behind its values."""
    Path(path).write_bytes(empty_hive())
    hive = hivex("open", str(path).encode(), 4)  # to write

    def add(parent, name, values=()):
        node = hivex("node_add_child", hive, parent, name.encode())
        for value in values:
            if isinstance(value, dict):
                for inner in value.items():
                    add(node, *inner)
            else:
                key, kind, data = value
                value = SetValue(key.encode(), kind, len(data), data)
                hivex("node_set_value", hive, node, ctypes.byref(value), 0, handle=False)
        return node

    node = hivex("root", hive)
    for name in INSTALLED:
        node = add(node, name)
    for database in databases.items():
        add(node, *database)
    hivex("commit", hive, None, 0, handle=False)
    hivex("close", hive, handle=False)
    set_moments(path)


def software_hive(paths, size):
    """A software hive of about `size` bytes in which databases with these paths are installed. Its
    last bin holds one free cell."""
    with tempfile.NamedTemporaryFile() as file:
        make_hive(file.name, {
            f"{{0000000{i}-1111-2222-3333-444444444444}}": installed(path, f"number {i}", MOMENT + i)
            for i, path in enumerate(paths)})
        hive = Path(file.name).read_bytes()
    more = max(size - len(hive), 1) // 4096 * 4096 + 4096
    head = struct.pack("<4sII20xi", b"hbin", len(hive) - 4096, more, more - 32)
    filler = random.Random(1).randbytes(4096) * (more // 4096)
    base = bytearray(hive[:4096])
    struct.pack_into("<I", base, 40, len(hive) - 4096 + more)
    return sealed(base) + hive[4096:] + head + filler[len(head):]


def set_moments(path):
    """Gives the key of each installed database a time of its own, a second apart."""
    with open(path, "r+b") as file:
        for number, key in enumerate(installed_keys(path)):
            file.seek(int(key.find("byte_runs/byte_run").get("file_offset")) + 8)
            file.write(struct.pack("<Q", MOMENT + number * 10_000_000))


def installed_keys(path):
    """The elements that hivexml makes of the installed databases' keys."""
    result = subprocess.run(["hivexml", path], check=True, capture_output=True)
    key = ET.fromstring(result.stdout).find("node")
    for name in INSTALLED:
        key = next(node for node in key.findall("node") if node.get("name") == name)
    return key.findall("node")


def data_of(value):
    """A value's text, number or bytes, of the text that hivexml makes of it."""
    shown, kind = value.get("value") or "", value.get("type")
    if value.get("encoding") == "base64":
        shown = base64.b64decode(shown)
        return shown.decode("utf-8") if kind in ("string", "expand") else shown
    return int(shown) if kind in ("int32", "int64") else shown


def read_installed(path):
    """What hivexml reads: the time of each installed database's key, and its values by name."""
    return {key.get("name"): (datetime.fromisoformat(key.find("mtime").text),
                              {value.get("key") or "": data_of(value)
                               for value in key.findall("value")})
            for key in installed_keys(path)}


def moment_text(filetime):
    """As quilt shows it."""
    seconds, ticks = divmod(filetime, 10_000_000)
    moment = datetime.fromtimestamp(seconds - 11_644_473_600, timezone.utc)
    return f"{moment:%Y-%m-%d %H:%M:%S}.{ticks // 10_000:03}"

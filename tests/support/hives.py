"""Registry hives made by hivex, and what hivex reads in them."""

import base64
import ctypes
import struct
import subprocess
import xml.etree.ElementTree as ET
from datetime import datetime, timezone

INSTALLED = ["Microsoft", "Windows NT", "CurrentVersion", "AppCompatFlags", "InstalledSDB"]
MOMENT = 132_000_000_000_000_000  # FILETIME ticks; what hivex makes takes the time of its parent
SZ, EXPAND_SZ, BINARY, DWORD, QWORD = 1, 2, 3, 4, 11


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
    cells = root + security
    free = struct.pack("<i", bin_size - head - len(cells))
    bins = struct.pack("<4sII20x", b"hbin", 0, bin_size) + cells + free
    base = struct.pack("<4sIIQ7I", b"regf", 1, 1, MOMENT, 1, 5, 0, 1, head, bin_size, 1)
    base = (base + "SOFTWARE".encode("utf-16-le")).ljust(508, b"\0")
    checksum = 0
    for word, in struct.iter_unpack("<I", base):
        checksum ^= word
    return ((base + struct.pack("<I", checksum)).ljust(4096, b"\0") + bins).ljust(8192, b"\0")


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


class Library:
    """hivex, with an exception for every failure."""

    def __init__(self):
        self.calls = ctypes.CDLL("libhivex.so.0", use_errno=True)

    def call(self, name, *arguments, restype=ctypes.c_int):
        function = getattr(self.calls, "hivex_" + name)
        function.restype = restype
        answer = function(*arguments)
        if answer == (0 if restype is not ctypes.c_int else -1):
            raise OSError(ctypes.get_errno(), f"hivex_{name} failed")
        return answer


def make_hive(path, databases):
    """Writes a software hive in which the databases, values by the names of their keys, are
    installed. Keys below a database's stand in a dictionary behind its values."""
    with open(path, "wb") as file:
        file.write(empty_hive())
    library, writable = Library(), 4
    hive = ctypes.c_void_p(library.call("open", path.encode(), writable, restype=ctypes.c_size_t))

    def add(parent, name, values=()):
        node = ctypes.c_size_t(library.call("node_add_child", hive, parent, name.encode(),
                                            restype=ctypes.c_size_t))
        for value in values:
            if isinstance(value, dict):
                for inner, inner_values in value.items():
                    add(node, inner, inner_values)
            else:
                key, kind, data = value
                library.call("node_set_value", hive, node,
                             ctypes.byref(SetValue(key.encode(), kind, len(data), data)), 0)
        return node

    node = ctypes.c_size_t(library.call("root", hive, restype=ctypes.c_size_t))
    for name in INSTALLED:
        node = add(node, name)
    for name, values in databases.items():
        add(node, name, values)
    library.call("commit", hive, None, 0)
    library.call("close", hive)
    set_moments(path)


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
    """The bytes of a value, from the text that hivexml makes of them."""
    shown, kind = value.get("value") or "", value.get("type")
    if value.get("encoding") == "base64":
        shown = base64.b64decode(shown)
    if kind in ("string", "expand"):
        return shown.decode("utf-8") if isinstance(shown, bytes) else shown
    if kind in ("int32", "int64"):
        return int(shown)
    return shown


def read_installed(path):
    """What hivexml reads: the time of each installed database's key, and its values by name."""
    found = {}
    for key in installed_keys(path):
        moment = datetime.strptime(key.find("mtime").text, "%Y-%m-%dT%H:%M:%SZ")
        values = {value.get("key") or "": data_of(value) for value in key.findall("value")}
        found[key.get("name")] = (moment.replace(tzinfo=timezone.utc), values)
    return found


def moment_text(filetime):
    """As quilt shows it."""
    seconds, ticks = divmod(filetime, 10_000_000)
    moment = datetime.fromtimestamp(seconds - 11_644_473_600, timezone.utc)
    return f"{moment:%Y-%m-%d %H:%M:%S}.{ticks // 10_000:03}"

"""NTFS images for tests: a small Windows tree on them, and what is known of each file.

    python3 tests/volume_images.py    makes the image in tests/images anew

That one serves where no image can be mounted. Needs mkntfs and ntfs-3g, and the right to mount.
"""

import gzip
import hashlib
import os
import random
import shutil
import struct
import subprocess
import sys
import tempfile
from contextlib import contextmanager
from pathlib import Path

from support import hives

PREPARED = Path("tests/images/ntfs-4096.img.gz")
FACTS = Path("tests/images/ntfs-4096.md5")
HIVE = "Windows/System32/config/SOFTWARE"
INSTALLED = ["C:\\Windows\\AppPatch\\Custom\\tool.sdb", "C:\\Program Files\\Чертёж\\計測.sdb"]


def make_volume(image, size, cluster, sector=512):
    with open(image, "wb") as file:
        file.truncate(size)
    subprocess.run(["mkntfs", "-F", "-Q", "-q", "-c", str(cluster), "-p", "0", "-s", str(sector), "-S", "63",
                    "-H", "255", image], check=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)


@contextmanager
def mounted(image, options="compression"):
    with tempfile.TemporaryDirectory(prefix="quilt-mount-") as folder:
        subprocess.run(["ntfs-3g", "-o", options, image, folder], check=True)
        try:
            yield folder
        finally:
            subprocess.run(["umount", folder], check=True)


def why_no_mount():
    """Why images cannot be made here; empty if they can."""
    missing = [name for name in ("mkntfs", "ntfs-3g", "umount") if shutil.which(name) is None]
    if missing:
        return f"{missing[0]} is not installed"
    with tempfile.TemporaryDirectory() as folder:
        image = os.path.join(folder, "image")
        try:
            make_volume(image, 4 << 20, 4096)
            with mounted(image):
                return ""
        except (OSError, subprocess.CalledProcessError):
            return "no volume image can be mounted"


def write_fragments(path, contents, unit):
    """Writes a file piece by piece in no order, so that it lies on the volume in none."""
    places = list(range(0, len(contents), unit))
    random.Random(unit).shuffle(places)
    with open(path, "wb", buffering=0) as file:
        file.truncate(len(contents))
        for place in places:
            file.seek(place)
            file.write(contents[place:place + unit])


def compress(folder):
    """What is made in the folder from now on is compressed."""
    file_attribute = 0x800
    os.setxattr(folder, "system.ntfs_attrib_be", struct.pack(">I", file_attribute))


def fill(root, cluster, files, fragments):
    """Fills a mounted volume; gives what is in each file."""
    random_bytes = random.Random(cluster).randbytes
    text = b"the same words again and again, " * 128
    contents = {
        HIVE: hives.software_hive(INSTALLED, fragments * cluster),
        "Files/empty": b"",
        "Files/resident": b"short enough",
        "Files/plain": random_bytes(5 * cluster + 7),
        "Files/sparse": b"head" + bytes(40 * cluster) + b"tail" + bytes(3 * cluster),
        "Files/Größe": b"latin", "Files/Чертёж.TXT": b"cyrillic", "Files/計測 🧵": b"wide",
        "Files/MixedCase.Txt": b"mixed", "Files/A long name of its own.text": b"long",
        "Packed/words": text * 200,
        "Packed/mixed": text * 20 + random_bytes(20_000) + bytes(200_000) + text * 3 + b"end",
        "Packed/noise": random_bytes(70_001),
        "Packed/short": b"\0" * 3000,
    }
    for number in range(files):
        contents[f"Windows/System32/Module {number:05}.dll"] = b"%d" % number
    for name in contents:
        os.makedirs(os.path.join(root, os.path.dirname(name)), exist_ok=True)
    compress(os.path.join(root, "Packed"))
    for name, bytes_of in contents.items():
        path = os.path.join(root, name)
        if name == HIVE:
            write_fragments(path, bytes_of, cluster)
        elif name == "Files/sparse":
            with open(path, "wb", buffering=0) as file:
                file.write(bytes_of[:4])
                file.seek(len(bytes_of.rstrip(b"\0")) - 4)
                file.write(b"tail")
                file.truncate(len(bytes_of))
        else:
            with open(path, "wb") as file:
                file.write(bytes_of)
    os.mkdir(os.path.join(root, "Links"))
    for number in range(20):
        os.link(os.path.join(root, "Files/plain"), os.path.join(root, f"Links/link {number}"))
        contents[f"Links/link {number}"] = contents["Files/plain"]
    os.setxattr(os.path.join(root, "Files/resident"), "user.stream", b"beside the content" * 200)
    os.setxattr(os.path.join(root, "Files/A long name of its own.text"), "system.ntfs_dos_name",
                b"ALONGN~1.TXT")
    return contents


def facts_of(contents):
    return {name: hashlib.md5(data).hexdigest() for name, data in contents.items()}


def make_image(image, cluster, files, fragments, size):
    """Makes an image; gives the digest of each file on it."""
    make_volume(image, size, cluster)
    with mounted(image) as root:
        return facts_of(fill(root, cluster, files, fragments))


def unpack_prepared(image):
    with gzip.open(PREPARED, "rb") as packed, open(image, "wb") as file:
        shutil.copyfileobj(packed, file)
    return dict(line.split(" ", 1)[::-1] for line in FACTS.read_text("utf-8").splitlines())


def main():
    with tempfile.TemporaryDirectory() as folder:
        image = os.path.join(folder, "image")
        facts = make_image(image, 4096, 100, 500, 8 << 20)
        PREPARED.parent.mkdir(exist_ok=True)
        with open(image, "rb") as file, open(PREPARED, "wb") as packed, \
                gzip.GzipFile("", "wb", 9, packed, mtime=0) as zipped:
            shutil.copyfileobj(file, zipped)
        FACTS.write_text("".join(f"{digest} {name}\n" for name, digest in facts.items()), "utf-8")


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Leads paths through images of volumes and disks, and holds what comes out against the same volume
mounted.

    python3 tests/images_test.py --quilt build/release/quilt [--need-mount]

Run from the root of the repository.
"""

import os
import random
import re
import shutil
import struct
import subprocess
import sys
import tempfile
from contextlib import suppress
from pathlib import Path

import volume_images as images
from support import hives
from support.whole_runs import ARGUMENTS, FAILED, SAMPLE, WATCHED, Runs, main, run, small_database

FOLDER = tempfile.TemporaryDirectory(prefix="quilt-images-")
NO_MOUNT = images.why_no_mount()
VOLUME = os.path.join(FOLDER.name, "vol.img")  # with a Windows on it
MIB = 1 << 20
DATABASES = {"Windows/AppPatch/sysmain.sdb": 3, "Windows/AppPatch/Custom/tool.SDB": 2,
             "Windows/System32/CompatTel/x.sdb": 1, "Windows/appraiser.sdb": 2,
             "Files/Größe 計測🧵.sdb": 4, "Files/deep/er/and/deeper.sdb": 1}


def database(name):
    return small_database(DATABASES[name], name)


def fill(root):
    for name in DATABASES:
        path = Path(root, name)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(database(name))
    packed = Path(root, "Packed")
    packed.mkdir()
    images.compress(packed)
    Path(packed, "packed.sdb").write_bytes(small_database(900, "packed"))
    with open(Path(root, "Files/sparse.sdb"), "wb") as file:
        file.write(small_database(2, "sparse"))
        file.truncate(3_000_000)
    os.link(Path(root, "Files/sparse.sdb"), Path(root, "Files/link.sdb"))
    os.setxattr(Path(root, "Files/deep"), "user.kept", database("Windows/appraiser.sdb"))
    for number in range(700):
        Path(root, f"Files/deep/file {number:04} with a long name.txt").touch()
    hive = Path(root, images.HIVE)
    hive.parent.mkdir(parents=True, exist_ok=True)
    hive.write_bytes(hives.software_hive(["C:\\Files\\deep\\er\\and\\deeper.sdb"], 16_000))
    shutil.copy(SAMPLE, Path(root, "Files/gone.sdb"))
    head = b"MZ".ljust(60, b"\0") + struct.pack("<I", 128)
    Path(root, "Files/tool1.exe").write_bytes(head.ljust(128, b"\0") + b"PE\0\0" + struct.pack("<HH", 0x14c, 0)
                                              + bytes(888))


def make_disk(path, size, script, volume, *places):
    """A disk with the partitions that sfdisk makes of the script, in whose units of a MiB are letters for
    the sectors of one and of the volume, which is copied to its places. None where sectors of that size
    cannot be had."""
    with open(path, "wb") as file:
        file.truncate(128 * MIB)
    unit, count = MIB // size, os.path.getsize(volume) // size
    script = re.sub(r"(\d*)([UV])", lambda found: str(int(found[1] or 1) * (unit if found[2] == "U" else count)),
                    script)
    device = path
    if size != 512:
        attached = subprocess.run(["losetup", "-b", str(size), "-f", "--show", path],
                                  capture_output=True, text=True)
        if attached.returncode != 0:
            return None
        device = attached.stdout.strip()
    try:
        subprocess.run(["sfdisk", "-q", device], input=script, text=True, check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    finally:
        if device != path:
            subprocess.run(["losetup", "-d", device], check=True)
    with open(path, "r+b") as file:
        for at in places:
            file.seek(at * MIB)
            file.write(Path(volume).read_bytes())
    return path


# An empty FAT partition, the volume, and behind an empty one in a chain the volume once more; and a table
# whose third partition is the volume, the first an empty one.
OLD_TABLE = "label: dos\nU,4U,c\n8U,V,7\n48U,,5\n49U,U,7\n52U,V,7\n"
NEW_TABLE = "label: gpt\n1: start=U,size=U\n3: start=8U,size=V\n"


class Images(Runs):
    def setUp(self):
        super().setUp()
        if NO_MOUNT:
            (self.fail if ARGUMENTS.need_mount else self.skipTest)(NO_MOUNT)

    def rows(self, *options, code=0, **places):
        """The lines of a run behind its header, and what it said."""
        result = run(*options, "-quiet", "-no_header", **places)
        self.assertEqual((options, result.returncode, result.stderr if result.returncode else b""),
                         (options, code, result.stderr if code else b""))
        return result.stdout.decode().splitlines(), result.stderr.decode()

    def attributes(self, whole):
        """The record, the place and the bytes of each attribute on a volume."""
        for record in (found.start() for found in re.finditer(b"FILE0", whole)):
            at = record + int.from_bytes(whole[record + 20:record + 22], "little")
            while at < min(record + 1024, len(whole) - 24) and whole[at] != 0xFF:
                length, = struct.unpack_from("<I", whole, at + 4)
                yield record, at, whole[at:at + length]
                at += length or 1024

    def entries(self, image, name):
        """Where the entries of indexes stand that have a name."""
        units = name.encode("utf-16-le")
        return [found.start() - 82 for found in re.finditer(re.escape(units), image)
                if image[found.start() - 2] == len(name)
                and struct.unpack_from("<H", image, found.start() - 72)[0] == 66 + len(units)]

    def listed(self, volume, *options, code=0):
        lines, self.said = self.rows("-partition", volume, "-listsdb", *options, code=code)
        return [line for line in lines if ".sdb" in line.lower()]

    def expected(self, volume):
        """What -listsdb finds: by folder, then by the registry."""
        return [f"{volume}/{name}" for name in
                (*list(DATABASES)[:3], "Files/deep/er/and/deeper.sdb")]


class Paths(Images):
    def test_reports_through_an_image_are_those_through_the_mount(self):
        with images.mounted(shutil.copy(VOLUME, self.path("copy")), "ro") as root:
            for options in ("-enumdir {} -num_subdirs 9 -filter *.sdb -stats -json",
                            "-enumdir {}/files -num_subdirs 1 -filter *.sdb -apps -multiline",
                            "-enumdir {} -num_subdirs 9 -filter *.txt -stats", "-partition {} -listsdb",
                            "-partition {} -stats -json", "-sdb {}/Packed/packed.sdb -apps",
                            "-sdb {}/FILES/link.sdb -stringtable", "-partition {} -explain",
                            "-partition {} -explain -json", "-enumdir {} -num_subdirs 9 "
                            f"-filter *.sdb -explain -reg {{}}/{images.HIVE}",
                            "-enumdir {} -num_subdirs 9 -filter *.sdb -diff {}/Windows",
                            "-partition {} -diff {}", "-partition {} -match -explain -pe {}/Files/tool1.exe",
                            "-sdb {}/Windows/appraiser.sdb -apps -known {}/Windows/AppPatch/sysmain.sdb"):
                found = []
                for place_of in (VOLUME, root):
                    words = (options + " -quiet -no_header").replace("{}", place_of).split()
                    result = ARGUMENTS.quilt.run_unwatched(*words)
                    # The mount does not tell what the findings about a file's record are made of.
                    text = re.sub(r'"times":\[.*?\]|^{"kind":"run".*|^.*(place\.hidden|time\.file).*\n', "",
                                  result.stdout.decode().replace(place_of, "ROOT"), flags=re.M)
                    said = result.stderr.decode().replace(place_of, "ROOT")
                    found.append((options, result.returncode, text, said))
                self.assertEqual(*found)

    def test_every_printed_path_can_be_used(self):
        result = run("-enumdir", VOLUME, "-num_subdirs", "9", "-filter", "*.sdb", "-apps", "-json")
        paths = re.findall(r'"kind":"database","database":"(.*?)"', result.stdout.decode())
        self.assertEqual(len(paths), len(DATABASES) + 4)
        for path in paths:
            for spelled in (path, path.replace("/", "\\").replace(VOLUME.replace("/", "\\"), VOLUME),
                            VOLUME + "".join(c.upper() if len(c.upper()) == 1 else c
                                             for c in path[len(VOLUME):])):
                self.assertEqual(run("-sdb", spelled, "-stats").returncode, 0, spelled)
        for path in ("Windows/nothing.sdb", "Windows/AppPatch/sysmain.sdb/more", "../vol.img", "Windows"):
            self.assertEqual(run("-sdb", f"{VOLUME}/{path}", "-stats").returncode, FAILED, path)

    def test_what_a_record_tells_is_found(self):
        image = shutil.copy(VOLUME, self.path("image"))
        with images.mounted(image) as root:
            file = Path(root, "Files/link.sdb")
            os.setxattr(file, "user.beside", b"what stands in the stream")
            os.setxattr(file, "system.ntfs_attrib_be", struct.pack(">I", 2))
            os.setxattr(file, "system.ntfs_times_be", struct.pack(">4Q", *[hives.MOMENT] * 4))
        said = run("-sdb", f"{image}/Files/link.sdb", "-explain").stdout.decode()
        for words in ("place.hidden +its file has the attribute hidden",
                      "place.hidden +its file has the alternate data stream beside",
                      "time.file +its file was made and last written at whole seconds"):
            self.assertRegex(said, words)
        said = run("-sdb", f"{image}/Files/deep:kept", "-explain").stdout.decode()
        self.assertIn("it lies in an alternate data stream, kept", said)

    def test_streams(self):
        stream = f"{VOLUME}/Files/deep:kept"
        result = run("-sdb", stream, "-stats", "-json")
        self.assertIn('"name":"Windows/appraiser.sdb"', result.stdout.decode())
        self.assertEqual(run("-sdb", f"{VOLUME}/Windows:none", "-apps").returncode, FAILED)

    def test_databases_are_found_by_their_content(self):
        image = shutil.copy(VOLUME, self.path("image"))
        with images.mounted(image) as root:
            os.rename(Path(root, "Files/sparse.sdb"), Path(root, "Files/harmless.txt"))
            Path(root, "Files/empty.sdb").touch()
            os.rename(Path(root, "Files/gone.sdb"), Path(root, "Files/gone.txt"))
            os.unlink(Path(root, "Files/gone.txt"))
        listed, _ = self.rows("-enumdir", f"{image}/Files", "-num_subdirs", "9", "-by_content", "-deleted",
                              "-stats", "-json")
        found = {re.search(r'"database":"(.*?)"', line)[1][len(image):] for line in listed
                 if '"kind":"statistics"' in line}
        self.assertEqual({path for path in found if "$" not in path},
                         {"/Files/harmless.txt", "/Files/link.sdb", "/Files/deep:kept",
                          "/Files/Größe 計測🧵.sdb", "/Files/deep/er/and/deeper.sdb"})
        self.assertRegex(" ".join(path for path in found if "$" in path),
                         r"^/\$deleted/\d+-\d+/gone\.txt$")
        said = run("-partition", image, "-explain", "-by_content").stdout.decode()
        for path in ("Files/harmless.txt", "Files/deep:kept", "Packed/packed.sdb"):
            self.assertIn(f"{image}/{path}: custom", said)

    def test_all_times_are_told(self):
        path = f"{VOLUME}/Files/link.sdb"
        times = re.search(r'"times":\[.*?\]', run("-sdb", path, "-stats", "-json").stdout.decode())[0]
        self.assertEqual(times.count('"source":"file"'), 4)
        for name in ("link.sdb", "sparse.sdb"):
            self.assertEqual(times.count(f'"name":"{name}"'), 4)

    def test_what_is_elsewhere_or_packed_is_told(self):
        image = shutil.copy(VOLUME, self.path("image"))
        target = "C:\\Files".encode("utf-16-le")
        link = struct.pack("<4H", 0, len(target), len(target) + 2, 0) + target + bytes(4)
        cases = (("packed", 0x80000017, struct.pack("<4I", 1, 2, 1, 0), "packed it in a way of its own"),
                 ("single", 0x80000013, bytes(20), "packed it in a way of its own"),
                 ("cloud", 0x9000001A, bytes(16), "its content is on another machine"),
                 ("link", 0xA000000C, link[:8] + bytes(4) + link[8:], "is a link to C:\\Files, not followed"))
        with images.mounted(image) as root:
            for name, kind, data, _ in cases:
                path = Path(root, f"Files/{name}.x.sdb")
                path.write_bytes(b"" if name == "link" else database("Windows/appraiser.sdb"))
                os.setxattr(path, "system.ntfs_reparse_data", struct.pack("<IHH", kind, len(data), 0) + data)
            os.setxattr(Path(root, "Files/cloud.x.sdb"), "system.ntfs_attrib_be", struct.pack(">I", 0x1620))
            Path(root, "Files/junction").mkdir()
            os.setxattr(Path(root, "Files/junction"), "system.ntfs_reparse_data",
                        struct.pack("<IHH", 0xA0000003, len(link), 0) + link)
        for name, _, _, words in cases:
            result = run("-sdb", f"{image}/Files/{name}.x.sdb", "-stats")
            self.assertEqual((name, result.returncode), (name, FAILED))
            self.assertIn(words, result.stderr.decode())
            self.assertNotIn(b"Database MD5", result.stdout)
        _, said = self.rows("-enumdir", f"{image}/Files", "-filter", "*.x.sdb", "-stats", "-csv", code=FAILED)
        self.assertIn("junction is a link to a folder, not entered\n", said)
        self.assertIn("link.x.sdb is a link to a file, not followed\n", said)
        result = run("-sdb", f"{image}/Files/junction/tool1.exe", "-stats")
        self.assertIn(b"a folder above it is a link, not followed", result.stderr)

    def test_an_image_that_is_read_is_not_written(self):
        result = run("-sdb", f"{VOLUME}/Files/link.sdb", "-stats", "-out", VOLUME)
        self.assertIn(b"is examined by this run, aborting", result.stderr)


class Disks(Images):
    def test_partitions_of_every_table(self):
        for kind, size, numbers in (("old", 512, (2, 6)), ("old", 4096, (2, 6)), ("new", 512, (3,)),
                                    ("new", 4096, (3,))):
            with self.subTest(kind=kind, size=size):
                volume = VOLUME
                if size == 4096:
                    volume = self.path("large")
                    images.make_volume(volume, 24 * MIB, 4096, size)
                    with images.mounted(volume) as root:
                        fill(root)
                disk = make_disk(self.path(f"{kind}-{size}"), size,
                                 OLD_TABLE if kind == "old" else NEW_TABLE, volume,
                                 *((8, 52) if kind == "old" else (8,)))
                if disk is None:
                    self.skipTest("no loop device")
                self.assertEqual(self.listed(disk), [path for number in numbers
                                                     for path in self.expected(f"{disk}/{number}")])
                kind_of = "; by the partition table: fat32" if kind == "old" else ""
                self.assertIn(f"{disk}/1 passed over: is no NTFS volume{kind_of}\n", self.said)
                number = numbers[-1]
                self.assertEqual(self.listed(f"{disk}/{number}"), self.expected(f"{disk}/{number}"))
                if kind == "new":
                    self.damage(disk, size)

    def damage(self, disk, size):
        """The copy of a table serves where that is damaged; without either what is left is told."""
        whole = Path(disk).read_bytes()
        Path(disk).write_bytes(bytes(size) + whole[size:])  # without the record in front of the table
        self.assertEqual(self.listed(disk), self.expected(f"{disk}/3"))
        for first, last, said in ((True, False, "its copy at the end of the disk was read"),
                                  (True, True, "its partition table is damaged")):
            spoilt = bytearray(whole)
            for is_spoilt, at in ((first, size), (last, len(whole) - size)):
                if is_spoilt:
                    spoilt[at + 60] ^= 1
            Path(disk).write_bytes(spoilt)
            self.assertEqual(self.listed(disk, code=FAILED if last else 0), self.expected(f"{disk}/3"))
            self.assertIn(said, self.said)

    def test_several_systems_on_a_disk(self):
        disk = make_disk(self.path("disk"), 512, OLD_TABLE, VOLUME, 8, 52)
        other = shutil.copy(VOLUME, self.path("other"))
        with images.mounted(other) as root:
            os.unlink(Path(root, "Files/deep/er/and/deeper.sdb"))
        with open(disk, "r+b") as file:
            file.seek(52 * MIB)
            file.write(Path(other).read_bytes())
        # Of two registries with the same key each has its own database.
        said = run("-partition", disk, "-explain").stdout.decode()
        self.assertEqual((said.count("reg.missing"), said.count("place.outside")), (1, 2))
        # A hive that is named and lies on neither tells of both, and is read once.
        whole = hives.software_hive(["C:\\Files\\link.sdb"], 30_000)
        base = bytearray(whole[:512])
        struct.pack_into("<II", base, 4, 8, 7)
        hive = self.write("SOFTWARE", hives.sealed(base)[:512] + whole[512:])
        found = [f"{disk}/{number}/Files/link.sdb" for number in (2, 6)]
        self.assertEqual(self.listed(disk, "-reg", hive),
                         self.expected(f"{disk}/2")[:-1] + self.expected(f"{disk}/6")[:-1] + found)
        self.assertEqual(self.said.count("was not closed"), 1)
        said = run("-partition", disk, "-explain", "-reg", hive).stdout.decode()
        self.assertEqual((said.count("reg.missing"), said.count("reg.new")), (0, 1))
        own = f"{disk}/6/{images.HIVE}"
        self.assertEqual(len(self.listed(disk, "-reg", own)), 7)
        _, said = self.rows("-partition", disk, "-diff", VOLUME, "-deleted")
        self.assertEqual((said.count("passed over"), said.count("not used here: -deleted")), (2, 1))

    def test_other_file_systems_are_told(self):
        for command, said in (("mkfs.vfat", "is a FAT"), ("mkfs.exfat", "is an exFAT"),
                              ("mkfs.ext4 -q -F", "is an ext")):
            if shutil.which(command.split()[0]):
                image = self.write("image", b"")
                os.truncate(image, 8 * MIB)
                subprocess.run([*command.split(), image], check=True, stdout=subprocess.DEVNULL)
                result = run("-sdb", f"{image}/a.sdb", "-apps")
                self.assertEqual((result.returncode, said in result.stderr.decode()), (FAILED, True))
                self.listed(image, code=FAILED)
                self.assertIn(said, self.said)
        locked = bytearray(Path(VOLUME).read_bytes()[:MIB])
        locked[3:11] = b"-FVE-FS-"
        self.listed(self.write("locked", locked), code=FAILED)
        self.assertIn("is a BitLocker volume, which must be unlocked", self.said)


class Containers(Images):
    def acquired(self, *options):
        subprocess.run(["ewfacquire", "-u", "-t", self.path("disk"), "-f", "encase6", *options, VOLUME],
                       check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return self.path("disk.E01")

    def test_raw_parts(self):
        whole = Path(VOLUME).read_bytes()
        for number, at in enumerate(range(0, len(whole), 3_000_001)):
            self.write(f"disk.{number + 1:03}", whole[at:at + 3_000_001])
        first = self.path("disk.001")
        self.assertEqual(self.listed(first), self.expected(first))
        os.unlink(self.path("disk.003"))
        self.listed(first, code=FAILED)
        self.assertIn(f"{self.path('disk.003')} is missing", self.said)

    def test_e01(self):
        if shutil.which("ewfacquire") is None:
            self.skipTest("ewfacquire is not installed")
        for options in (("-c", "none", "-S", "1MiB"), ("-c", "best", "-S", "1GiB")):
            first = self.acquired(*options)
            if "does not read" in run("-partition", first, "-listsdb").stderr.decode():
                self.skipTest("quilt was built without libewf")
            self.assertEqual(self.listed(first), self.expected(first))
            for name in os.listdir(self.folder):
                os.unlink(self.path(name))

    def test_a_chunk_with_a_wrong_checksum_is_never_zeros(self):
        if shutil.which("ewfacquire") is None:
            self.skipTest("ewfacquire is not installed")
        first = self.acquired("-c", "none", "-S", "1GiB")
        if "does not read" in run("-partition", first, "-listsdb").stderr.decode():
            self.skipTest("quilt was built without libewf")
        image = bytearray(Path(first).read_bytes())
        at = image.index(database("Files/Größe 計測🧵.sdb")[:60])
        image[at + 10] ^= 1
        Path(first).write_bytes(image)
        result = run("-sdb", f"{first}/Files/Größe 計測🧵.sdb", "-stats")
        self.assertEqual(result.returncode, FAILED)
        self.assertNotIn(b"Database MD5", result.stdout)


class Deleted(Images):
    def test_deleted_files_are_found_and_told_apart(self):
        image = shutil.copy(VOLUME, self.path("image"))
        with images.mounted(image) as root:
            content = Path(root, "Files/gone.sdb").read_bytes()
            Path(root, "new").touch()
            folder = f"{os.stat(Path(root, 'Files/gone.sdb')).st_ino}-2"
            Path(root, "$deleted", folder).mkdir(parents=True)  # something else of the same name
            Path(root, "$deleted", folder, "gone.sdb").write_bytes(small_database(1, "living"))
            os.unlink(Path(root, "Files/gone.sdb"))
            os.unlink(Path(root, "Files/sparse.sdb"))  # it has another name
        paths = self.listed(image, "-deleted")
        self.assertEqual(paths[:-1], self.expected(image))
        self.assertEqual(paths[-1], f"{image}/$deleted/{folder}/gone.sdb")
        result = run("-sdb", paths[-1], "-stats", "-json")
        self.assertRegex(result.stderr.decode(), r"was deleted: of its (\d+) clusters \1 are no other")
        self.assertIn(f'"size":{len(content)},', result.stdout.decode())
        self.assertRegex(result.stdout.decode(), r'"deleted":{"clusters":(\d+),"unallocated":\1}')
        whole = bytearray(Path(image).read_bytes())
        at = next(at for _, at, bytes_of in self.attributes(whole) if bytes_of[0] == 0x80 and bytes_of[56:64] ==
                  struct.pack("<Q", (len(whole) // 4096 + 63) // 64 * 8))
        whole[at] = 0xd0  # the volume's bitmap
        result = run("-sdb", paths[-1].replace(image, self.write("other", whole)), "-stats", "-json")
        self.assertIn("it is unknown which are no other file's yet", result.stderr.decode())
        self.assertRegex(result.stdout.decode(), r'"deleted":{"clusters":\d+,"unallocated":null}')
        found, _ = self.rows("-enumdir", image, "-num_subdirs", "3", "-filter", "gone.sdb", "-stats", "-json")
        living = re.search(r'"database":"(.*?)"', " ".join(found))[1]
        self.assertEqual(living, f"{image}/./$deleted/{folder}/gone.sdb")
        self.assertIn('"name":"living"', run("-sdb", living, "-stats", "-json").stdout.decode())
        lines, said = self.rows("-enumdir", image, "-deleted", "-filter", "gone*", "-stats", "-csv")
        self.assertIn("was deleted", said)
        with images.mounted(image) as root:  # in whose clusters something else comes to lie
            with open(Path(root, "new"), "wb", buffering=0) as file, suppress(OSError):
                while file.write(b"x" * 4096):
                    pass
        self.assertRegex(run("-sdb", paths[-1], "-apps").stderr.decode(),
                         r"was deleted: of its \d+ clusters 0 are no other")


class Logs(Images):
    def entry(self, sequence, old, new):
        """An entry of a log that makes one hive another."""
        pages = [at for at in range(4096, len(new), 4096) if old[at:at + 4096] != new[at:at + 4096]]
        body = b"".join(struct.pack("<II", at - 4096, 4096) for at in pages)
        body += b"".join(new[at:at + 4096] for at in pages)
        body += bytes(-(len(body) + 40) % 512)
        head = struct.pack("<4s5I", b"HvLE", 40 + len(body), 0, sequence, len(new) - 4096, len(pages))
        head += struct.pack("<Q", marvin(body))
        return head + struct.pack("<Q", marvin(head)) + body

    def test_a_hive_is_brought_up_to_date(self):
        old = hives.software_hive(["C:\\one.sdb"], 30_000)
        new = hives.software_hive(["C:\\one.sdb", "C:\\two.sdb"], 30_000)
        base = bytearray(old[:512])
        struct.pack_into("<II", base, 4, 8, 7)
        log = bytearray(old[:512])
        struct.pack_into("<II", log, 4, 7, 7)
        struct.pack_into("<I", log, 28, 6)
        hive = self.write("SOFTWARE", hives.sealed(base)[:512] + old[512:])
        self.write("SOFTWARE.LOG1", hives.sealed(log)[:512] + self.entry(7, old, new))

        def told(*options):
            lines, said = self.rows("-listsdb", "-reg", hive, *options)
            return [line for line in lines if line.endswith(".sdb")], said

        found, said = told()
        self.assertEqual(found, ["C:\\one.sdb", "C:\\two.sdb"])
        self.assertRegex(said, r"was not closed: taken of its logs were 1 entries with \d+ pages; databases "
                               r"added 1, removed 0, changed 0\n\Z")
        found, said = told("-no_logs")
        self.assertEqual((found, said), (["C:\\one.sdb"],
                                         f"hive {hive} was not closed, its logs are left out\n"))
        os.unlink(self.path("SOFTWARE.LOG1"))
        self.assertIn("no log beside it counts", told()[1])


def marvin(data):
    """The hash of log entries, as published."""
    a, b, mask = 0x884DEF82, 0xC5554E7A, 0xFFFFFFFF

    def rotated(word, bits):
        return (word << bits | word >> 32 - bits) & mask

    data += b"\x80" + bytes(-(len(data) + 1) % 4) + bytes(4)
    for word, in struct.iter_unpack("<I", data):
        a = a + word & mask
        b ^= a
        a = rotated(a, 20) + b & mask
        b = rotated(b, 9) ^ a
        a = rotated(a, 27) + b & mask
        b = rotated(b, 19)
    return b << 32 | a


class Damage(Images):
    def test_a_folder_that_leads_back_ends_a_walk(self):
        image = bytearray(Path(VOLUME).read_bytes())
        above = self.entries(image, "Files")[0]
        for at in self.entries(image, "er"):
            image[at:at + 8] = image[above:above + 8]
        result = run("-enumdir", self.write("image", image), "-num_subdirs", "100000", "-filter", "*.sdb",
                     "-stats", "-csv", "-quiet")
        self.assertEqual(result.returncode, FAILED)
        self.assertIn("/Files/deep/er: its record tells that it lies elsewhere\n", result.stderr.decode())

    def test_blocks_to_which_a_folder_leads_are_missed(self):
        whole = Path(VOLUME).read_bytes()
        for kind in (0xA0, 0xB0):  # no longer of their kind; none of them in use
            image, spoilt = bytearray(whole), 0
            for record, at, bytes_of in self.attributes(whole):
                if bytes_of[0] == kind and "$I30".encode("utf-16-le") in bytes_of and whole[record + 44] != 5:
                    image[at if kind == 0xA0 else at + int.from_bytes(bytes_of[20:22], "little")] = \
                        0xD0 if kind == 0xA0 else 0
                    spoilt += 1
            self.assertTrue(spoilt)
            result = run("-enumdir", self.write("image", image) + "/Files/deep", "-num_subdirs", "9", "-stats", "-csv",
                         "-quiet")
            self.assertEqual(result.returncode, FAILED)
            self.assertIn(" damaged", result.stderr.decode())

    def test_a_damaged_record_is_never_passed_over(self):
        path = "Packed/packed.sdb"
        whole = Path(VOLUME).read_bytes()
        name = "packed.sdb".encode("utf-16-le")
        record = next(record for record, _, bytes_of in self.attributes(whole)
                      if bytes_of[0] == 0x30 and name in bytes_of)
        content = next(at for of, at, bytes_of in self.attributes(whole) if of == record and bytes_of[0] == 0x80)
        is_told, is_packed = "its record is damaged\n", "its system packed it in a way of its own\n"
        in_doubt = "its record is damaged, what is read may not be all of it\n"
        for place, value, said in ((content + 16, b"\1", is_told),         # first cluster
                                   (content + 4, b"\xff\xff", is_told),    # length
                                   (content, b"\xd0", is_told),            # type
                                   (content + 12, b"\2", is_packed),       # compressed in an unknown way
                                   (content + 12, b"\0", in_doubt),  # has holes that it may not have
                                   (record + 6, b"\1", in_doubt),  # says less of how it was written
                                   (record + 56, b"\xd0", in_doubt),  # the standard information
                                   (record + 1022, b"\x55\x55", in_doubt)):  # its second half is not its own
            image = bytearray(whole)
            image[place:place + len(value)] = value
            image = self.write("image", image)
            result = run("-sdb", f"{image}/{path}", "-stats", "-csv", "-quiet")
            self.assertEqual(result.returncode, FAILED)
            self.assertIn(f"{image}/{path}: {said}", result.stderr.decode())
            _, told = self.rows("-partition", image, "-by_content", "-explain", code=FAILED)
            self.assertIn(f"1 files of {image} could not be read, and may be databases", told)

    def test_no_entry_of_an_index_is_believed_against_its_record(self):
        whole = Path(VOLUME).read_bytes()
        entry, = self.entries(whole, "packed.sdb")
        other, = self.entries(whole, "tool.SDB")
        is_damaged = "/Packed: its index is damaged\n"
        for place, value, said in ((entry + 12, b"\2", is_damaged),   # the last one
                                   (entry + 8, b"\x80", is_damaged),  # length
                                   (entry, whole[other:other + 8], "its record tells that it lies elsewhere\n"),
                                   (entry + 81, b"\2", "")):          # a short name, though there is no other
            image = bytearray(whole)
            image[place:place + len(value)] = value
            result = run("-enumdir", self.write("image", image) + "/Packed", "-stats", "-csv", "-quiet", "-no_header")
            self.assertEqual(result.returncode, FAILED if said else 0, said)
            self.assertIn(said, result.stderr.decode())
            self.assertEqual(b"packed.sdb" in result.stdout, said == "", said)

    def test_names_that_no_path_can_hold_are_told_apart(self):
        image = shutil.copy(VOLUME, self.path("image"))
        names = [f"one {letter}.sdb" for letter in "abcdefgh"]
        with images.mounted(image) as root:
            for number, name in enumerate(names):
                Path(root, name).write_bytes(small_database(number + 1, name))
        whole = Path(image).read_bytes()
        for unit in (0xD800, 0xD801, ord("/")):
            while True:  # up to one that no sector's end parts
                units = names.pop().encode("utf-16-le")
                kept = sum(units in bytes_of for _, _, bytes_of in self.attributes(whole) if bytes_of[0] == 0x30)
                if kept and self.entries(whole, units.decode("utf-16-le")):
                    break
            whole = whole.replace(units, units[:8] + struct.pack("<H", unit) + units[10:])
        listed, _ = self.rows("-enumdir", self.write("image", whole), "-stats", "-json")
        found = [re.search(r'"database":"(.*?)","size":(\d+)', line) for line in listed
                 if '"statistics"' in line and "\ufffd" in line]
        self.assertEqual(sorted(each[1].rsplit("/", 1)[1] for each in found),
                         [f"one \ufffd{unit}.sdb" for unit in ("002f", "d800", "d801")])
        self.assertEqual(len({each[2] for each in found}), 3)
        self.assertEqual(run("-sdb", found[0][1], "-stats").returncode, 0)

    def test_whatever_a_byte_of_a_record_or_index_becomes_a_walk_ends(self):
        whole = Path(VOLUME).read_bytes()
        places = [at for mark in (b"FILE0", b"INDX(") for at in
                  (found.start() for found in re.finditer(re.escape(mark), whole))]
        choose = random.Random(17)
        for _ in range(120):
            spoilt = bytearray(whole)
            for _ in range(choose.choice((1, 40))):
                at = choose.choice(places) + choose.randrange(1024)
                spoilt[at] = choose.choice((0, 1, 0x7F, 0x80, 0xFF, choose.randrange(256)))
            image = self.write("image", spoilt)
            result = ARGUMENTS.quilt.run_unwatched("-enumdir", image, "-num_subdirs", "12", "-deleted",
                                                   "-filter", "*.sdb", "-stats", "-csv", "-quiet")
            self.assertIn(result.returncode, (0, FAILED))
            self.assertEqual(result.returncode == FAILED, b"Prob " in result.stderr or
                             b"is cut off" in result.stderr or b"no database" in result.stderr or
                             b"too long" in result.stderr, result.stderr)


def make_volume():
    WATCHED.append(FOLDER.name)
    if not NO_MOUNT:
        images.make_volume(VOLUME, 24 * MIB, 4096)
        with images.mounted(VOLUME) as root:
            fill(root)


if __name__ == "__main__":
    with FOLDER:
        sys.exit(main(prepare=make_volume))

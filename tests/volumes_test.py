#!/usr/bin/env python3
"""Reads NTFS images with quilt and with read_volume, and looks at what comes out.

    python3 tests/volumes_test.py --quilt build/release/quilt --reader build/release/read_volume
        [--windows "wine quilt.exe" --windows-reader "wine read_volume.exe"] [--need-mount]

Run from the root of the repository. Images are made here where one can be mounted; one that is kept
in tests/images serves in any case. With --need-mount it is a failure that none can be made.
"""

import hashlib
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import volume_images as images
from support import hives
from support.whole_runs import ARGUMENTS, FAILED, WATCHED, Runs, main, run

FOLDER = tempfile.TemporaryDirectory(prefix="quilt-images-")
IMAGES = []  # (path, {file: digest}), the prepared one first
NO_MOUNT = images.why_no_mount()
CASELESS = ("windows\\SYSTEM32\\Config\\software", "/WINDOWS/system32/config/Software", "C:\\" +
            images.HIVE.replace("/", "\\"), images.HIVE + ":stream", f" {images.HIVE}\t")
ABSENT = ("Files/ALONGN~1.TXT", "Files/nothing", "Files/plain/deeper", "Windows/Files/plain",
          "Windows/System32/config/.", "Windows/Windows/System32")


def digest(data):
    return hashlib.md5(data).hexdigest()


class Reading(Runs):
    def read_volume(self, word, image, path):
        """What the reader gives for a path, or None."""
        output = self.path("output")
        result = ARGUMENTS.reader.run_unwatched(word, image, path, output)
        return self.read("output") if result.returncode == 0 else None

    def listed(self, image, *options, program=None):
        """What -listsdb prints behind the run header. What is not whole is said and fails."""
        result = (program or ARGUMENTS.quilt).run("-partition", image, "-listsdb", *options)
        *lines, before_last, last = result.stdout.decode().replace("\r\n", "\n").split("\n")[3:]
        self.assertEqual((before_last, last), ("", ""))
        # The hive of the image that is kept has a wrong checksum, as one has that was not closed.
        self.said = re.sub(r"hive \S+ was not closed, and no log beside it counts: .*\n", "",
                           result.stderr.decode().replace("\r\n", "\n"))
        volume, root = (re.escape(image[:end]) for end in (None, -1 if image[1:] == ":\\" else None))
        self.assertRegex(self.said, rf"\A(Prob reading volume {volume}: (is|lies) .+\n|"
                         rf"(Prob reading folder {root}\S*: .+\n)*"
                         rf"(no hive {root}\S+: .+\n|Prob reading hive \S+: .+\n|"
                         rf"hive {root}\S+ is damaged, not all that it should hold was read\n)*"
                         rf"({'' if lines else f'no database found on {root}.*'}\n)?)\Z")
        self.assertEqual((result.returncode == 0, bool(lines)), (not self.said, bool(lines)))
        return lines


class Content(Reading):
    def test_images_of_every_cluster_size_are_made(self):
        if NO_MOUNT:
            (self.fail if ARGUMENTS.need_mount else self.skipTest)(NO_MOUNT)
        self.assertEqual(len(IMAGES), 5)

    def test_files_are_what_was_written_and_what_ntfscat_reads(self):
        for image, facts in IMAGES:
            for name, expected in facts.items():
                if name.startswith("Windows/System32/Module") and not name.endswith("7.dll"):
                    continue
                found = self.read_volume("cat", image, name)
                # An empty file gives nothing.
                self.assertEqual(digest(found or b""), expected, name)
                self.assertEqual(found is None, expected == digest(b""), name)
                if shutil.which("ntfscat"):
                    other = subprocess.run(["ntfscat", image, name], capture_output=True)
                    self.assertEqual(other.stdout, found or b"", name)

    def test_paths(self):
        for image, facts in IMAGES:
            for path in CASELESS:
                found = self.read_volume("cat", image, path)
                self.assertEqual(digest(found), facts[images.HIVE], path)
            for path in ABSENT:
                self.assertIsNone(self.read_volume("cat", image, path), path)

    def test_directories_hold_what_was_put_there(self):
        for image, facts in IMAGES:
            for folder in ("", "Windows/", "Windows/System32/", "Files/", "Links/", "Packed/"):
                path = "\\" + folder.replace("/", "\\")[:-1]
                names = self.read_volume("ls", image, path).decode().split("\n")[:-1]
                self.assertEqual({name for name in names if not name.startswith(("$", "."))},
                                 {name[len(folder):].split("/")[0] for name in facts
                                  if name.startswith(folder)}, folder)

    @unittest.skipIf(shutil.which("ntfsinfo") is None, "ntfsinfo is not installed")
    def test_the_images_hold_what_they_are_for(self):
        for image, _ in IMAGES:
            for name, words in ((images.HIVE, "$ATTRIBUTE_LIST"),
                                ("Packed/words", "Attribute flags:\t 0x0001")):
                info = subprocess.run(["ntfsinfo", "-v", "-f", "-F", name, image],
                                      capture_output=True, text=True).stdout
                # Large clusters are not packed, and the largest leave a file in few pieces.
                if not image.endswith("131072" if name == images.HIVE else ("65536", "131072")):
                    self.assertIn(words, info)


class Hives(Reading):
    def test_installed_databases_are_listed_from_an_image(self):
        for image, _ in IMAGES:
            expected = [image + path[2:].replace("\\", "/") for path in
                        sorted(images.INSTALLED, key=lambda path: path.split("\\")[-1])]
            self.assertEqual(self.listed(image), expected)
            if os.geteuid() == 0:
                result = run("-vss", image, "-listsdb")
                self.assertEqual(result.stdout.decode().split("\n")[3:-2], expected)
            missing = self.path("nowhere")
            self.assertEqual(self.listed(image, "-reg", missing), [])  # no other in its place
            self.assertIn(f"Prob reading hive {missing}: no such file\n", self.said)

    def test_an_ordinary_hive_comes_first(self):
        other = self.write("hive", hives.software_hive(["C:\\other.sdb"], 8160))
        for image, _ in IMAGES:
            self.assertEqual(self.listed(image, "-reg", other), [image + "/other.sdb"])

    def test_a_block_device_is_a_volume(self):
        image, _ = IMAGES[0]
        attached = subprocess.run(["losetup", "-r", "-f", "--show", image], capture_output=True,
                                  text=True) if shutil.which("losetup") else None
        if attached is None or attached.returncode != 0:
            self.skipTest("no loop device")
        device = attached.stdout.strip()
        self.addCleanup(subprocess.run, ["losetup", "-d", device], check=True)
        self.assertEqual(len(self.listed(device)), len(images.INSTALLED))

    @unittest.skipIf(NO_MOUNT, NO_MOUNT)
    def test_hives_of_every_kind(self):
        hive = hives.software_hive(["C:\\one.sdb"], 300_000)
        for kind, expected in (("plain", 1), ("resident", 0), ("empty", 0), ("sparse", 1),
                               ("compressed", 1), ("link", 1), ("directory", 0), ("streams", 1)):
            with self.subTest(kind=kind):
                image = self.path(kind)
                images.make_volume(image, 8 << 20, 4096)
                with images.mounted(image) as root:
                    self.put_hive(root, kind, hive)
                if kind not in ("directory", "empty"):
                    cat = subprocess.run(["ntfscat", image, images.HIVE], capture_output=True)
                    self.assertEqual(self.read_volume("cat", image, images.HIVE), cat.stdout)
                self.assertEqual(len(self.listed(image)), expected)

    def put_hive(self, root, kind, hive):
        path = os.path.join(root, images.HIVE)
        os.makedirs(path if kind == "directory" else os.path.dirname(path))
        if kind == "compressed":
            images.compress(os.path.dirname(path))
        if kind == "directory":
            return
        used = hive[:hive.rindex(b"hbin")]  # the last bin is free
        with open(path, "wb", buffering=0) as file:
            file.write({"resident": hive[:300], "empty": b"", "sparse": used}.get(kind, hive))
            if kind == "sparse":
                file.truncate(len(used) + 500_000)
        if kind == "link":
            os.link(path, os.path.join(root, "other name"))
        if kind == "streams":
            for name in ("a", "Zone.Identifier"):
                os.setxattr(path, f"user.{name}", b"not the hive" * 100)


class Damage(Reading):
    def test_a_volume_cut_anywhere_is_no_volume_or_less_of_one(self):
        whole = Path(IMAGES[0][0]).read_bytes()
        for length in (*range(0, 256 * 1024 + 1, 4096), len(whole) // 2, len(whole) - 512,
                       len(whole) - 1):
            self.listed(self.write("cut", whole[:length]))

    def test_boot_sector_fields(self):
        whole = Path(IMAGES[0][0]).read_bytes()
        damaged = self.write("damaged", whole)
        with open(damaged, "r+b", buffering=0) as file:
            for place, size in ((3, 8), (11, 2), (13, 1), (40, 8), (48, 8), (64, 1), (68, 1)):
                for value in (0, 1, 0x80, (1 << size * 8) - 1, (1 << size * 8 - 1) - 1):
                    os.pwrite(file.fileno(), value.to_bytes(size, "little"), place)
                    self.listed(damaged)
                os.pwrite(file.fileno(), whole[place:place + size], place)
            self.assertEqual(len(self.listed(damaged)), len(images.INSTALLED))

    def test_other_file_systems(self):
        for command in ("mkfs.vfat", "mkfs.exfat", "mkfs.ext4 -q -F"):
            if shutil.which(command.split()[0]):
                image = self.write("image", b"")
                os.truncate(image, 8 << 20)
                subprocess.run([*command.split(), image], check=True, stdout=subprocess.DEVNULL)
                self.assertEqual((command, self.listed(image)), (command, []))

    def test_what_is_no_volume_is_said(self):
        whole = Path(IMAGES[0][0]).read_bytes()
        for path, said in ((self.write("empty", b""), "Prob reading volume {}: is no NTFS volume\n"),
                           (self.write("text", b"NTFS " * 1000),
                            "Prob reading volume {}: is no NTFS volume\n"),
                           (self.write("cut", whole[:8192]),
                            "Prob reading volume {}: is a damaged NTFS volume\n"),
                           (self.folder, "no hive {}/Windows/System32/Config/Software: no such file\n"
                                         "no database found on {}\n")):
            self.assertEqual((path, self.listed(path)), (path, []))
            self.assertEqual(self.said, said.replace("{}", path))


class Wine(Reading):
    """Under Wine a raw device is linked to an image. It opens and can be read, but does not answer
    for its geometry, so that volumes named by a letter are refused."""

    def setUp(self):
        super().setUp()
        self.windows()
        self.image, self.facts = IMAGES[0]
        self.wine_drive("x::", self.image)

    def read_device(self, word, path, *size):
        output = "z:" + self.path("output").replace("/", "\\")
        result = ARGUMENTS.windows_reader.run_unwatched(word, "x", path, output, *size)
        return self.read("output") if result.returncode == 0 else result.returncode

    def test_a_letter_is_refused(self):
        for volume in ("x", "x:", "x:\\"):
            self.assertEqual(self.listed(volume, program=self.windows()), [])
        self.assertEqual(self.read_device("cat", images.HIVE), 1)

    def test_positioned_reads(self):
        whole = Path(self.image).read_bytes()
        for place in ("0 512", "1024 4096", "4096 1048576", "700 100", "511 2", "1 8191"):
            offset, size = map(int, place.split())
            self.assertEqual(self.read_device("raw", place), whole[offset:offset + size], place)

    def test_files_are_read_once_the_geometry_is_known(self):
        """The reader answers for it and asks the device for all else."""
        size = str(os.path.getsize(self.image))
        for name in (images.HIVE, "Packed/mixed", "Files/sparse", "Windows/System32/Module 00099.dll"):
            self.assertEqual(digest(self.read_device("cat", name, size)), self.facts[name])


def make_images():
    WATCHED.append(FOLDER.name)
    prepared = os.path.join(FOLDER.name, "prepared")
    IMAGES.append((prepared, images.unpack_prepared(prepared)))
    for cluster, files, fragments, size in () if NO_MOUNT else (
            (512, 500, 600, 16), (4096, 5000, 600, 32), (65536, 100, 600, 64),
            (131072, 100, 60, 32)):
        image = os.path.join(FOLDER.name, f"ntfs-{cluster}")
        IMAGES.append((image, images.make_image(image, cluster, files, fragments, size << 20)))


if __name__ == "__main__":
    with FOLDER:
        sys.exit(main(prepare=make_images))

#!/usr/bin/env python3
"""Lets each call to the system of a run fail in turn: a run gives its whole output, or ends with -1
and a word.

    python3 tests/faults_test.py --quilt build/release/quilt

Of more calls of one kind than `--most` some fail, evenly spread. Run from the root of the repository, with the
release program of Linux and faults.so beside it.
"""

import os
import shutil
import subprocess
import sys
import xml.parsers.expat
from pathlib import Path

import volume_images
from support import hives
from support.json_lines import read_report
from support.whole_runs import ARGUMENTS, FAILED, SAMPLE, Runs, main, masked, small_database

KINDS = ("open", "close", "read", "write", "seek", "stat", "rename", "readdir", "thread", "memory")
CUT_SHORT = ("read", "write")


class Faults(Runs):
    def setUp(self):
        super().setUp()
        build = Path(ARGUMENTS.quilt.words[0]).parent
        self.library = str(build / "faults.so")
        folder = Path(self.path("in/Windows/AppPatch/deep"))
        folder.mkdir(parents=True)
        shutil.copy(SAMPLE, folder.parent / "sysmain.sdb")
        (folder / "other.sdb").write_bytes(small_database(3, "Other"))
        (folder.parent / "many.sdb").write_bytes(small_database(1200, "Many"))
        self.write("in/ProgramData/helper.sdb", small_database(1, "Helper"))
        program = self.path("in/tool2.exe")
        subprocess.run([build / "make_program", "4096", program], check=True)
        hives.make_hive(self.path("in/HIVE"), {
            "{A}": hives.installed("C:\\Windows\\AppPatch\\many.sdb", "Many", hives.MOMENT),
            "{B}": hives.installed("C:\\ProgramData\\helper.sdb", "Helper", hives.MOMENT)})
        self.before = self.inputs()

    def inputs(self):
        """All that must be as it was: names, bytes, modes, times and nodes."""
        found = {}
        for path in sorted(Path(self.path("in")).rglob("*")):
            status = path.stat()
            found[str(path)] = (path.read_bytes() if path.is_file() else None, status.st_mode,
                                status.st_mtime_ns, status.st_ino)
        return found

    def run_with(self, options, **faults):
        Path(self.path("out.partial")).unlink(missing_ok=True)
        self.write("out", b"old\n")
        result = subprocess.run([*ARGUMENTS.quilt.words, *options], stdin=subprocess.DEVNULL,
                                capture_output=True, timeout=60,
                                env={**os.environ, "LD_PRELOAD": self.library, **faults})
        out = Path(self.path("out"))
        return result, masked(result.stdout) + masked(out.read_bytes() if out.exists() else b"")

    def check_what_there_is(self, result):
        """A document is one for all that; what was not put in its place is named."""
        if result.stdout.startswith((b"<?xml", b"<!DOCTYPE")):
            xml.parsers.expat.ParserCreate().Parse(result.stdout, True)
        elif result.stdout.startswith(b"{"):
            read_report(result.stdout, validated=False)
        if os.path.exists(self.path("out.partial")):
            self.assertIn(b"out.partial", result.stderr)

    def check(self, *options):
        options = [word.replace("IN", self.path("in")).replace("OUT", self.path("out"))
                   for word in options]
        counts = self.path("counts")
        good, whole = self.run_with(options, QUILT_FAULT_COUNT=counts)
        self.assertEqual(good.returncode, 0, good.stderr)
        numbers = dict(line.split() for line in Path(counts).read_text().splitlines())
        for kind in KINDS:
            count = int(numbers[kind])
            step = max(1, count // ARGUMENTS.most)
            for number in range(1, count + 1, step):
                for ending in ("", "/short") if kind in CUT_SHORT else ("",):
                    fault = f"{kind}:{number}{ending}"
                    result, output = self.run_with(options, QUILT_FAULT=fault)
                    with self.subTest(options=options, fault=fault):
                        if result.returncode == 0:
                            self.assertEqual(output, whole)
                        elif "-append" in options:
                            self.assertTrue(self.read("out").startswith(b"old\n"))
                        else:
                            self.assertEqual(result.returncode, FAILED, result.stderr)
                            if kind != "write":  # the error stream itself may be what failed
                                self.assertNotEqual(result.stderr, b"")
                                self.check_what_there_is(result)
        self.assertEqual(self.inputs(), self.before)

    def test_listing(self):
        self.check("-sdb", "IN/Windows/AppPatch/sysmain.sdb", "-apps", "-quiet", "-out", "OUT")

    def test_long_listing(self):
        self.check("-sdb", "IN/Windows/AppPatch/many.sdb", "-exes", "-quiet")

    def test_long_listing_in_json(self):
        self.check("-sdb", "IN/Windows/AppPatch/many.sdb", "-exes", "-guids", "-json", "-quiet")

    def test_statistics_in_json(self):
        for form in ("-json", "-html"):
            self.check("-stats", form, "-quiet", "-partition", "IN", "-reg", "IN/HIVE")

    def test_listings_of_a_list_in_a_page(self):
        self.check("-exes", "-guids", "-html", "-quiet", "-enumdir", "IN", "-num_subdirs", "8", "-threads", "3")

    def test_statistics(self):
        self.check("-stats", "-csv", "-quiet", "-enumdir", "IN", "-num_subdirs", "8", "-out", "OUT",
                   "-threads", "3")

    def test_as_many_threads_as_asked_for(self):
        counts = self.path("counts")
        for options in ("-stats -enumdir IN -num_subdirs 8", "-exes -sdb IN/Windows/AppPatch/many.sdb"):
            for threads, started in ((1, 0), (5, 4)):
                words = f"{options} -threads {threads}".replace("IN", self.path("in")).split()
                self.run_with(words, QUILT_FAULT_COUNT=counts)
                self.assertIn(f"thread {started}\n", Path(counts).read_text())

    def test_statistics_appended_to_a_file(self):
        self.check("-stats", "-csv", "-quiet", "-enumdir", "IN/ProgramData", "-append", "-out",
                   "OUT")

    def test_volume(self):
        self.check("-listsdb", "-quiet", "-partition", "IN", "-reg", "IN/HIVE")

    def test_volume_in_an_image(self):
        volume_images.unpack_prepared(self.path("in/image"))
        self.before = self.inputs()
        self.check("-listsdb", "-quiet", "-partition", "IN/image", "-deleted")

    def test_logs_of_a_hive(self):
        with open(self.path("in/HIVE"), "r+b") as hive:
            log = bytearray(hive.read(512))
            hive.seek(8)
            hive.write(bytes(4))
        log[28] = 6
        self.write("in/HIVE.LOG1", hives.sealed(log)[:512])
        self.before = self.inputs()
        self.check("-listsdb", "-quiet", "-reg", "IN/HIVE")

    def test_statistics_of_a_volume(self):
        self.check("-stats", "-quiet", "-partition", "IN", "-reg", "IN/HIVE", "-append",
                   "-out", "OUT")

    def test_match_with_a_program(self):
        for form in ("-xml", "-json", "-html"):
            self.check("-sdb", "IN/Windows/AppPatch/deep/other.sdb", "-pe", "IN/tool2.exe", "-match",
                       "-quiet", form)

    def test_explanations(self):
        self.check("-explain", "-json", "-quiet", "-by_content", "-partition", "IN", "-reg", "IN/HIVE",
                   "-known", "IN/ProgramData/helper.sdb")

    def test_differences(self):
        self.check("-enumdir", "IN/Windows", "-num_subdirs", "8", "-diff", "IN/Windows/AppPatch", "-quiet")

    def test_matches_of_a_list(self):
        self.check("-match", "-pe", "-enumdir", "IN", "-num_subdirs", "8", "-explain", "-csv", "-quiet",
                   "-sdb", "IN/Windows/AppPatch/deep/other.sdb", "-sdb", "IN/Windows/AppPatch/sysmain.sdb",
                   "-threads", "3")

    def test_program(self):
        self.check("-pe", "IN/tool2.exe", "-stats", "-quiet")


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Runs quilt with too little memory: what does not fit is said, and the rest goes on.

    python3 tests/memory_test.py --quilt build/release/quilt

Run from the root of the repository, with a program without sanitizers.
"""

import os
import subprocess
import sys
import tempfile
import time

from support.whole_runs import ARGUMENTS, FAILED, SAMPLE, Runs, main, small_database


class Memory(Runs):
    def run_within(self, kibibytes, *options, lines=b""):
        with tempfile.TemporaryFile() as given:
            given.write(lines)
            given.seek(0)
            return subprocess.run(["sh", "-c", f'ulimit -v {kibibytes}; exec "$0" "$@"',
                                   *ARGUMENTS.quilt.words, *options], stdin=given,
                                  capture_output=True, timeout=120)

    def large(self):
        """A database of seven million tags, whose table does not fit."""
        nulls = small_database(0, "x")[:12] + (0x7001).to_bytes(2, "little")
        return nulls + (14_000_000).to_bytes(4, "little") + (0x1001).to_bytes(2, "little") * 7_000_000

    def test_the_last_catch_says_what_flew(self):
        large = self.write("large.sdb", self.large())
        result = self.run_within(60_000, "-sdb", large, "-apps", "-quiet")
        self.assertEqual((result.returncode, result.stderr),
                         (FAILED, b"quilt: std::bad_alloc\n"))

    def test_one_entry_of_a_list_that_does_not_fit_stops_no_other(self):
        large = self.write("large.sdb", self.large())
        lines = f"{large}\n{SAMPLE}\n".encode()
        result = self.run_within(60_000, "-pipe", "-exes", "-quiet", lines=lines)
        self.assertEqual((result.returncode, result.stderr),
                         (FAILED, f"exception caught on file {large}\n".encode()))
        self.assertIn(b"ledger.exe", result.stdout)

    def test_text_that_waits_for_its_turn_is_bounded(self):
        """Nobody reads what the first entry writes, while the others go on as far as they may."""
        path = self.write("many.sdb", small_database(20_000, "many"))
        words = [*ARGUMENTS.quilt.words, "-pipe", "-apps", "-quiet", "-threads", "4"]
        process = subprocess.Popen(words, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        process.stdin.write(f"{path}\n".encode() * 30)
        process.stdin.close()
        time.sleep(2)
        size = sum(len(block) for block in iter(lambda: process.stdout.read(1 << 20), b""))
        process.stdout.close()
        _, process.returncode, usage = os.wait4(process.pid, 0)
        self.assertEqual(process.returncode, 0)
        self.assertGreater(size, 150 << 20)
        self.assertLess(usage.ru_maxrss << 10, (64 << 20) + 4 * 10 * os.path.getsize(path))

    def test_one_target_of_several_that_does_not_fit_stops_no_other(self):
        self.write("Windows/AppPatch/a.sdb", self.large())
        self.write("Windows/AppPatch/b.sdb", small_database(1, "b"))
        result = self.run_within(60_000, "-partition", self.folder, "-stats", "-quiet")
        self.assertEqual(result.returncode, FAILED)
        self.assertIn(f"exception caught on file {self.path('Windows/AppPatch/a.sdb')}\n".encode(),
                      result.stderr)
        self.assertIn(b"Windows/AppPatch/b.sdb", result.stdout)

    def test_a_hive_that_does_not_fit_is_said_and_the_rest_is_done(self):
        os.truncate(hive := self.write("hive", b"regf"), 1 << 30)
        result = self.run_within(60_000, "-sdb", SAMPLE, "-stats", "-quiet", "-reg", hive)
        self.assertEqual((result.returncode, result.stderr.decode()),
                         (FAILED, f"Prob reading hive {hive}: memory has run out\n"))
        self.assertIn(b"Database MD5", result.stdout)


if __name__ == "__main__":
    sys.exit(main())

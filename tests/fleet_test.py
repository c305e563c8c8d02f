#!/usr/bin/env python3
"""Runs fleet/quilt_fleet.py on real Dask clusters of this machine.

    python3 tests/fleet_test.py --quilt build/release/quilt

Run from the root of the repository, with the Debian package python3-distributed.
"""

import importlib.util
import json
import os
import re
import sqlite3
import subprocess
import sys
import time
from pathlib import Path

from support import hives
from support.whole_runs import ARGUMENTS, SAMPLE, Runs, main, small_database

FLEET = os.path.abspath("fleet/quilt_fleet.py")
PYTHON = sys.executable if importlib.util.find_spec("distributed") else "/usr/bin/python3"
INPUTS = 1000


def rows(path):
    return [json.loads(line) for line in Path(path).read_text("utf-8").splitlines()]


class Fleet(Runs):
    def fleet(self, *words, code=0):
        result = subprocess.run([PYTHON, FLEET, "--quilt", ARGUMENTS.quilt.words[-1], "--into", self.path("out"), *words],
                                capture_output=True, text=True, timeout=500, check=False)
        self.assertEqual((result.returncode, "Traceback" in result.stderr), (code, False), result.stderr)
        return result.stderr

    def begin(self, *words):
        process = subprocess.Popen([PYTHON, "-m", *words], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def wait_for(self, holds):
        end = time.monotonic() + 120
        while not holds():
            self.assertLess(time.monotonic(), end)
            time.sleep(0.02)

    def test_each_input_is_reported_once_though_a_worker_dies(self):
        for i in range(INPUTS):
            self.write(f"collection/{i % 10}/{i}.sdb", small_database(i % 7 + 1, f"base {i}"))
        file = self.path("scheduler")
        self.begin("distributed.cli.dask_scheduler", "--scheduler-file", file, "--port", "0", "--no-dashboard")
        self.wait_for(lambda: os.path.exists(file) and Path(file).read_text("utf-8").endswith("}"))
        address = json.loads(Path(file).read_text("utf-8"))["address"]
        workers = [self.begin("distributed.cli.dask_worker", address, "--nthreads", "1", "--no-nanny",
                              "--no-dashboard", "--local-directory", self.path(f"worker{i}")) for i in range(2)]
        run = subprocess.Popen([PYTHON, FLEET, "--quilt", ARGUMENTS.quilt.words[-1], "--into", self.path("out"),
                                "--scheduler", address, self.path("collection"), "--", "-apps"],
                               stderr=subprocess.PIPE, text=True)
        parts = lambda: list(Path(self.path("out")).glob("parts/*/*.jsonl"))
        self.wait_for(lambda: len(parts()) > INPUTS // 4)
        workers[0].kill()
        workers[0].wait()
        self.assertLess(len(parts()), INPUTS)  # it was in the middle
        said = run.communicate(timeout=400)[1]
        self.assertEqual(run.returncode, 0, said)
        told = rows(self.path("out/inputs.jsonl"))
        self.assertEqual(sorted(row["input"] for row in told),
                         sorted(map(str, Path(self.path("collection")).rglob("*.sdb"))))
        self.assertEqual(sorted(self.path("out/") + row["part"] for row in told), sorted(map(str, parts())))
        for row in told:
            lines = rows(self.path("out/") + row["part"])
            names = {line["database"] for line in lines if "database" in line}
            records = sum(line["kind"] == "record" for line in lines)
            number = int(Path(row["input"]).stem)
            self.assertEqual((names, records, lines[-1]["whole"]), ({row["input"]}, number % 7 + 1, True))
        self.assertEqual(list(Path(self.path("out")).rglob("*.partial")), [])

    def test_failures_are_listed_and_what_is_done_is_not_done_again(self):
        whole = Path(SAMPLE).read_bytes()
        cut = self.write("in/cut.sdb", whole[:1000])
        self.write("in/good.sdb", whole + bytes(4))
        self.write("in/no database.txt", b"text")
        self.write("in/system/Windows/AppPatch/a.sdb", whole)
        hives.make_hive(self.write("in/SOFTWARE", b""), {"{A}": hives.installed("C:\\a.sdb", "", 1)})
        self.write("in/SOFTWARE.LOG1", b"regf" + bytes(24) + b"\x06" + bytes(999))
        stray = self.write("stray", b"no database either")
        listed = self.write("list", os.fsencode(f"{self.path('in')}\n{cut}\n{stray}\n"))
        said = self.fleet("--workers", "1", "--list", listed, "--", "-apps", code=1)
        self.assertIn(f"failed: {cut}: {cut} is cut off", said)
        self.assertIn("5 of 5 inputs, 2 failed", said)
        told = {row["input"]: row for row in rows(self.path("out/inputs.jsonl"))}
        self.assertEqual({Path(path).name: (row["kind"], row["exit"]) for path, row in told.items()},
                         {"cut.sdb": ("database", 255), "good.sdb": ("database", 0), "system": ("system", 0),
                          "SOFTWARE": ("hive", 0), "stray": ("database", 255)})
        self.assertEqual({row["input"] for row in rows(self.path("out/failed.jsonl"))}, {cut, stray})
        self.assertTrue(told[self.path("in/good.sdb")]["notices"])
        base = sqlite3.connect(":memory:")  # in which the questions of the page find something
        for table, paths in (("report", Path(self.path("out/parts")).rglob("*.jsonl")),
                             ("input", [self.path("out/inputs.jsonl")])):
            base.execute(f"CREATE TABLE {table}(line)")
            base.executemany(f"INSERT INTO {table} VALUES(?)",
                             [[line] for path in paths for line in Path(path).read_text("utf-8").splitlines()])
        questions = re.findall(r"(?s)\n    (SELECT .*?;)\n", Path("docs/fleet.md").read_text("utf-8"))
        self.assertEqual([len(base.execute(question).fetchall()) > 0 for question in questions], [True] * 3)
        moments = {path: os.stat(self.path("out/") + row["part"]).st_mtime_ns for path, row in told.items()
                   if row["part"]}
        self.write("in/cut.sdb", whole)
        os.utime(stray, ns=(0, 0))
        self.fleet("--workers", "1", "--list", listed, "--", "-apps", code=1)
        again = {row["input"]: row for row in rows(self.path("out/inputs.jsonl"))}
        self.assertEqual({path for path, moment in moments.items()
                          if os.stat(self.path("out/") + again[path]["part"]).st_mtime_ns != moment}, {cut, stray})
        self.assertEqual(again, {**told, cut: {**told[cut], "exit": 0, "notices": []}})

    def test_no_entry_of_a_folder_hides_another(self):
        whole = Path(SAMPLE).read_bytes()
        for name in ("a/x.sdb", "a/below/y.sdb", "b/Windows/AppPatch/z.sdb"):
            self.write(f"in/{name}", whole)
        self.write("in/a/Windows", b"a file")
        os.symlink("nowhere", self.path("in/a/below/WINDOWS"))
        os.symlink("self", self.path("in/self"))
        os.symlink("a", self.path("in/link"))
        said = self.fleet("--workers", "1", self.path("in"), code=1)
        self.assertEqual({Path(row["input"]).name: row["exit"] for row in rows(self.path("out/inputs.jsonl"))},
                         {"x.sdb": 0, "y.sdb": 0, "b": 0, "self": 255})
        self.assertIn(f"{self.path('in/link')} is a link to a folder, not entered", said)
        # What became another is done again, however old it says that it is.
        before = {row["input"]: row["part"] for row in rows(self.path("out/inputs.jsonl"))}
        self.write("in/a/x.sdb", Path("examples/changed.sdb").read_bytes())
        self.write("in/b/Windows/AppPatch/new.sdb", whole)
        os.utime(self.path("in/a/x.sdb"), ns=(0, 0))
        self.fleet("--workers", "1", self.path("in"), code=1)
        told = {line["database"] for line in rows(self.path("out/") + before[self.path("in/b")]) if "database" in line}
        self.assertEqual({Path(path).name for path in told}, {"z.sdb", "new.sdb"})
        journal = [json.loads(line) for line in Path(self.path("out/journal.jsonl")).read_text("utf-8").splitlines() if line]
        self.assertEqual([row["input"] for row in journal[3:]], [self.path("in/a/x.sdb"), self.path("in/b")])

    def test_what_cannot_work_is_refused_before_anything_is_written(self):
        self.write("in/a.sdb", Path(SAMPLE).read_bytes())
        for words in (("--workers", "0", "IN"), ("IN", "--", "-nosuch"), ("IN", "--", "-h"), ("IN", "--", "-apps", "-out", "x"),
                      ("IN", "--", "-explian"), ("IN", "--", "--threads", "2"), ("IN", "--", "-only", "high"),
                      ("IN", "--", "-apps", "-known", "nowhere.sdb"), ("--into", "IN/results", "IN"),
                      ("--into", "IN/a.sdb", "IN")):
            self.fleet(*(word.replace("IN", self.path("in")) for word in words), code=2)
        self.assertEqual([os.path.exists(self.path(name)) for name in ("out", "in/results")], [False, False])


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Runs the real quilt on targets of every kind: files, lists, registries; and looks at what it leaves.

    python3 tests/targets_test.py --quilt build/release/quilt [--windows "wine quilt.exe"]

Run from the root of the repository.
"""

import csv
import ctypes
import fcntl
import hashlib
import os
import re
import shlex
import shutil
import subprocess
import sys
import threading
import time
import unittest
from contextlib import ExitStack
from pathlib import Path

from support import hives
from support.whole_runs import (ARGUMENTS, COMMANDS, COMPRESSED, FAILED, SAMPLE, Database,
                                Runs, main, masked, run, small_database)


class Registry(Runs):
    """A hive with hundreds of databases, read by quilt and by hivexml."""

    def databases(self):
        found = {f"{{{i:04x}-Ключ}}" if i % 7 == 0 else f"{{{i:04X}-key}}":
                 hives.installed(f"C:\\Custom\\Base {i} Äх計.sdb", f"Number {i}, ü and 計",
                                 hives.MOMENT + i * 36_000_000_000) for i in range(600)}
        keys = list(found)
        found[keys[1]] += [("Large", hives.BINARY, bytes(range(256)) * 80),
                           ("Empty", hives.BINARY, b""), ("", hives.SZ, hives.text("Default"))]
        found[keys[2]] = [("DatabasePath", hives.EXPAND_SZ, hives.text("D:\\%TEMP%\\expanded.sdb")),
                          ("DatabaseDescription 計", hives.SZ, hives.text("named in UTF-16"))]
        found[keys[3]] = [("Größe type", hives.DWORD, b"\1\0\0\0"),
                          ("Über path", hives.SZ, hives.text("E:\\latin.sdb")),
                          {"below": hives.installed("C:\\below.sdb", "", 1)}]
        found[keys[4]] = []
        found[keys[5]] = hives.installed("F:\\other\\BASE 1 Äх計.sdb", "second of a name", 1)
        found[keys[6]] = [("DatabaseDescription", hives.SZ, hives.text("without a path"))]
        found[keys[8]] += [("DatabaseDescription", hives.SZ, hives.text("x" * 10_240))]
        return found

    def expected(self, hive):
        """What is installed, by file name and then key: name, path, description, times."""
        expected = []
        for key, (moment, values) in hives.read_installed(hive).items():
            facts = {}
            for name, value in values.items():
                facts[next((word for word in ("description", "type", "timestamp", "path")
                            if word in name.lower()), None)] = value
            path = facts.get("path", "")
            if values:
                name = "".join(c.lower() if c.isascii() else c for c in path.rpartition("\\")[2])
                expected.append((name, key, path, facts.get("description", ""),
                                 facts.get("timestamp", 0), moment))
        return sorted(expected, key=lambda one: (one[0].encode(), one[1].encode().lower()))

    def test_no_path_of_a_registry_forges_a_line(self):
        hive, path = self.path("SOFTWARE"), "a\nDatabase MD5           | 0.sdb"
        hives.make_hive(hive, {"{A}": hives.installed("C:\\" + path, "", 1)})
        shown = path.replace("\n", "[LF]").encode()
        self.assertIn(b"\nC:\\" + shown + b"\n", run(f"-listsdb -reg {hive}").stdout)
        self.write(path, Path(SAMPLE).read_bytes())  # a file may have such a name
        self.assertRegex(run(f"-stats -partition . -reg {hive}", cwd=self.folder).stdout,
                         rb"(?m)^Database Path/File +\| \./" + re.escape(shown) + b"$")

    def test_a_search_for_bins_takes_little_memory(self):
        os.truncate(hive := self.write("SOFTWARE", b"regf"), 1 << 30)
        with open(os.devnull, "wb") as nowhere:
            process = subprocess.Popen([*ARGUMENTS.quilt.words, "-listsdb", "-reg", hive],
                                       stdout=nowhere, stderr=nowhere)
            _, process.returncode, usage = os.wait4(process.pid, 0)
        # KiB; a sanitizer holds back much of what was freed.
        self.assertLess(usage.ru_maxrss, 512 * 1024)

    def test_what_hivexml_reads_is_what_is_reported(self):
        hive = self.path("SOFTWARE")
        hives.make_hive(hive, self.databases())
        expected = self.expected(hive)
        self.assertGreater(len(expected), 590)
        result = run(f"-listsdb -reg {hive}", cwd=self.folder)
        self.assertEqual((result.returncode, result.stderr, result.stdout.decode().split("\n")[3:]),
                         (0, b"", [*(path for _, _, path, *_ in expected if path), "", ""]))

        # By name alone none is known that stands in two folders.
        names = list(dict.fromkeys(name for name, _, path, *_ in expected if path))
        twice = {name for name in names if [one[0] for one in expected].count(name) > 1}
        self.assertEqual(len(twice), 1)
        names.append("unknown.sdb")
        lines = "".join(self.write(name, small_database(0, "x")) + "\n" for name in names).encode()
        report = run(f"-pipe -stats -csv -no_whitespace -quiet -reg {hive}", lines=lines)
        self.assertEqual((report.returncode, report.stderr.decode()), (0, "".join(
            f"{self.path(name)}: the registry knows this name, but not at this path\n"
            for name in twice)))
        header, *rows = csv.reader(report.stdout.decode().split("\n")[3:-1])
        self.assertEqual([row[0] for row in rows], names)
        stats, extra = header.index("DB stats"), header.index("Extra info")
        facts = {name: rest for name, _, *rest in expected if name not in twice}
        for row in rows:
            if row[0] not in facts:
                self.assertEqual((row[stats], row[extra]), ("strings: 2", "RegDB Path: "))
                continue
            path, description, installed, moment = facts[row[0]]
            description = description.replace(",", " ")
            self.assertEqual(row[stats], "strings: 2; Install Timestamp: ; Reg LastMod Timestamp: ; "
                             f"Database Description: {description}; Database Types: ; "
                             f"Database Path: {path}")
            install = f"; Install time: {hives.moment_text(installed)}" if installed else ""
            self.assertEqual(row[extra], f"RegDB Path: {path}{install}; "
                             f"Reg modtime: {moment:%Y-%m-%d %H:%M:%S}.000")

    def test_what_is_wrong_with_a_hive_is_said_and_the_rest_is_done(self):
        hives.make_hive(good := self.path("good"), {"{A}": hives.installed("C:\\a.sdb", "", 1)})
        whole, end = self.read("good"), self.read("good").rindex(b"vk\x0c\x00")
        for name, contents in (("empty", b""), ("cut", whole[:end]), ("bare", hives.empty_hive()),
                               ("damaged", whole[:end] + b"xx" + whole[end + 2:])):
            self.write(name, contents)
        os.mkdir(self.path("folder"))
        os.mkfifo(self.path("pipe"))
        own = masked(run(f"-sdb {SAMPLE} -stats").stdout)
        for hive, code, said in (
            ("nowhere", FAILED, "Prob reading hive {}: no such file\n"),
            ("folder", FAILED, "Prob reading hive {}: is a folder\n"),
            ("pipe", FAILED, "Prob reading hive {}: is a pipe\n"),
            ("/dev/null", FAILED, "Prob reading hive {}: is a device\n"),
            ("empty", FAILED, "Prob reading hive {}: is no hive\n"),
            (os.path.abspath(SAMPLE), FAILED, "Prob reading hive {}: is no hive\n"),
            ("bare", 0, "hive {} has no key of installed databases\n"),
            ("cut", FAILED, "hive {} is damaged, not all that it should hold was read\n"),
            ("damaged", FAILED, "hive {} is damaged, not all that it should hold was read\n"),
            ("good", 0, ""),
        ):
            with self.subTest(hive=hive):
                path = self.path(hive)
                told = "" if code and hive not in ("cut", "damaged") or hive == "bare" else \
                    "installed on another machine, not opened: C:\\a.sdb\n"
                result = run(f"-sdb {SAMPLE} -stats -quiet -reg {path}")
                self.assertEqual((result.returncode, result.stderr.decode()),
                                 (code, said.format(path) + told))
                self.assertEqual(masked(result.stdout), own)

    def test_a_stored_path_is_opened_only_where_it_belongs(self):
        """Here the working folder looks like the drive of the hive's machine."""
        hive = self.path("SOFTWARE")
        hives.make_hive(hive, {"{A}": hives.installed("C:\\a.sdb", "", 1),
                               "{B}": hives.installed("a.sdb", "", 1),
                               "{C}": hives.installed("C:\\x\\..", "", 1)})
        for name in ("C:\\a.sdb", "a.sdb", "C:/a.sdb"):
            self.write(name, Path(SAMPLE).read_bytes())
        no_file = "installed under a path that names no file: C:\\x\\..\n"
        outside = "installed on no drive or outside of the volume, not opened: a.sdb\n"
        for options, listed, said in (
            ("-listsdb", "C:\\a.sdb\na.sdb\n", no_file),
            ("-listsdb -partition .", "./a.sdb\n", no_file + outside),
            ("-stats -csv", "", no_file + "installed on another machine, not opened: C:\\a.sdb\n"
             + outside + "no database found on c:\n"),
        ):
            result = run(f"{options} -reg SOFTWARE", cwd=self.folder)
            self.assertEqual((result.returncode, result.stderr.decode()), (FAILED, said))
            self.assertEqual(result.stdout.decode().split('"\n')[1].rstrip("\n"),
                             listed.rstrip("\n"))


class Lists(Runs):
    NAMES = ["./a.sdb", "./b.SDB", "./sysmain.sdb", "./a.sdb.bak", "./计.sdb", "./AppPatch/c.sdb",
             "./AppPatch/packed.sdb"]

    def setUp(self):
        super().setUp()
        for name in self.NAMES[:-1]:
            self.write(name, small_database(1, name))
        self.write(self.NAMES[-1], Path(COMPRESSED).read_bytes())
        os.utime(self.path("a.sdb"), (0, 1_577_959_200))  # 2020-01-02 10:00:00
        self.write("empty", b"")
        self.write("text", b"no database")

    def databases(self, options, lines=b""):
        """The names of the databases that are reported on."""
        report = run(f"-stats {options}", lines=lines, cwd=self.folder).stdout.decode()
        return re.findall(r"(?m)^Database Path/File +\| (?:\./)?(.*)$", report)

    def test_lists(self):
        self.check_commands("lists.txt", cwd=self.folder, files=self.NAMES)

    def test_a_folder_is_filtered_as_a_list_is(self):
        lines = "".join(f"{name}\n" for name in self.NAMES).encode()
        filters = re.findall("-filter (.*) < all", (COMMANDS / "lists.txt").read_text("utf-8"))
        self.assertGreater(len(filters), 20)
        for words in filters:
            listed = self.databases(f"-enumdir . -num_subdirs 1 -filter {words}")
            piped = self.databases(f"-pipe -filter {words}", lines)
            self.assertEqual((words, sorted(listed)), (words, sorted(piped)))

    def test_lines(self):
        a, b = "a.sdb".encode(), "计.sdb".encode()
        for lines, expected in (
            (a + b"\n" + b, ["a.sdb", "计.sdb"]),
            (a + b"\r\r\n\n\r\n\r\r\n" + b + b"\r\n", ["a.sdb", "计.sdb"]),
            (b"x" * 5000 + b"\n" + a, ["a.sdb"]),
            (b"x" * 4095 + a + b"\n" + b, ["a.sdb", "计.sdb"]),  # a long line is two entries
            (b"\xff\xff.sdb\n" + a + b"\n", ["a.sdb"]),
            (b'"a.sdb"\r\n' + b, ["a.sdb", "计.sdb"]),
            *((f'{mark}"a.sdb"\r\n计.sdb\n'.encode(encoding), ["a.sdb", "计.sdb"])
              for mark, encoding in (("", "utf-8-sig"), ("\ufeff", "utf-16-le"),
                                     ("\ufeff", "utf-16-be"))),
        ):
            self.assertEqual((lines, self.databases("-pipe", lines)), (lines, expected))
        for lines, said in ((b"\n\r\n", "no database in the list\n"),
                            (a + b"\0" + b + b"\n" + b, "line 1 of the list holds a NUL, what "
                                                        "stands behind it is left out\n")):
            self.printed("-pipe -stats -quiet", lines=lines, code=FAILED, messages=said,
                         cwd=self.folder)

    def run_list(self, options, lines):
        """All that a run gives into pipes: exit value, report, messages, results, and how often the log
        tells of a compressed file."""
        for name in ("out", "out.partial", "log"):
            Path(self.path(name)).unlink(missing_ok=True)
        result = subprocess.run([*ARGUMENTS.quilt.words, *options.split()], check=False, timeout=120,
                                cwd=self.folder, input=lines, capture_output=True)
        written = {name: masked(self.read(name)) for name in ("out", "out.partial")
                   if os.path.exists(self.path(name))}
        logged = self.read("log").count(b"Compressed") if "log" in options else 0
        return result.returncode, masked(result.stdout), result.stderr, written, logged

    def test_any_number_of_threads_gives_the_same(self):
        large, sample = small_database(1500, "large"), Path(SAMPLE).read_bytes()
        program = bytearray(1000)
        program[:2], program[60], program[128:132], program[152:154] = b"MZ", 128, b"PE\0\0", b"\x0b\x02"
        bad = Path(COMPRESSED).read_bytes()[:-20]
        for name, contents in (("large.sdb", large), ("cut.sdb", large[:9000]), ("bad.sdb", bad),
                               ("hollow.sdb", Database().image()), ("long.sdb", sample + b"more"),
                               ("tool1000.exe", program), ("cut.exe", program[:200])):
            self.write(name, contents)
        names = sorted(os.listdir(self.folder))
        lines = "".join(f"{name}\n" for name in [
            "nowhere", *names, "AppPatch/packed.sdb", "", "large.sdb", *["text"] * 40, "b.SDB\0behind",
            "y" * 5000, "log", "out", *["b.SDB", "tool1000.exe"] * 20, *names[::-1]]).encode()
        for options in ("-stats", "-stats -csv -out out", "-stats -csvl2t -filter *.sdb",
                        "-stats -bodyfile -quiet", "-apps", "-exes -csvgen -diags log", "-guids",
                        "-strings tool1", "-match -pe tool1000.exe -out out", "-pe -stats",
                        "-pe -stats -csv", "-apps -guids -json", "-apps -guids -html", "-stats -html",
                        "-match -pe tool1000.exe -json"):
            for target, given in (("-pipe", lines), ("-enumdir . -num_subdirs 2", b"")):
                one, *others = (self.run_list(f"{options} {target} -threads {threads}", given)
                                for threads in (1, 2, 8))
                with self.subTest(options=options, target=target):
                    self.assertGreater(len(b"".join([one[1], *one[3].values()])), 200)
                    self.assertEqual(one[4] > 1, "-diags" in options)
                    self.assertEqual(others, [one, one])

    def test_a_line_is_answered_before_the_next_one_comes(self):
        for threads in ("1", "4"):
            words = [*ARGUMENTS.quilt.words, *"-pipe -stats -csv -quiet -threads".split(), threads]
            # A stream that is a file might be a later line.
            with subprocess.Popen(words, cwd=self.folder, stdin=subprocess.PIPE,
                                  stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) as process:
                patience = threading.Timer(30, process.kill)
                patience.start()
                for name in (b"a.sdb", b"b.SDB"):
                    process.stdin.write(name + b"\n")
                    process.stdin.flush()
                    lines = iter(process.stdout.readline, b"")
                    self.assertTrue(any(line.startswith(name) for line in lines), "no answer")
                patience.cancel()

    def test_results_file(self):
        for form in ("", "-csv"):
            options = f"-stats {form} -pipe -quiet"
            lines = f"{self.path('a.sdb')}\n{self.path('b.SDB')}\n".encode()
            printed = self.printed(options, lines=lines)
            self.assertEqual(self.printed(f"{options} -out {self.path('out')}", lines=lines), b"")
            self.assertEqual(self.read("out").count(b"\n"), self.read("out").count(b"\r\n"))
            self.assertEqual(masked(self.read("out")), masked(printed))
        listing = run(f"-listsdb -partition {self.folder} -out {self.path('out')}")
        self.assertEqual((listing.returncode, listing.stdout), (FAILED, b"\n"))
        self.assertEqual(self.read("out").count(b"\n"), 3)


class Signals(Runs):
    """A second process waits for the end of a run."""
    NAME = f"quilt-test-{os.getpid()}"
    OPEN = f"""
import ctypes
import hashlib
libc = ctypes.CDLL(None, use_errno=True)
libc.sem_open.restype = ctypes.c_void_p
event = ctypes.c_void_p(libc.sem_open(b"/{NAME}", {os.O_CREAT}, 0o600, 0))
"""

    def wait_for(self, waiter, program, code):
        self.addCleanup(waiter.stdout.close)
        self.addCleanup(waiter.kill)
        self.assertEqual(waiter.stdout.readline().strip(), b"waits")
        time.sleep(0.2)
        self.assertIsNone(waiter.poll())
        program.run("-sdb", SAMPLE, "-shims", "-signal", self.NAME)
        self.assertEqual(waiter.wait(60), code)

    def test_semaphore(self):
        self.addCleanup(ctypes.CDLL(None).sem_unlink, f"/{self.NAME}".encode())
        for options in (f"-sdb {SAMPLE} -shims", "-apps"):  # the second run fails
            run(f"{options} -signal {self.NAME}")
            # A new one would be at 0; this one was left by the run.
            exec(self.OPEN, found := {})
            takes = [found["libc"].sem_trywait(found["event"]) for _ in range(2)]
            self.assertEqual((options, takes), (options, [0, -1]))  # raised once
        waiter = self.OPEN + 'print("waits", flush=True)\nlibc.sem_wait(event)'
        self.wait_for(subprocess.Popen([sys.executable, "-c", waiter], stdout=subprocess.PIPE),
                      ARGUMENTS.quilt, 0)

    @unittest.skipIf(shutil.which("x86_64-w64-mingw32-gcc") is None, "no compiler for what waits")
    def test_windows_event(self):
        program, waiter = self.windows(), self.path("wait.exe")
        subprocess.run(["x86_64-w64-mingw32-gcc", "-o", waiter, "tests/support/wait_for_event.c"],
                       check=True)
        self.wait_for(subprocess.Popen([*program.words[:-1], waiter, self.NAME],
                                       stdout=subprocess.PIPE), program, 7)


class Files(Runs):
    def report(self, path, options="", **places):
        return self.printed("-sdb", path, "-fixes", "-quiet", *options.split(), **places)

    def test_results_file(self):
        old = b"old contents\n"
        for option in ("-out", "-outfile"):
            for more, stays in (("", b""), ("-csv", b""), ("-csv -append", old)):
                with self.subTest(option=option, more=more):
                    out = self.write("out", old)
                    self.assertEqual(self.report(SAMPLE, f"{option} {out} {more}"), b"")
                    self.assertEqual(masked(self.read("out")),
                                     stays + masked(self.report(SAMPLE, more.split(" ")[0])))
                    os.unlink(out)
        second = self.path("second")
        self.printed(f"-sdb {SAMPLE} -quiet -apps -outfile {second} -out {self.path('first')}",
                     messages=f"ignored: -outfile\nignored: {second}\n")
        self.assertEqual(os.listdir(self.folder), ["first"])

    def test_log(self):
        log = self.path("log")
        self.printed("-sdb", SAMPLE, "-fixes", "-quiet", "-diags", log, "-hostname", "two words")
        self.assertRegex(self.read("log").decode(), rf"^->{re.escape(ARGUMENTS.quilt.words[0])} "
                         r'-sdb .* -hostname "two words"->[\d.e-]+ secs$')
        self.printed(f"-sdb {SAMPLE} -fixes -quiet -diags {self.path('no/log')}", code=FAILED,
                     messages=f"prob opening log {self.path('no/log')}: no such file\n")

    def test_elapsed_time(self):
        result = run(f"-sdb {SAMPLE} -shims -profile -quiet")
        self.assertRegex(result.stderr, rb"^->[\d.e-]+ secs\n$")

    def test_paths(self):
        sample = Path(SAMPLE).read_bytes()
        deep = os.path.join(*["a folder whose name is long" * 5] * 3, "x.sdb")
        for name in ("Windows/AppPatch/Custom.sdb", "Windows/AppPatch/Чертёж/計測器.sdb", deep,
                     "back\\slash.sdb"):  # a name as typed comes first
            self.write(name, sample)
        for name in ("Windows/AppPatch/custom.SDB", "back/slash.sdb"):
            self.write(name, b"no database")
        expected = self.report(SAMPLE)
        places = {"cwd": self.folder, "env": {"PATCHES": "windows\\APPPATCH"}}
        for path in ("Windows/AppPatch/Custom.sdb", "windows\\apppatch\\Custom.sdb",
                     "WINDOWS/AppPatch\\CUSTOM.sdb", ".\\windows\\..\\Windows//AppPatch/Custom.sdb",
                     "%PATCHES%\\Custom.sdb", self.folder + "\\windows\\apppatch\\Custom.sdb",
                     "windows/apppatch/Чертёж/計測器.SDB", "back\\slash.sdb", self.path(deep),
                     self.path(deep).replace("x.sdb", "X.SDB").replace("/", "\\")):
            self.assertEqual(self.report(path, **places), expected, path)
            shown = path.replace("%PATCHES%", "windows\\APPPATCH")
            self.assertIn(f"[{shown}]\n".encode(), self.report(path, "-multiline", **places))

    def test_no_way_leads_to_what_is_read(self):
        """Not a stream, a list or its entry, nor another name of the partial file."""
        sample = Path(SAMPLE).read_bytes()
        a, log = self.write("a.sdb", sample), self.write("log.sdb", sample)
        listed = self.write("list", b"a.sdb\nlog.sdb\n")
        os.link(a, self.path("out.partial"))
        written = os.stat(log).st_mtime_ns
        for options, code, streams in (
                ("-pipe -stats -out list", FAILED, {"stdin": listed}),
                ("-pipe -stats -out other -diags log.sdb", FAILED, {"stdin": listed}),
                ("-sdb a.sdb -stats", FAILED, {"stdout": a}),
                ("-sdb a.sdb -stats -bogus", FAILED, {"stderr": a}),
                ("-sdb a.sdb -patchbytes zz", FAILED, {"stdout": a}),
                ("-pipe -stats", FAILED, {"stdin": listed, "stderr": log}),
                ("-enumdir . -stats", FAILED, {"stdout": log}),
                ("-pipe -stats -csv -append -out log.sdb", FAILED, {"stdin": listed}),
                ("-sdb log.sdb -stats -out both", FAILED, {"stdout": self.path("both")}),
                ("-sdb log.sdb -stats -out out", 0, {})):
            with ExitStack() as opened:
                streams = {name: opened.enter_context(open(path, "rb" if name == "stdin" else "ab"))
                           for name, path in streams.items()}
                nowhere = dict.fromkeys(("stdin", "stdout", "stderr"), subprocess.DEVNULL)
                result = subprocess.run([*ARGUMENTS.quilt.words, *options.split()], check=False,
                                        cwd=self.folder, **{**nowhere, **streams})
            self.assertEqual((options, result.returncode), (options, code))
            self.assertEqual((self.read("a.sdb"), self.read("log.sdb"), self.read("list")),
                             (sample, sample, b"a.sdb\nlog.sdb\n"))
            self.assertEqual(os.stat(log).st_mtime_ns, written)
        self.assertTrue(self.read("other") and self.read("out"))

    def test_two_runs_do_not_write_one_file(self):
        """One that has begun waits, as nobody reads its messages, while the other tries."""
        for options in ("-out out", "-csv -append -out out"):
            self.write("out", b"old\n")
            words = [*ARGUMENTS.quilt.words, "-pipe", "-stats", *options.split()]
            first = subprocess.Popen(words, cwd=self.folder, stdin=subprocess.PIPE,
                                     stderr=subprocess.PIPE)
            self.addCleanup(first.stderr.close)
            while not os.path.exists(self.path("out.partial")):
                time.sleep(0.01)
            for more in (["-pipe"], []):
                target = [] if more else ["-sdb", os.path.abspath(SAMPLE)]
                second = subprocess.run([words[0], *more, *target, *words[2:]], cwd=self.folder,
                                        input=b"", capture_output=True, check=False)
                if more or "-append" not in options:
                    self.assertEqual(second.returncode, FAILED)
                    self.assertIn(b"out.partial: ", second.stderr)
            first.stdin.write(os.path.abspath(SAMPLE).encode())
            first.stdin.close()
            self.assertEqual(first.wait(60), 0)
            self.assertEqual(self.read("out").count(b"quilt ver"),
                             2 if "-append" in options else 1)
            self.assertFalse(os.path.exists(self.path("out.partial")))
        self.write("out", b"old\n")
        with open(self.path("out"), "rb") as held:  # as another run that appends holds it
            fcntl.flock(held, fcntl.LOCK_EX)
            result = run(f"-pipe -stats -csv -append -out {self.path('out')}",
                         lines=os.path.abspath(SAMPLE).encode())
        self.assertEqual((result.returncode, self.read("out")), (FAILED, b"old\n"))
        self.assertIn(b"stands in", result.stderr)

    def test_streams_that_are_closed_full_or_gone(self):
        quilt = shlex.join([*ARGUMENTS.quilt.words, "-sdb", os.path.abspath(SAMPLE), "-apps"])
        os.mkfifo(self.path("pipe"))
        progress = f"processing {os.path.abspath(SAMPLE)}\n"
        run(f"-sdb {os.path.abspath(SAMPLE)} -apps -quiet -out {self.path('out')}")
        report = self.read("out")
        for command, code, said in (
                (f"{quilt} -out out", 0, progress), (f"{quilt} -out out <&-", 0, progress),
                (f"{quilt} -out out >&-", 0, progress), (f"{quilt} -out out 2>&-", 0, ""),
                (f"{quilt} -out out <&- >&- 2>&-", 0, ""),
                (f"exec 3<>pipe; {quilt} -out pipe && head -c {len(report)} <&3 >out", 0, progress),
                (f"{quilt} >&-", FAILED, "standard output is closed, aborting\n"),
                (f"{quilt} -quiet >/dev/full", FAILED, "prob writing to standard output\n"),
                (f"{quilt} -quiet -out /dev/full", FAILED,
                 "prob writing results file: /dev/full\n"),
                (f"{{ sleep 0.3; {quilt} -quiet; }} | true", FAILED, ""),
                (f"{quilt.replace(os.path.abspath(SAMPLE), 'pipe')} -quiet -csv", FAILED,
                 "Prob analyzing file pipe: is a pipe\n")):
            result = subprocess.run(["bash", "-o", "pipefail", "-c", command], cwd=self.folder,
                                    capture_output=True, check=False, timeout=60)
            self.assertEqual((command, result.returncode, result.stderr.decode()),
                             (command, code, said))
            if code == 0:
                self.assertEqual((command, self.read("out")), (command, report))
                os.unlink(self.path("out"))

    def test_no_link_leads_off_a_volume(self):
        sample = Path(SAMPLE).read_bytes()
        self.write("elsewhere/x.sdb", sample)
        place = "v/Windows/AppPatch"
        self.write(f"{place}/a.sdb", sample)
        for name, target in (("Custom", "elsewhere"), ("own.sdb", "elsewhere/x.sdb")):
            os.symlink(self.path(target), self.path(f"{place}/{name}"))
        os.symlink("a.sdb", self.path(f"{place}/b.sdb"))
        self.write("v/windows/APPPATCH/hidden.sdb", sample)
        volume = self.path("v")
        listed = self.printed(f"-listsdb -quiet -partition {volume}", code=FAILED, messages=
                     f"{volume}/Windows/AppPatch/Custom is a link to a folder, not entered\n"
                     f"{volume}/Windows/AppPatch/own.sdb leads out of the volume, not opened\n"
                     f"no hive {volume}/Windows/System32/Config/Software: no such file\n")
        self.assertEqual(re.findall(r"\w+/\w+/\w+\.sdb", listed.decode()), [
            "Windows/AppPatch/a.sdb", "Windows/AppPatch/b.sdb", "windows/APPPATCH/hidden.sdb"])

    def test_the_extent_of_a_file(self):
        sample = Path(SAMPLE).read_bytes()
        size, longest = len(sample), 20 << 20
        packed = Path(COMPRESSED).read_bytes()
        for contents, code, said in (
                (sample + bytes(3), 0, f"behind its lists, from byte {size} on, stand 3 bytes that "
                                       "form no list"),
                (packed + bytes(3), 0, "behind its compressed stream stand 3 bytes"),
                (sample[:12], FAILED, "holds no database list"),
                (packed + bytes(longest), FAILED, "it does not inflate"),
                (sample[:-9], FAILED, f"is cut off: its {size - 9} bytes end before those of tag "
                                      f"0x[0-9a-f]*, which go up to byte {size}"),
                (sample + bytes(longest), FAILED, f"is too long: the report ends at byte {longest} of "
                                                  f"{longest + size}")):
            path = self.write("a.sdb", contents)
            result = run(f"-sdb {path} -stats -quiet")
            self.assertEqual((said, result.returncode), (said, code))
            self.assertRegex(result.stderr.decode(), said)
            if contents[8:] != sample[8:12] and contents[:12] != packed[:12]:
                self.assertIn(hashlib.md5(contents).hexdigest().encode(), result.stdout)


class WindowsPaths(Runs):
    """Spellings that Windows knows, of files in one folder: drive R, and the share \\server\share."""

    def setUp(self):
        super().setUp()
        self.program = self.windows()
        self.wine_drive("r:", self.folder)
        self.wine_drive("unc", self.folder)
        os.makedirs(self.path("server"))
        os.symlink("..", self.path("server/share"))
        self.sample = self.write("sample file.sdb", Path(SAMPLE).read_bytes())
        os.utime(self.sample, (1e9, 1.7e9))

    def run_windows(self, *options, **places):
        return self.program.run(*options, cwd=self.folder, **places)

    def test_a_path_without_a_drive_has_no_hive(self):
        os.makedirs(self.path("Windows/System32/config"))
        hives.make_hive(self.path("Windows/System32/config/SOFTWARE"),
                        {"{A}": hives.installed("r:\\sample file.sdb", "", 1)})
        for path, found in ((r"r:\sample file.sdb", True), (r"\\?\r:\sample file.sdb", False),
                            ("//?/r:/sample file.sdb", False),
                            (r"\\server\share\sample file.sdb", False)):
            report = self.run_windows("-sdb", path, "-stats").stdout
            self.assertEqual((path, b"Database MD5" in report, b"Registry ModTime" in report),
                             (path, True, found))

    def test_long_paths(self):
        name = "a folder whose name is long " * 4 + "x"
        deep = f"{name}/{name}/{name}"
        os.utime(self.write(f"{deep}/y.sdb", Path(SAMPLE).read_bytes()), (1e9, 1.7e9))
        back = deep.replace("/", "\\")
        for folder in (deep, f".\\{back}\\.\\..\\{name}", f"r:/{deep}/../{name}/.", f"r:{deep}",
                       f"//server/share/{deep}/../{name}", f"\\\\server\\share\\{back}",
                       f"\\\\?\\r:\\{back}", f"\\\\?\\UNC\\server\\share\\{back}"):
            report = self.run_windows("-sdb", f"{folder}\\y.sdb", "-stats").stdout.decode()
            self.assertRegex(report, r"File ModTime +\| 2023-11-14 22:13:20", folder)
            listed = self.run_windows("-enumdir", folder, "-num_subdirs", "1", "-stats").stdout
            shown = re.findall(r"(?m)^Database Path/File +\| (.*y\.sdb)\r?$", listed.decode())
            self.assertEqual((folder, len(shown)), (folder, 1))
            again = self.run_windows("-sdb", shown[0], "-stats").stdout  # as it is shown
            self.assertIn(b"2023-11-14 22:13:20", again, shown)

    def test_no_spelling_of_an_examined_file_is_written(self):
        os.link(self.sample, self.path("hard.txt"))
        before = os.stat(self.sample)
        for out in ("SAMPLE FILE.sdb", r"r:\Sample File.sdb", r"\\?\r:\sample file.sdb", "hard.txt",
                    r"server\..\sample file.sdb",
                    r"\\.\r:\sample file.sdb", "//server/share/sample file.sdb", "r:sample file.sdb"):
            for option in ("-out", "-diags"):
                result = self.run_windows("-sdb", self.sample, "-shims", option, out)
                self.assertEqual((out, result.returncode), (out, FAILED))
                self.assertIn(b"is examined by this run, aborting", result.stderr)
        self.assertEqual(self.read("sample file.sdb"), Path(SAMPLE).read_bytes())
        self.assertEqual((before.st_ino, before.st_mtime_ns, before.st_mode),
                         ((now := os.stat(self.sample)).st_ino, now.st_mtime_ns, now.st_mode))

    def test_results_file(self):
        options = ["-sdb", self.sample, "-shims", "-quiet", "-out"]
        report = run(*options[:-1]).stdout.replace(b"\n", b"\r\n")
        for old, mode in ((None, 0o604), (b"old", 0o404), (b"old", 0o600)):
            if old:
                os.chmod(self.write("out", old), mode)
            self.assertEqual(self.run_windows(*options, "out").returncode, 0)
            self.assertEqual(self.read("out"), report)
            self.assertEqual(os.stat(self.path("out")).st_mode & 0o606, mode)
            os.unlink(self.path("out"))
        for out, code in (("NUL", 0), (r"r:\nul", 0), ("server", FAILED), (r"no\out", FAILED),
                          (r"z:\dev\full", FAILED)):
            result = self.run_windows(*options, out)
            self.assertEqual((out, result.returncode, result.stderr != b""),
                             (out, code, code == FAILED))
        self.assertEqual(sorted(os.listdir(self.folder)), ["sample file.sdb", "server"])


if __name__ == "__main__":
    sys.exit(main())

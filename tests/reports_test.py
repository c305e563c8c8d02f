#!/usr/bin/env python3
"""Runs the real quilt and holds its reports against those in tests/golden.

    python3 tests/reports_test.py --quilt build/release/quilt [--windows "wine quilt.exe"] [--update]

Run from the root of the repository. With --windows the Windows program makes the same reports and
they must be the same bytes. With --update the expected reports are written anew.
"""

import csv
import os
import re
import sys
import tempfile
from pathlib import Path

from support import hives
from support.whole_runs import (ARGUMENTS, COMMANDS, COMPRESSED, GOLDEN, RULE, SAMPLE, Runs,
                                main, masked, run, small_database)

ALL_REPORTS = dict(re.findall(r"(?m)^(\w\S+) +(.*)", (COMMANDS / "reports.txt").read_text("utf-8")))
REPORTS, VOLUME_REPORTS, INSTALLED_REPORTS = (
    {name: options for name, options in ALL_REPORTS.items() if re.match(kind, name)}
    for kind in ("(?!volume|installed)", "volume", "installed"))
MESSAGES = b"messages:\n"
DIGESTS = rb'"size":\d+,"md5":"\w+","sha1":"\w+","sha256":"\w+"'
HIVE = "Windows/System32/config/SOFTWARE"


def volume_files():
    """What lies on the volume: a dozen databases, two of them damaged, and other files."""
    sample = Path(SAMPLE).read_bytes()
    patches, deep = "Windows/apppatch", "Windows/apppatch/1/2/3/4/5/6/7"
    return {
        "Windows/top.sdb": small_database(1, "Top"),
        f"{patches}/sysmain.sdb": sample,
        f"{patches}/DRVMAIN.SDB": small_database(2, "Drivers, and more\r\nof them"),
        f"{patches}/packed.sdb": Path(COMPRESSED).read_bytes(),
        f"{patches}/none.sdb": small_database(0, "None"),
        f"{patches}/readme.sdb.txt": b"no database",
        f"{patches}/de-DE/Чертёж 計測.sdb": small_database(3, "Чертёж 計測"),
        f"{deep}/eight.sdb": small_database(4, "Eight"),
        f"{deep}/8/nine.sdb": small_database(5, "Nine"),
        "Windows/SYSTEM32/CompatTel/cut.sdb": sample[:3000],
        "Windows/SYSTEM32/CompatTel/cut.txt": sample,
        "Windows/SYSTEM32/CompatTel/damaged.sdb": b"\0" * 64 + sample,
        "Windows/SYSTEM32/Appraiser/a.sdb": small_database(6, "Appraiser"),
        "Windows/SYSTEM32/elsewhere.sdb": small_database(7, "Elsewhere"),
    }


def installed_files():
    """Databases at their places, and those that the registry alone knows; one is gone."""
    return {
        "Windows/AppPatch/sysmain.sdb": small_database(1, "System"),
        "Windows/System32/CompatTel/telemetry.sdb": small_database(2, "Telemetry"),
        "Windows/System32/appraiser/appraiser.sdb": small_database(3, "Appraiser"),
        "ProgramData/Vendor/helper.sdb": small_database(4, "Helper"),
        "Users/Ольга/fonts.sdb": Path(SAMPLE).read_bytes(),
        "Windows/AppPatch/Custom/Custom64/fonts.sdb": small_database(5, "Custom64"),
        "ProgramData/Tarnwick/fonts.sdb": small_database(6, "Tarnwick"),
    }


def make_volume(folder, files=None):
    for number, (name, contents) in enumerate((files or volume_files()).items()):
        path = Path(folder, name)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(contents)
        os.utime(path, (1_300_000_000 + number, 1_400_000_000 + number * 86_400))


def make_installed_volume(folder):
    make_volume(folder, installed_files())
    Path(folder, HIVE).parent.mkdir()
    hives.make_hive(os.path.join(folder, HIVE), {
        "{B0}": hives.installed("C:\\PROGRAMDATA\\vendor\\Helper.SDB", "Helps, now", hives.MOMENT),
        "{A0}": hives.installed("C:\\Users\\Ольга\\fonts.sdb", "Шрифты", hives.MOMENT + 10**15),
        "{C0}": hives.installed("C:\\Windows\\Temp\\zz-gone.sdb", "Gone", hives.MOMENT),
        "{D0}": hives.installed("C:\\Elsewhere\\SYSMAIN.SDB", "Of that name", hives.MOMENT, 7),
        "{E0}": hives.installed("C:\\ProgramData\\Tarnwick\\fonts.sdb", "In its own folder",
                                hives.MOMENT + 3 * 10**14),
        "{F0}": hives.installed("C:\\Elsewhere\\..\\..\\out.sdb", "", 1),
        "{G0}": hives.installed("\\\\server\\share\\far.sdb", "", 1),
    })


def volume_lines(root):
    """What `find` and `sort` would put on standard input."""
    return "".join(f"{root}/{name}\n" for name in sorted(volume_files())).encode()


def volume_report(program, options, root):
    """A report about a volume, its messages and the exit value, without what no two runs share: the
    place of the volume, which the program knows as `root`, and when its files were made."""
    lines = volume_lines(root) if "-pipe" in options else b""
    result = program.run(*(word.replace("V", root, 1) for word in options.split()), lines=lines)
    report, messages = (text.replace(b"\r\n", b"\n").replace(root.encode(), b"<volume>")
                        for text in (masked(result.stdout), result.stderr))
    for pattern, put in (
        (rb"(?m)^(File CreateTime +\| ).*", rb"\1..."),
        (rb"(2011-03-13 *, [\d:.]{12},)[^,]*,[^,]*", rb"\1...,..."),
        (rb"(?m)^.*,File Created,.*\n", b""),
        (rb",\.A\.B,", b",.A..,"), (rb"; File Created,", b","),  # or the last write's moment
        (rb'("event":"created","time":)"[^"]*"', rb"\1null"),
        (rb'(?m)^\{"message":"file created.*\n', b""),
        (rb"(?m)(<volume>\S*) +$", rb"\1"),  # as wide as the place is long
    ):
        report = re.sub(pattern, put, report)
    return (report + MESSAGES + messages + b"exit value: %d\n" % result.returncode).decode()


def sample_report(report):
    """A report of the sample, of one of its two files, without what the file itself tells."""
    report = masked(report).replace(COMPRESSED.encode(), SAMPLE.encode())
    report = re.sub(rb'("source":"file","event":"\w+","time":)"[^"]*"', rb"\1null", report)
    return re.sub(rb'(%s),"compressed":\w+,"file":{%s}' % (DIGESTS, DIGESTS),
                  rb'\1,"compressed":false,"file":{\1}', report)


class Golden(Runs):
    def check(self, program):
        """Each report on standard output and in a file, where its lines end with CR LF."""
        folder = self.enterContext(tempfile.TemporaryDirectory(dir="."))
        out = os.path.join(os.path.basename(folder), "out")
        for name, options in REPORTS.items():
            expected = (GOLDEN / name).read_text("utf-8")
            for database in (SAMPLE, COMPRESSED):
                with self.subTest(report=name, database=database):
                    result = program.run("-sdb", database, *options.split())
                    messages = f"processing {database}\n"
                    if name in ("diff-csv.txt", "diff.xml"):  # which have no place for it
                        messages += (f"{database} -> examples/changed.sdb: 22 records stand unchanged, "
                                     "4 changed, 1 added, 1 removed\n")
                    self.assertEqual(result.stderr.replace(b"\r\n", b"\n").decode(), messages)
                    self.assertEqual((result.returncode, sample_report(result.stdout).decode()), (0, expected))
            with self.subTest(report=name, database="to a file"):
                result = program.run("-sdb", SAMPLE, *options.split(), "-out", out)
                self.assertEqual((result.returncode, result.stdout), (0, b""))
                report = Path(out).read_bytes()
                returns = 0 if name.endswith(".json") else report.count(b"\n")
                self.assertEqual(report.count(b"\r\n"), returns)
                self.assertEqual(sample_report(report).decode(), expected)

    def test_reports(self):
        self.check(ARGUMENTS.quilt)

    def test_windows_reports(self):
        self.check(self.windows())

    def test_every_golden_file_is_some_report(self):
        self.assertEqual({path.name for path in GOLDEN.iterdir()},
                         {*ALL_REPORTS, "usage.txt"})


class VolumeReports:
    """The reports about one volume, on both platforms."""

    def setUp(self):
        super().setUp()
        type(self).make(self.folder)

    def check(self, program, root, alike):
        for name, options in self.reports.items():
            with self.subTest(report=name):
                expected = (GOLDEN / name).read_text("utf-8")
                self.assertEqual(alike(volume_report(program, options, root)), alike(expected))

    def test_reports(self):
        self.check(ARGUMENTS.quilt, self.folder, str)

    def test_windows_reports(self):
        """The same but for separators and for the case of the folders that the program names."""
        program = self.windows()
        self.wine_drive("q:", self.folder)
        # The system that runs here has no hive in its place.
        self.check(program, "q:", lambda text: re.sub(
            r"(?m)^no hive c:/.*\n", "", text.replace("\\\\", "/").replace("\\", "/").lower()))


class Volume(VolumeReports, Runs):
    make, reports = make_volume, VOLUME_REPORTS

    def test_machines_read_the_delimited_forms(self):
        for form, separator in (("-csv", ","), ("-csv -no_whitespace", ","), ("-csvl2t", ","),
                                ("-csv -pair_datetime", ","), ("-csvl2t -pair_datetime", ","),
                                ("-csv -hostname H", ","),
                                ("-csv -enable_quoted_csv_fields -csv_separator TAB", "\t"),
                                ("-csvl2t -csv_separator |", "|")):
            with self.subTest(form=form):
                result = run(f"-stats -pipe -quiet {form}", lines=volume_lines(self.folder))
                lines = result.stdout.decode().replace(RULE, "").split("\n")[3:-1]
                header, *rows = csv.reader(lines, delimiter=separator)
                self.assertEqual({len(row) for row in rows}, {len(header)})
                header = [name.strip() for name in header]
                name, fact = map(header.index, ("short", "desc") if "MACB" in header else
                                 ("source file", "DB name"))
                self.assertEqual({row[name].strip() for row in rows},
                                 {os.path.basename(path) for path in volume_files()}
                                 - {"damaged.sdb", "readme.sdb.txt"})
                text = "Drivers{} and more[CRLF]of them".format(" " if separator == "," else ",")
                self.assertTrue(any(text in row[fact] for row in rows))


class Installed(VolumeReports, Runs):
    make, reports = make_installed_volume, INSTALLED_REPORTS


def update_golden():
    for old in GOLDEN.iterdir():
        old.unlink()
    (GOLDEN / "usage.txt").write_bytes(run("-quiet -help").stderr)
    for name, options in REPORTS.items():
        (GOLDEN / name).write_bytes(sample_report(run(f"-sdb {SAMPLE} -quiet {options}").stdout))
    for make, reports in ((make_volume, VOLUME_REPORTS), (make_installed_volume, INSTALLED_REPORTS)):
        with tempfile.TemporaryDirectory(prefix="quilt-") as volume:
            make(volume)
            for name, options in reports.items():
                report = volume_report(ARGUMENTS.quilt, options, volume)
                (GOLDEN / name).write_text(report, "utf-8")


if __name__ == "__main__":
    sys.exit(main(update=update_golden))

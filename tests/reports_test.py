#!/usr/bin/env python3
"""Runs the real quilt and looks at what comes out: reports, messages, files, exit values.

    python3 tests/reports_test.py --quilt build/release/quilt [--windows "wine quilt.exe"] [--update]

Run from the root of the repository. With --windows the Windows program makes the same reports and
they must be the same bytes. With --update the expected reports in tests/golden are written anew.
"""

import argparse
import csv
import ctypes
import os
import re
import shlex
import shutil
import struct
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

from support import hives

SAMPLE = "examples/sample.sdb"
COMPRESSED = "examples/sample-compressed.sdb"
GOLDEN = Path("tests/golden")
FAILED = 255
WIPE = b"\x1b[2K\r" + b" " * 27 + b"\r"
BANNER = b"quilt ver: 0.45\n"
DECLARATION = b'<?xml version="1.0" encoding="utf-8"?>\n'
RULE = b"-------------------- ["
USAGE = f"""{"-" * 77}

quilt ver: 0.45

Usage
 quilt -listsdb              = list SDB files on system volume
 quilt -stats                = pull stats from SDB files on system volume
 quilt -sdb <DB> [opts]      = target SDB file w/ specific option

 Enumerate options
  -apps                      = all apps (exes, packages, driverblocks,..)
  -exes                      = filter only exe tags
  -fixes                     = all types of fixes (shims, flags,..)
  -shims                     = filter only shim tag fixes
  -patches                   = filter only patch tag fixes
  -tag <#>                   = filter specific tag type
  -guids                     = enumerate guids
  -stringtable               = enumerate stringtable

 Find Options
  -strings "str1 | str2 |.." = finds partial strings [case insensitive]
  -guid <guid to find>       = syntax: 11111111-1111-1111-1111-111111111111
  -tagids "id1 | id2 |.."    = finds specified tagids
  -patchbytes "pattern"      = find patch, std::hex bytes w/ space delimiters
  -match                     = use w/ -pe <PE file> to check for shims

 Additional Options
  -vss <index>               = target Volume snapshop at index
  -partition <letter>        = target Shim DB locations in this volume
  -pipe                      = use stdin to identify files to process
  -stats -sdb <file>         = pull stats (on SDB File). [-reg <sw hive>]
  -stats -pe <file>          = pull stats (on PE File)
  -enumsdb                   = list SDB files
  -filter <*partial*|*.ext>  = filters stdin data from -pipe option

 General Examples
  quilt -sdb <file> -apps    = pull all apps from DB
  quilt -sdb <file> -patches = pull all patches from DB
  quilt -sdb <file> -stats   = pull DB stats
  quilt -pe <file> -stats    = pull stats from PE file

 Pulling stats from multiple SDB's
  dir c:\\windows\\AppPatch\\*.sdb /b /s | quilt -stats -pipe -csv > out.csv
  quilt -vss 2 -stats -csv > out.csv
  quilt -partition c: -exes > out.txt
  quilt -enumdir <location sdb> -num_subdirs <#> [options]

""".encode()

# Every listing in the XML form and in a plain one; then forms of one listing. A listing has no
# records under -csv.
LISTINGS = {
    "apps": ["-apps"],
    "fixes": ["-fixes"],
    "exes": ["-exes"],
    "shims": ["-shims"],
    "patches": ["-patches"],
    "tag-7003": ["-tag", "0x7003"],
}
REPORTS = {
    **{f"{name}.xml": options for name, options in LISTINGS.items()},
    **{f"{name}.txt": [*options, "-bodyfile"] for name, options in LISTINGS.items()},
    "apps-multiline.txt": ["-apps", "-multiline"],
    "apps-csv.txt": ["-apps", "-csv"],
    "apps-base10.xml": ["-apps", "-base10", "-dateformat", "dd/mm/yyyy"],
    "all-fixes-twice.xml": ["-patches", "-shims", "-fixes", "-base10", "-base16"],
}

# Reports about a folder that looks like a system volume: "V" stands for its path. Those with -pipe
# get all of its files on standard input.
VOLUME_REPORTS = {
    "volume-listsdb.txt": ["-listsdb", "-partition", "V"],
    "volume-stats.txt": ["-stats", "-partition", "V"],
    "volume-stats-csv.txt": ["-stats", "-csv", "-partition", "V"],
    "volume-stats-l2t.txt": ["-stats", "-csvl2t", "-partition", "V"],
    "volume-patches.txt": ["-patches", "-multiline", "-partition", "V"],
    "volume-enumdir-0.txt": ["-stats", "-csv", "-enumdir", "V/Windows", "-num_subdirs", "0"],
    "volume-enumdir-1.txt": ["-stats", "-csv", "-enumdir", "V/Windows", "-num_subdirs", "1"],
    "volume-enumdir-8.txt": ["-stats", "-csv", "-enumdir", "V/Windows", "-num_subdirs", "8"],
    "volume-pipe.txt": ["-stats", "-pipe", "-pair_datetime", "-csv"],
    "volume-pipe-stats.txt": ["-stats", "-pipe", "-filter", "*.sdb"],
    "volume-pipe-guids.txt": ["-guids", "-pipe", "-filter", "*main*"],
    "volume-pipe-exes.txt": ["-exes", "-pipe", "-strings", "LEDGER"],
}
# Reports about a volume whose registry knows more databases than its folders show.
INSTALLED_REPORTS = {
    "installed-listsdb.txt": ["-listsdb", "-partition", "V"],
    "installed-stats.txt": ["-stats", "-partition", "V"],
    "installed-stats-csv.txt": ["-stats", "-csv", "-partition", "V"],
    "installed-stats-l2t.txt": ["-stats", "-csvl2t", "-partition", "V"],
}
MESSAGES = b"messages:\n"


class Program:
    def __init__(self, words):
        self.words = words

    def run(self, *options, cwd=None, env=None, lines=b""):
        # Files, not pipes: what wine starts in the background would keep those open.
        with (tempfile.TemporaryFile() as given, tempfile.TemporaryFile() as out,
              tempfile.TemporaryFile() as messages):
            given.write(lines)
            given.seek(0)
            result = subprocess.run([*self.words, *options], stdin=given, stdout=out,
                                    stderr=messages, timeout=120, cwd=cwd,
                                    env={**os.environ, **(env or {})})
            out.seek(0)
            messages.seek(0)
            result.stdout, result.stderr = out.read(), messages.read()
            return result


QUILT = WINDOWS = None
UPDATE = False


def run(*options, **places):
    return QUILT.run(*options, **places)


def masked(report):
    """The report with LF alone and without what changes from run to run in its header."""
    report = re.sub(rb"(?m)^run time: .*$", b"run time: ...", report.replace(b"\r\n", b"\n"), count=1)
    return re.sub(rb'(?m)^"cmdline: .*"$', b'"cmdline: ..."', report, count=1)


def notice(text):
    return WIPE + text.encode()


class Database:
    """Writes a database: tags are bytes, a list's children stand behind one another."""

    def __init__(self):
        self.strings = b""

    def text(self, tag, text):
        reference = 6 + len(self.strings)
        stored = (text + "\0").encode("utf-16-le")
        self.strings += struct.pack("<HI", 0x8801, len(stored)) + stored
        return struct.pack("<HI", tag, reference)

    @staticmethod
    def dword(tag, value):
        return struct.pack("<HI", tag, value)

    @staticmethod
    def qword(tag, value):
        return struct.pack("<HQ", tag, value)

    @staticmethod
    def list(tag, *children):
        return struct.pack("<HI", tag, len(contents := b"".join(children))) + contents

    def image(self, *children):
        return (struct.pack("<II4s", 2, 3, b"sdbf") + self.list(0x7001, *children)
                + self.list(0x7801, self.strings))


def small_database(number, name):
    """A database with a name, an identifier and as many records as its number says."""
    d = Database()
    exes = [d.list(0x7007, d.text(0x6001, f"tool{i}.exe"), d.text(0x6006, "Tool, of all"),
                   d.list(0x7008, d.text(0x6001, "*"), d.dword(0x4001, i))) for i in range(number)]
    identifier = struct.pack("<HI", 0x9007, 16) + bytes([number] * 16)
    moment = struct.pack("<HQ", 0x5001, 127_000_000_000_000_000 + number * 864_000_000_000)
    return d.image(moment, d.text(0x6022, "v3.0"), d.text(0x6001, name), identifier, *exes)


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
    """Three databases at their places, two that the registry alone knows; a third is gone."""
    return {
        "Windows/AppPatch/sysmain.sdb": small_database(1, "System"),
        "Windows/System32/CompatTel/telemetry.sdb": small_database(2, "Telemetry"),
        "Windows/System32/appraiser/appraiser.sdb": small_database(3, "Appraiser"),
        "ProgramData/Vendor/helper.sdb": small_database(4, "Helper"),
        "Users/Ольга/fonts.sdb": Path(SAMPLE).read_bytes(),
    }


def make_installed_volume(folder):
    make_volume(folder, installed_files())
    hive = Path(folder, "Windows/System32/config/SOFTWARE")
    hive.parent.mkdir()
    hives.make_hive(str(hive), {
        "{B0}": hives.installed("C:\\PROGRAMDATA\\vendor\\Helper.SDB", "Helps, now", hives.MOMENT),
        "{A0}": hives.installed("C:\\Users\\Ольга\\fonts.sdb", "Шрифты", hives.MOMENT + 10**15),
        "{C0}": hives.installed("C:\\Windows\\Temp\\zz-gone.sdb", "Gone", hives.MOMENT),
        "{D0}": hives.installed("C:\\Elsewhere\\SYSMAIN.SDB", "Known by name", hives.MOMENT, 7),
    })


def make_volume(folder, files=None):
    for number, (name, contents) in enumerate((files or volume_files()).items()):
        path = Path(folder, name)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(contents)
        # An access time to come is not changed by reading.
        os.utime(path, (2_208_988_800 + number, 1_400_000_000 + number * 86_400))


def volume_lines(root):
    """What `find` and `sort` would put on standard input."""
    return "".join(f"{root}/{name}\n" for name in sorted(volume_files())).encode()


def volume_report(program, name, folder, root):
    """A report about a volume, its messages and the exit value, without what no two runs share: the
    place of the volume, which the program knows as `root`, and when its files were made."""
    options = {**VOLUME_REPORTS, **INSTALLED_REPORTS}[name]
    options = [option.replace("V", root, 1) for option in options]
    lines = volume_lines(root) if "-pipe" in options else b""
    result = program.run(*options, lines=lines)
    report, messages = (text.replace(b"\r\n", b"\n").replace(root.encode(), b"<volume>")
                        for text in (masked(result.stdout), result.stderr))
    report = re.sub(rb"(?m)^(File CreateTime +\| ).*", rb"\1...", report)
    report = re.sub(rb"(2040-01-01 *, [\d:.]{12},)[^,]*,[^,]*", rb"\1...,...", report)
    report = re.sub(rb"(?m)^.*,File Created,.*\n", b"", report)  # or the last write's moment:
    report = report.replace(b",.A.B,", b",.A..,").replace(b"; File Created,", b",")
    report = re.sub(rb"(?m)(<volume>\S*) +$", rb"\1", report)  # as wide as the place is long
    begin = messages.find(WIPE)  # behind those of wine
    messages = messages[begin:].replace(WIPE, b"") if begin >= 0 else b""
    return report, MESSAGES, messages + b"exit value: %d\n" % result.returncode


class Folder(unittest.TestCase):
    """A test with a folder of its own."""

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="quilt-")
        self.addCleanup(shutil.rmtree, self.folder)

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, contents):
        with open(self.path(name), "wb") as file:
            file.write(contents)
        return self.path(name)

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()


class Golden(unittest.TestCase):
    maxDiff = None

    def check_reports(self, program):
        for name, options in REPORTS.items():
            for database in (SAMPLE, COMPRESSED):
                with self.subTest(report=name, database=database):
                    result = program.run("-sdb", database, *options)
                    self.assertEqual(result.returncode, 0)
                    messages = result.stderr.replace(b"\r\n", b"\n")  # behind those of wine
                    self.assertTrue(messages.endswith(notice(f"processing {database}\n") + WIPE))
                    report = masked(result.stdout).replace(COMPRESSED.encode(), SAMPLE.encode())
                    self.assertEqual(report.decode(), (GOLDEN / name).read_text("utf-8"))

    def check_results_file(self, program):
        with tempfile.TemporaryDirectory(dir=".") as folder:
            for name, options in REPORTS.items():
                with self.subTest(report=name):
                    out = os.path.join(os.path.basename(folder), "out")
                    result = program.run("-sdb", SAMPLE, *options, "-out", out)
                    self.assertEqual((result.returncode, result.stdout), (0, b""))
                    report = Path(out).read_bytes()
                    self.assertEqual(report.count(b"\n"), report.count(b"\r\n"))
                    self.assertEqual(masked(report).decode(), (GOLDEN / name).read_text("utf-8"))

    def test_reports(self):
        self.check_reports(QUILT)

    def test_results_file_holds_the_report_with_cr_lf(self):
        self.check_results_file(QUILT)

    def test_every_golden_file_is_some_report(self):
        self.assertEqual({path.name for path in GOLDEN.iterdir()}, {*REPORTS, *VOLUME_REPORTS, *INSTALLED_REPORTS})

    def test_windows_reports(self):
        if WINDOWS is None:
            self.skipTest("no Windows program")
        self.check_reports(WINDOWS)
        self.check_results_file(WINDOWS)


class Usage(unittest.TestCase):
    def test_help_in_every_spelling_wins_over_all_else(self):
        for options in ([], ["-h"], ["-help"], ["/?"], ["--help"], ["-HELP"],
                        ["-sdb", SAMPLE, "-apps", "-h"], ["-sdb", "--Help"]):
            with self.subTest(options=options):
                result = run(*options)
                self.assertEqual((result.returncode, result.stdout), (0, b""))
                self.assertEqual(result.stderr.decode(), USAGE.decode())

    def test_a_run_without_a_target_shows_it_and_fails(self):
        for options in (["-apps"], ["-apps", "-sdb"], ["-fixes", "-guid", "x"], ["-enumsdb"]):
            with self.subTest(options=options):
                result = run(*options)
                self.assertEqual((result.returncode, result.stdout), (FAILED, b""))
                self.assertEqual(result.stderr, USAGE + WIPE)


class Header(unittest.TestCase):
    def header(self, *options):
        lines = run("-tag", "1", *options).stdout.decode().split("\n")  # a refusal shows it
        self.assertEqual(lines[0] + "\n", BANNER.decode())
        self.assertEqual(lines[3:], [""])
        return lines[1:3]

    def test_lines(self):
        run_line, command = self.header("-name of two words")
        self.assertRegex(run_line, r"^run time: \d\d/\d\d/\d{4} \d\d:\d\d:\d\d \[UTC\]; host: "
                                   r"[^;]+; os: [^;]+;\d+\.\d+\.-;\d+\.\d+\.\d+;(32|64)$")
        self.assertEqual(command, f'"cmdline: {QUILT.words[0]} -tag 1 \'-name of two words\'"')

    def test_the_date_takes_the_format_of_the_run(self):
        self.assertRegex(self.header("-dateformat", "YYYY-MM-DD")[0], r"^run time: \d{4}-\d\d-\d\d ")

    def test_a_list_on_standard_input_is_hinted_at(self):
        self.assertTrue(self.header("-pipe")[1].startswith('"cmdline: <filelist> ... | '))


class Refusals(Folder):
    def check(self, options, message, words=b""):
        """A message on the error stream, or `words` on standard output, then the run header."""
        with self.subTest(options=options):
            result = run(*options)
            self.assertEqual(result.returncode, FAILED)
            self.assertEqual(result.stderr, notice(message) if message else b"")
            self.assertTrue(result.stdout.startswith(words + BANNER), result.stdout)
            self.assertEqual(result.stdout.count(b"\n"), words.count(b"\n") + 3)

    def test_messages(self):
        imbalanced = "imbalanced alias to true pathfiles, aborting\n"
        not_offered = "This option is not offered in this build\n"
        lists_only = "This version only handles certain TAG_TYPE_LIST type tags (eg. 0x7003 - 0x70xx)\n"
        unhandled = "Doesn't handle these TAG_TYPE_LIST type tags\n"
        for options, message in (
            (["-sdb", "no %s file"], "Prob reading file no %s file\n"),
            (["-sdb", SAMPLE, "-pe", "nowhere.exe"], "Prob reading file nowhere.exe\n"),
            (["-sqlite", "x"], not_offered),
            (["-sqlite_log", "x", "-sdb", SAMPLE], not_offered),
            (["-alias", "a"], imbalanced),
            (["-alias", "a|b|c"], imbalanced),
            (["-aliaspath", "a|b|c"], imbalanced),
            (["-out", "nowhere/x"], "prob opening file nowhere/x for output, aborting\n"),
            (["-cmd_start_time", "20260314"], ""),
            (["-cmd_stop_time", ""], ""),
            (["-tag", "seven"], "Don't understand tag # seven\n"),
            (["-tag", "0x6000"], lists_only),
            (["-tag", "28673"], unhandled),
            (["-tag", "0x7803"], unhandled),
            (["-partition", "c", "-pipe"], "Invalid option to use with -pipe\n"),
            (["-sdb", SAMPLE, "-enumdir", "x"], "Invalid option to use with -enumdir\n"),
            (["-sdb", SAMPLE, "-partition", "c"],
             "-partition option should not be used with -sdb option\n"),
            (["-match", "-sdb", SAMPLE], "This option requires -pe <PE file> as well\n"),
        ):
            self.check(options, message)

    def test_values_that_are_not_understood_are_named_on_standard_output(self):
        for options, words in (
            (["-patchbytes", "%"], "prob understanding % as pattern\n"),
            (["-patchbytes", "%s%n"], "prob understanding %s%n as pattern\n"),
            (["-patchbytes", "eb", "-patchbytes", "no guid"], "prob understanding no guid as guid\n"),
        ):
            self.check(options, "", words.encode())

    def test_snapshots(self):
        if os.geteuid() == 0:
            self.check(["-vss", "2", "-sdb", SAMPLE],
                       "-vss option should not be used with -sdb option, "
                       "use %vss%# option for -sdb option\n")
        else:
            self.check(["-vss", "2", "-sdb", SAMPLE],
                       "This option requires admin privileges...\n" + WIPE.decode() + "need to "
                       "restart cmd prompt using \"Run As Administrator\" option...\n")

    def test_a_notice_of_more_than_4096_characters_is_not_written(self):
        fixed = len("Prob reading file \n")
        longest = "x" * (4096 - fixed)
        self.check(["-sdb", longest], f"Prob reading file {longest}\n")
        self.assertEqual(run("-sdb", longest + "x").stderr, WIPE)

    def test_a_refusal_leaves_the_results_file_alone_but_for_the_probe(self):
        out = self.write("out", b"old")
        run("-tag", "seven", "-out", out)
        self.assertFalse(os.path.exists(out))


class Conflicts(Folder):
    """What settles a conflict is the order in which options are looked up."""

    def report(self, *options):
        result = run("-sdb", SAMPLE, "-apps", "-quiet", *options)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        return result.stdout

    def separator(self, report):
        """The text between depth and offset, "xml", or None for a report without records."""
        if report.startswith(DECLARATION + b"<shimdb>\n"):
            return "xml"
        self.assertTrue(report.startswith(BANNER))
        found = re.search(rb"(?m)^-+ \[.*\]\n1(.*)0004e4", report)
        return found and found[1].decode()

    def test_form_and_separator(self):
        for options, expected in (
            ("", "xml"), ("-csv", None), ("-csvl2t", None), ("-csvgen", ","), ("-bodyfile", "|"),
            ("-multiline", ""), ("-xml", "xml"), ("-XML -Csv", "xml"), ("-csv -xml", "xml"),
            ("-xml -csv", "xml"), ("-multiline -xml", ""), ("-csv -csvgen", ","),
            ("-csv -csvl2t", None), ("-bodyfile -csv", "|"), ("-bodyfile -csvl2t", "|"), ("-bodyfile -xml", "xml"),
            ("-csv -v", None), ("-csvl2t -verbose", None), ("-multiline -v", ""),
            ("-bodyfile -csv_separator TAB", "\t"), (r"-bodyfile -csv_separator \t", "\t"),
            ("-csv_separator ; -multiline", ";"), ("-multiline -csv_separator aBc", "aBc"),
            ("-multiline -csv_separator ;_;", " ; "),
            ("-multiline -csv_separator ;_; -no_whitespace", ";"),
            ("-multiline -csv_separator ;_; -enable_quoted_csv_fields", ";"),
        ):
            with self.subTest(options=options):
                words = [" ; " if word == ";_;" else word for word in options.split()]
                self.assertEqual(self.separator(self.report(*words)), expected)

    def test_an_option_that_is_looked_up_earlier_takes_a_value_away(self):
        result = run("-apps", "-quiet", "-sdb", "-csv", SAMPLE)
        self.assertEqual((result.returncode, self.separator(result.stdout)), (0, None))
        self.assertEqual(run("-sdb", SAMPLE, "-apps", "-sdb", "nowhere").returncode, 0)

    def test_unknown_options_are_ignored(self):
        self.assertEqual(self.report("-guid", "x", "-enumsdb", "stray", "-l2", "-no_such"),
                         self.report())

    def test_accepted_options_change_nothing(self):
        values = [word for name in ("threads", "zlibex", "cpuinst", "cpu", "fragment_files",
                                    "outdir", "num_subdirs", "alias", "hostname", "username",
                                    "filter", "filter_skip", "filter_sig", "filter_path")
                  for word in (f"-{name}", "a|b")]
        self.assertEqual(self.report("-gzip", "-zlib", "-split_pathfile", "-separate_files",
                                     "-base16", *values), self.report())

    def test_date_and_time_formats(self):
        default = "2007-02-28 07:00:01.000"
        for options, text, refused in (
            (["-dateformat", "yyyy/mm/dd"], "2007/02/28 07:00:01.000", None),
            (["-dateformat", "DD-MM-YYYY"], "28-02-2007 07:00:01.000", None),
            (["-dateformat", "yyyymmdd"], "20070228 07:00:01.000", None),
            (["-dateformat", "yyyy/mm/d"], default, "yyyy/mm/d"),
            (["-timeformat", "hh:mm:ss"], "2007-02-28 07:00:01", None),
            (["-timeformat", "hh:mm:ss.xxxxxx"], "2007-02-28 07:00:01.000000", None),
            (["-timeformat", "hhmmss.xxx"], default, "hhmmss.xxx"),
            (["-timeformat", "hh:mm:ss.x"], default, "hh:mm:ss.x"),
        ):
            with self.subTest(options=options):
                result = run("-sdb", SAMPLE, "-exes", "-quiet", *options)
                self.assertIn(f' link_date="{text}" '.encode(), result.stdout)
                message = f"invalid {refused}, using default format\n"
                self.assertEqual(result.stderr, notice(message) if refused else b"")

    def test_numbers(self):
        for options, size in (("-base10", b'"417792"'), ("-base10 -base16", b'"0x00066000"')):
            self.assertIn(b" size=" + size, self.report(*options.split()))

    def test_time_windows_are_only_checked(self):
        for option, value, message in (
            ("-cmd_start_time", "2026-01-02 10:11:12", ""),
            ("-cmd_start_time", "2026-13-02", "invalid start time, ignoring\n"),
            ("-cmd_stop_time", "2026-01-02", "invalid stop time, ignoring\n"),
        ):
            with self.subTest(option=option, value=value):
                result = run("-sdb", SAMPLE, "-apps", "-quiet", option, value)
                self.assertEqual(result.returncode, 0)
                self.assertEqual(result.stderr, notice(message) if message else b"")


class VolumeReports:
    """The reports about one volume, on both platforms."""
    maxDiff = None

    def setUp(self):
        super().setUp()
        type(self).make(self.folder)

    def expected(self, name):
        report, mark, messages = (GOLDEN / name).read_bytes().partition(MESSAGES)
        self.assertEqual(mark, MESSAGES)
        return report, messages

    def test_reports(self):
        for name in self.reports:
            with self.subTest(report=name):
                report, _, messages = volume_report(QUILT, name, self.folder, self.folder)
                self.assertEqual((report.decode(), messages.decode()),
                                 tuple(text.decode() for text in self.expected(name)))

    def test_windows_reports(self):
        """The same but for separators and for the case of the folders that the program names."""
        if WINDOWS is None:
            self.skipTest("no Windows program")
        prefix = os.environ.get("WINEPREFIX", os.path.expanduser("~/.wine"))
        drive = os.path.join(prefix, "dosdevices", "q:")
        os.symlink(self.folder, drive)
        self.addCleanup(os.unlink, drive)
        for name in self.reports:
            with self.subTest(report=name):
                report, _, messages = volume_report(WINDOWS, name, self.folder, "q:")
                self.assertEqual(*(tuple(text.decode().replace("\\", "/").lower() for text in texts)
                                   for texts in ((report, messages), self.expected(name))))


class Volume(VolumeReports, Folder):
    make, reports = make_volume, VOLUME_REPORTS

    def test_a_rule_parts_databases_and_stands_behind_each_of_a_list(self):
        rule = "-" * 75 + "\n"
        for options, rules in ((["-sdb", SAMPLE], 0), (["-pipe"], 1), (["-pipe", "-csv"], 0),
                               (["-pipe", "-csv", "-verbose"], 0)):
            with self.subTest(options=options):
                report = run("-stats", *options, lines=SAMPLE.encode()).stdout.decode()
                self.assertEqual(report.count(rule), rules)

    def test_machines_read_the_delimited_forms(self):
        for form, separator in (("-csv", ","), ("-csv -no_whitespace", ","), ("-csvl2t", ","),
                                ("-csv -pair_datetime", ","), ("-csvl2t -pair_datetime", ","),
                                ("-csv -hostname H", ","), ("-bodyfile", "|"),
                                ("-csv -enable_quoted_csv_fields -csv_separator TAB", "\t"),
                                ("-csvl2t -csv_separator |", "|")):
            with self.subTest(form=form):
                result = run("-stats", "-pipe", "-quiet", *form.split(),
                             lines=volume_lines(self.folder))
                lines = result.stdout.decode().split("\n")[3:-1]
                header, *rows = csv.reader((line for line in lines if line != "-" * 75),
                                           delimiter=separator)
                self.assertEqual({len(row) for row in rows}, {len(header)})
                header = [name.strip() for name in header]
                is_timeline = "MACB" in header
                name = header.index("short" if is_timeline else "source file")
                self.assertEqual({row[name].strip() for row in rows},
                                 {os.path.basename(path) for path in volume_files()}
                                 - {"damaged.sdb", "readme.sdb.txt"})
                fact = header.index("desc" if is_timeline else "DB name")
                comma = " " if separator == "," else ","
                self.assertTrue(any(f"Drivers{comma} and more[CRLF]of them" in row[fact]
                                    for row in rows))


class Installed(VolumeReports, Folder):
    make, reports = make_installed_volume, INSTALLED_REPORTS

    def test_a_registry_that_cannot_be_read_changes_nothing(self):
        os.mkdir(self.path("folder"))
        secret = self.write("secret", Path(self.folder, "Windows/System32/config/SOFTWARE").read_bytes())
        os.chmod(secret, 0)
        cases = ["nowhere", "folder", SAMPLE, self.write("empty", b"")]
        for hive in (*cases, secret) if os.geteuid() else cases:
            with self.subTest(hive=hive):
                for options in (["-stats", "-csv"], ["-stats"], ["-listsdb"]):
                    plain = run("-sdb", SAMPLE, *options)
                    result = run("-sdb", SAMPLE, *options, "-reg", hive)
                    self.assertEqual((result.returncode, masked(result.stdout), result.stderr),
                                     (plain.returncode, masked(plain.stdout), plain.stderr))


class Registry(Folder):
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
        """By file name, what is installed: path, description, times."""
        expected = {}
        for key, (moment, values) in sorted(hives.read_installed(hive).items(),
                                            key=lambda item: item[0].encode().lower()):
            facts = {}
            for name, value in values.items():
                word = next((word for word in ("description", "type", "timestamp", "path")
                             if word in name.lower()), None)
                facts[word] = value
            path = facts.get("path", "")
            if values:
                name = "".join(c.lower() if c.isascii() else c for c in path.rpartition("\\")[2])
                expected.setdefault(name, (path, facts.get("description", ""),
                                           facts.get("timestamp", 0), moment))
        return expected

    def test_no_path_of_a_registry_forges_a_line(self):
        hive, path = self.path("SOFTWARE"), "a\nDatabase MD5           | 0.sdb"
        hives.make_hive(hive, {"{A}": hives.installed(path, "", 1)})
        shown = path.replace("\n", "[LF]").encode()
        self.assertIn(b"\n" + shown + b"\n",
                      run("-listsdb", "-reg", hive, cwd=self.folder).stdout.replace(b"\r", b""))
        if os.name == "posix":  # a file may have such a name
            self.write(path, Path(SAMPLE).read_bytes())
            report = run("-stats", "-reg", hive, cwd=self.folder).stdout
            self.assertRegex(report, rb"(?m)^Database Path/File +\| " + re.escape(shown) + b"$")

    def test_a_search_for_bins_takes_little_memory(self):
        with open(self.path("SOFTWARE"), "wb") as file:
            file.write(b"regf")
            file.truncate(1 << 30)
        command = [*QUILT.words, "-listsdb", "-reg", self.path("SOFTWARE")]
        with open(os.devnull, "wb") as nowhere:
            process = subprocess.Popen(command, stdout=nowhere, stderr=nowhere)
            _, process.returncode, usage = os.wait4(process.pid, 0)
        # KiB; a sanitizer holds back much of what was freed.
        self.assertLess(usage.ru_maxrss, 512 * 1024)

    def test_what_hivexml_reads_is_what_is_reported(self):
        hive = self.path("SOFTWARE")
        hives.make_hive(hive, self.databases())
        expected = self.expected(hive)
        self.assertGreater(len(expected), 590)
        paths = [path for name, (path, *_) in sorted(expected.items(), key=lambda item: item[0].encode())
                 if path]
        result = run("-listsdb", "-reg", hive, cwd=self.folder)
        self.assertEqual(result.returncode, 0)
        self.assertEqual(result.stdout.decode().split("\n")[3:], [*paths, "", ""])

        names = [name for name, (path, *_) in expected.items() if path]
        for name in names:
            self.write(name, small_database(0, "x"))
        self.write("unknown.sdb", small_database(0, "x"))
        lines = "".join(f"{self.folder}/{name}\n" for name in (*names, "unknown.sdb")).encode()
        report = run("-pipe", "-stats", "-csv", "-no_whitespace", "-reg", hive, lines=lines)
        header, *rows = csv.reader(report.stdout.decode().split("\n")[3:-1])
        self.assertEqual([row[0] for row in rows], [*names, "unknown.sdb"])
        stats, extra = header.index("DB stats"), header.index("Extra info")
        self.assertEqual((rows[-1][stats], rows[-1][extra]), ("strings: 2", "RegDB Path: "))
        for row in rows[:-1]:
            path, description, installed, moment = expected[row[0]]
            description = description.replace(",", " ")
            self.assertEqual(row[stats], "strings: 2; Install Timestamp: ; Reg LastMod Timestamp: ; "
                             f"Database Description: {description}; Database Types: ; "
                             f"Database Path: {path}")
            install = f"; Install time: {hives.moment_text(installed)}" if installed else ""
            self.assertEqual(row[extra], f"RegDB Path: {path}{install}; "
                             f"Reg modtime: {moment:%Y-%m-%d %H:%M:%S}.000")


class Lists(Folder):
    def setUp(self):
        super().setUp()
        for name in ("a.sdb", "b.SDB", "sysmain.sdb", "a.sdb.bak", "计.sdb"):
            self.write(name, small_database(1, name))
        os.mkdir(self.path("AppPatch"))
        self.write("AppPatch/c.sdb", small_database(1, "c"))
        self.write("AppPatch/packed.sdb", Path(COMPRESSED).read_bytes())

    def databases(self, *options, lines=None):
        """The names of the databases that a list form reports on."""
        form = ["-pipe"] if lines is not None else ["-enumdir", self.folder, "-num_subdirs", "1"]
        report = run("-stats", *form, *options, lines=lines or b"").stdout.decode()
        return re.findall(rf"(?m)^Database Path/File +\| {re.escape(self.folder)}/(.*)$", report)

    def lines(self, *names, end="\n"):
        return "".join(self.path(name) + end for name in names).encode()

    def test_lines(self):
        a, b = self.path("a.sdb").encode(), self.path("计.sdb").encode()
        for lines, expected in (
            (a + b"\n" + b, ["a.sdb", "计.sdb"]),
            (a + b"\r\r\n\n\r\n\r\r\n" + b + b"\r\n", ["a.sdb", "计.sdb"]),
            (self.path("none.sdb").encode() + b"\n" + a + b"\n", ["a.sdb"]),
            (b"x" * 5000 + b"\n" + a, ["a.sdb"]),
            (b"x" * 4095 + a + b"\n" + b, ["a.sdb", "计.sdb"]),  # a long line is two entries
            (b"\xff\xfe.sdb\n" + a + b"\n", ["a.sdb"]),
        ):
            with self.subTest(lines=lines):
                self.assertEqual(self.databases(lines=lines), expected)

    def test_exit_values_and_messages(self):
        good, bad = self.lines("a.sdb"), self.lines("nowhere.sdb")
        notices = notice(f"Prob analyzing file {self.path('nowhere.sdb')}\n")
        for options, lines, code, messages in (
            (["-stats"], b"", FAILED, b""),
            (["-stats"], b"\n\r\n", FAILED, b""),
            (["-apps"], b"", FAILED, b""),
            (["-stats"], bad, FAILED, notices),
            (["-stats"], good + bad, 0, notices),
            (["-stats"], bad + good, 0, notices),
            (["-stats", "-filter", "b*"], good, FAILED, b""),
            (["-apps"], bad, FAILED, b""),
            (["-apps"], bad + good, 0, b""),
        ):
            with self.subTest(options=options, lines=lines):
                result = run("-pipe", "-quiet", *options, lines=lines)
                self.assertEqual((result.returncode, result.stderr), (code, messages))
        for folder, code in ((self.folder, 0), (self.path("nowhere"), FAILED), ("", FAILED)):
            with self.subTest(folder=folder):
                result = run("-stats", "-quiet", "-enumdir", folder)
                self.assertEqual((result.returncode, result.stderr), (code, b""))
        self.assertEqual(run("-stats", "-pipe", lines=b"").stderr, WIPE)

    def test_filters(self):
        all_names = ["a.sdb", "b.SDB", "sysmain.sdb", "a.sdb.bak", "计.sdb", "AppPatch/c.sdb",
                     "AppPatch/packed.sdb"]
        below, sdb = all_names[5:], [name for name in all_names if not name.endswith(".bak")]
        for options, expected in (
            (["*"], all_names), (["*.sdb"], sdb), (["*.SDB"], sdb), (["*sys*"], ["sysmain.sdb"]),
            (["a.sdb"], ["a.sdb"]), (["a"], []), (["a*"], ["a.sdb", "a.sdb.bak"]),
            (["计*"], ["计.sdb"]), (["b.sdb|c.sdb"], ["b.SDB", "AppPatch/c.sdb"]),
            (["b.sdb, c.sdb"], ["b.SDB", "AppPatch/c.sdb"]), (["b.sdb|*"], all_names),
            ([r"\apppatch"], below), ([r"\APP"], []), ([r"\apppatch\*"], below),
            (["a.sdb:stream"], ["a.sdb"]), (["*:stream"], all_names),
            (["a.sdb", "-filter", "b.sdb"], ["a.sdb", "b.SDB"]),
            (["x", "-filter_path", "y"], []), (["x", "-filter_sig", "7a 64 62 66|8"], below[1:]),
            (["x", "-filter_sig", "73 64 62 66|8"], all_names[:6]),
            (["x", "-filter_sig", "73 64 62 66,8"], all_names[:6]),
            (["*", "-cmd_start_time", "2001-01-01"], all_names),
            (["*", "-cmd_start_time", "2100-01-01"], []),
        ):
            with self.subTest(filter=options):
                listed = self.databases("-filter", *options, lines=self.lines(*all_names))
                self.assertEqual(listed, expected)
                self.assertEqual(sorted(self.databases("-filter", *options)), sorted(expected))

    def test_results_file(self):
        for form in ("-stats", "-csv"):
            with self.subTest(form=form):
                options = ["-stats", form, "-pipe", "-quiet"]
                lines = self.lines("a.sdb", "b.SDB")
                printed = run(*options, lines=lines).stdout
                to_file = run(*options, "-out", self.path("out"), lines=lines)
                self.assertEqual((to_file.returncode, to_file.stdout), (0, b""))
                self.assertEqual(self.read("out").count(b"\n"), self.read("out").count(b"\r\n"))
                self.assertEqual(masked(self.read("out")), masked(printed))
        listing = run("-listsdb", "-partition", self.folder, "-out", self.path("out"))
        self.assertEqual((listing.returncode, listing.stdout), (FAILED, b"\n"))
        self.assertEqual(self.read("out").count(b"\n"), 3)


class Searches(Folder):
    def check(self, options, printed, messages, lines=b""):
        with self.subTest(options=options):
            target = ["-pipe"] if lines else ["-sdb", SAMPLE]
            result = run(*target, *options, "-quiet", lines=lines)
            self.assertEqual(result.returncode, 0)
            self.assertEqual(result.stdout.split(b"\n", 3)[3], printed)  # behind the run header
            self.assertEqual(result.stderr, notice(messages) if messages else b"")

    def test_words_and_streams_when_nothing_is_found(self):
        none = f"no matches found: {SAMPLE}\n"
        guid = "11111111-1111-1111-1111-111111111111"
        for search in (["-strings", "not there | nor this"], ["-tagids", "0x99999999"]):
            for listing, printed, messages in (
                ([], b"", none), (["-apps"], b"No Apps found\n", ""),
                (["-fixes"], b"No fixes found\n", ""), (["-exes"], b"\n", ""),
                (["-shims"], b"\n", ""), (["-patches"], b"\n", ""), (["-tag", "0x7003"], b"\n", ""),
                (["-apps", "-fixes", "-exes"], b"No Apps found\nNo fixes found\n\n", ""),
            ):
                self.check(["-multiline", *search, *listing], printed, messages)
        for listing in ([], ["-apps"], ["-exes"], ["-fixes"], ["-guids"], ["-stringtable"]):
            self.check(["-multiline", "-patchbytes", "de ad be ef 99", *listing], b"", none)
        found = ["-multiline", "-patchbytes", "85 c0 74 12", "-patchbytes", guid]
        self.check(found, b"No Apps found\n", "")
        self.check([*found, "-exes"], b"\n", "")
        self.check(["-multiline", "-tagids", "seven"], b"", "Check the options you passed in "
                   "[either erroneous or a mismatch]...\n")

    def records(self, *options):
        result = run("-sdb", SAMPLE, "-multiline", "-quiet", *options)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        heads = result.stdout.split(RULE)[1:]
        return [re.search(r"name +stringref (.*)", head.decode())[1] for head in heads]

    def test_what_is_found(self):
        for options, names in (
            (["-strings", "QUELLMARK LEDGER"], ["ledger.exe"]),
            (["-strings", "ledger.exe | RecordSvc"], ["recordsvc.exe", "ledger.exe"]),
            (["-strings", "ledger.exe", "-exes"], ["ledger.exe"]),
            (["-strings", "recordservicehotfix", "-patches"], ["RecordServiceHotfix"]),
            (["-tagids", "0x5f8 | 0x518"], ["recordsvc.exe", "ledger.exe"]),
            (["-patchbytes", "85 c0 74 12"], ["recordsvc.exe"]),
            (["-patchbytes", "85 c0 74 12", "-exes"], ["recordsvc.exe"]),
            (["-patchbytes", "85 c0 74 12", "-patchbytes", "96f0a3de-7c21-4e85-8b4a-d5012f9c6b78"],
             ["ledger.exe"]),
            (["-patchbytes", "85 c0 74 12", "-patchbytes",
              "DE A3 F0 96 21 7C 85 4E 8B 4A D5 01 2F 9C 6B 78"], ["ledger.exe"]),
        ):
            with self.subTest(options=options):
                self.assertEqual(self.records(*options), names)

    def test_each_database_of_a_list_is_searched_anew(self):
        other = self.write("other.sdb", small_database(1, "x"))
        for paths in ([other, SAMPLE], [SAMPLE, other]):
            with self.subTest(paths=paths):
                lines = "".join(f"{path}\n" for path in paths).encode()
                result = run("-pipe", "-quiet", "-strings", "ledger.exe", lines=lines)
                self.assertEqual(result.stderr, notice(f"no matches found: {other}\n"))
                self.assertEqual(result.stdout.count(b"quilt ver"), 1)
                self.assertIn(b"ledger.exe", result.stdout)


class Signals(unittest.TestCase):
    """A second process waits for the end of a run."""
    NAME = f"quilt-test-{os.getpid()}"
    WAITER = r"""
        #include <windows.h>
        #include <stdio.h>
        int main(int count, char** arguments)
        {
            HANDLE event = CreateEventA(NULL, TRUE, FALSE, arguments[count - 1]);
            puts("waits");
            fflush(stdout);
            return WaitForSingleObject(event, 60000) == WAIT_OBJECT_0 ? 7 : 1;
        }"""

    def test_semaphore(self):
        libc = ctypes.CDLL(None, use_errno=True)
        libc.sem_open.restype = ctypes.c_void_p
        name = f"/{self.NAME}".encode()
        self.addCleanup(libc.sem_unlink, name)
        for options in (["-sdb", SAMPLE, "-shims"], ["-apps"]):  # the second run fails
            with self.subTest(options=options):
                run(*options, "-signal", self.NAME)
                # A new one would be at 0; this one was left by the run.
                event = ctypes.c_void_p(libc.sem_open(name, os.O_CREAT, 0o600, 0))
                self.assertEqual(libc.sem_trywait(event), 0)
                self.assertNotEqual(libc.sem_trywait(event), 0)  # raised once
        waiter = subprocess.Popen([sys.executable, "-c", f"""
import ctypes
libc = ctypes.CDLL(None)
libc.sem_open.restype = ctypes.c_void_p
event = ctypes.c_void_p(libc.sem_open({name!r}, {os.O_CREAT}, 0o600, 0))
print("waits", flush=True)
libc.sem_wait(event)"""], stdout=subprocess.PIPE)
        self.wait_for(waiter, QUILT, 0)

    def wait_for(self, waiter, program, code):
        self.addCleanup(waiter.stdout.close)
        self.addCleanup(waiter.kill)
        self.assertEqual(waiter.stdout.readline().strip(), b"waits")
        time.sleep(0.2)
        self.assertIsNone(waiter.poll())
        program.run("-sdb", SAMPLE, "-shims", "-signal", self.NAME)
        self.assertEqual(waiter.wait(60), code)

    def test_windows_event(self):
        compiler = shutil.which("x86_64-w64-mingw32-gcc")
        if WINDOWS is None or compiler is None:
            self.skipTest("no Windows program, or no compiler for the one that waits")
        with tempfile.TemporaryDirectory() as folder:
            source, waiter = os.path.join(folder, "wait.c"), os.path.join(folder, "wait.exe")
            Path(source).write_text(self.WAITER)
            subprocess.run([compiler, "-o", waiter, source], check=True)
            self.wait_for(subprocess.Popen([*WINDOWS.words[:-1], waiter, self.NAME],
                                           stdout=subprocess.PIPE), WINDOWS, 7)


class Files(Folder):
    def report(self, path, *options, **places):
        result = run("-sdb", path, "-fixes", "-quiet", *options, **places)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        return result.stdout

    def test_results_file(self):
        for option in ("-out", "-outfile"):
            for append in ([], ["-append"]):
                for form in ([], ["-csv"]):
                    with self.subTest(option=option, append=append, form=form):
                        out = self.write("out", b"old contents")
                        os.chmod(out, 0o400)
                        printed = self.report(SAMPLE, option, out, *append, *form)
                        self.assertEqual(printed, b"")
                        self.assertEqual(masked(self.read("out")),
                                         masked(self.report(SAMPLE, *form)))
        self.report(SAMPLE, "-outfile", self.path("second"), "-out", self.path("first"))
        self.assertTrue(os.path.exists(self.path("first")))
        self.assertFalse(os.path.exists(self.path("second")))

    def test_log(self):
        log = self.path("log")
        self.report(SAMPLE, "-diags", log, "-guid", "two words")
        self.assertRegex(self.read("log").decode(),
                         rf'^->{re.escape(QUILT.words[0])} -sdb .* -guid "two words"->[\d.e-]+ secs$')
        self.assertEqual(self.report(SAMPLE, "-diags", self.path("no/log")), self.report(SAMPLE))

    def test_elapsed_time(self):
        for quiet, wipe in (([], WIPE), (["-quiet"], b"")):
            result = run("-sdb", SAMPLE, "-shims", "-profile", *quiet)
            self.assertRegex(result.stderr, re.escape(wipe) + rb"->[\d.e-]+ secs\n$")

    def test_files_that_are_no_databases_fail_without_a_word(self):
        for path in (self.folder, self.write("empty", b""), self.write("text", b"no database")):
            for form, words in ((["-quiet"], 0), (["-quiet", "-csv"], 3)):
                with self.subTest(path=path, form=form):
                    result = run("-sdb", path, "-apps", *form)
                    self.assertEqual((result.returncode, result.stderr), (FAILED, b""))
                    self.assertEqual(result.stdout.count(b"\n"), words)

    def test_paths(self):
        sample = Path(SAMPLE).read_bytes()
        os.makedirs(self.path("Windows/AppPatch/Чертёж"))
        deep = os.path.join(self.folder, *["a folder whose name is long" * 5] * 3)
        os.makedirs(deep)
        self.write("Windows/AppPatch/Custom.sdb", sample)
        self.write("Windows/AppPatch/custom.SDB", b"no database")
        self.write("Windows/AppPatch/Чертёж/計測器.sdb", sample)
        self.write(os.path.join(deep, "x.sdb"), sample)
        self.write("back\\slash.sdb", sample)  # a name as typed comes first
        os.mkdir(self.path("back"))
        self.write("back/slash.sdb", b"no database")
        expected = self.report(SAMPLE)
        places = {"cwd": self.folder, "env": {"PATCHES": "windows\\APPPATCH"}}
        for path in ("Windows/AppPatch/Custom.sdb", "windows\\apppatch\\Custom.sdb",
                     "WINDOWS/AppPatch\\CUSTOM.sdb", ".\\windows\\..\\Windows//AppPatch/Custom.sdb",
                     "%PATCHES%\\Custom.sdb", self.folder + "\\windows\\apppatch\\Custom.sdb",
                     "windows/apppatch/Чертёж/計測器.SDB", "back\\slash.sdb",
                     os.path.join(deep, "x.sdb"), os.path.join(deep, "X.SDB").replace("/", "\\")):
            with self.subTest(path=path):
                self.assertEqual(self.report(path, **places), expected)
                shown = path.replace("%PATCHES%", "windows\\APPPATCH")
                self.assertIn(f"[{shown}]\n".encode(), self.report(path, "-multiline", **places))

    def test_xml_is_well_formed(self):
        """For a database without the one head that ends in a doubled " /"."""
        if shutil.which("xmllint") is None:
            self.skipTest("xmllint is not installed")
        d = Database()
        texts = ["plain", "é 計 𝄞", 'with "quotes" and \'more\'', "a < b & c", "<" * 79, "&" * 80]
        file = [d.list(0x7008, d.text(0x6001, text), d.text(0x6009, text), d.text(0x6010, "*"))
                for text in texts]
        exes = [d.list(0x7007, d.text(0x6001, text), d.text(0x6006, text), d.text(0x6005, text),
                       d.dword(0x4023, 2), *file) for text in texts]
        path = self.write("a.sdb", d.image(*exes, d.list(0x7006, d.text(0x6001, "&"), *file)))
        report = run("-sdb", path, "-apps", "-quiet").stdout
        self.assertEqual(report.count(b"<exe "), len(texts))
        lint = subprocess.run(["xmllint", "--noout", "-"], input=report, capture_output=True)
        self.assertEqual((lint.returncode, lint.stderr), (0, b""))


def update_golden():
    GOLDEN.mkdir(exist_ok=True)
    for old in GOLDEN.iterdir():
        old.unlink()
    for name, options in REPORTS.items():
        (GOLDEN / name).write_bytes(masked(run("-sdb", SAMPLE, "-quiet", *options).stdout))
    for make, reports in ((make_volume, VOLUME_REPORTS), (make_installed_volume, INSTALLED_REPORTS)):
        with tempfile.TemporaryDirectory(prefix="quilt-") as volume:
            make(volume)
            for name in reports:
                (GOLDEN / name).write_bytes(b"".join(volume_report(QUILT, name, volume, volume)))


def main(tests=sys.modules[__name__]):
    global QUILT, WINDOWS
    parser = argparse.ArgumentParser()
    parser.add_argument("--quilt", required=True)
    parser.add_argument("--windows", type=shlex.split)
    parser.add_argument("--update", action="store_true")
    arguments = parser.parse_args()
    QUILT = Program([os.path.abspath(arguments.quilt)])
    WINDOWS = Program(arguments.windows) if arguments.windows else None
    if arguments.update:
        update_golden()
    suite = unittest.defaultTestLoader.loadTestsFromModule(tests)
    result = unittest.TextTestRunner(stream=sys.stdout, verbosity=1).run(suite)
    # A test with several bad cases is one failed test.
    failed = {getattr(test, "test_case", test).id() for test, _ in result.failures + result.errors}
    print(f"{result.testsRun - len(failed) - len(result.skipped)} passed, {len(failed)} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())

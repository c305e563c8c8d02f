#!/usr/bin/env python3
"""Runs the real quilt and looks at what comes out: reports, messages, files, exit values.

    python3 tests/reports_test.py --quilt build/release/quilt [--windows "wine quilt.exe"] [--update]

Run from the root of the repository. With --windows the Windows program makes the same reports and
they must be the same bytes. With --update the expected reports in tests/golden are written anew.
"""

import argparse
import os
import re
import shlex
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

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


class Program:
    def __init__(self, words):
        self.words = words

    def run(self, *options, cwd=None, env=None):
        # Files, not pipes: what wine starts in the background would keep those open.
        with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as messages:
            result = subprocess.run([*self.words, *options], stdin=subprocess.DEVNULL, stdout=out,
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
    def list(tag, *children):
        return struct.pack("<HI", tag, len(contents := b"".join(children))) + contents

    def image(self, *children):
        return (struct.pack("<II4s", 2, 3, b"sdbf") + self.list(0x7001, *children)
                + self.list(0x7801, self.strings))


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
        self.assertEqual({path.name for path in GOLDEN.iterdir()}, set(REPORTS))

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

    def test_reports_of_later_versions(self):
        for option in (["-stats"], ["-listsdb"], ["-guids"], ["-stringtable"], ["-strings", "a"],
                       ["-tagids", "1"], ["-patchbytes", "eb"]):
            with self.subTest(option=option):
                result = run("-sdb", SAMPLE, *option)
                message = f"{option[0]} is not available in this version\n"
                self.assertEqual((result.returncode, result.stderr), (FAILED, notice(message) + WIPE))


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


def main():
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
    suite = unittest.defaultTestLoader.loadTestsFromModule(sys.modules[__name__])
    result = unittest.TextTestRunner(stream=sys.stdout, verbosity=1).run(suite)
    # A test with several bad cases is one failed test.
    failed = {getattr(test, "test_case", test).id() for test, _ in result.failures + result.errors}
    print(f"{result.testsRun - len(failed) - len(result.skipped)} passed, {len(failed)} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())

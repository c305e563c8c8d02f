#!/usr/bin/env python3
"""Runs the real quilt with options of every kind: help, refusals, conflicts, searches.

    python3 tests/options_test.py --quilt build/release/quilt [--update]

Run from the root of the repository. With --update the answers in tests/commands are written anew.
"""

import os
import re
import select
import subprocess
import sys
import termios
from pathlib import Path

from support.whole_runs import (ARGUMENTS, FAILED, SAMPLE, Runs, main, run, small_database)


class Options(Runs):
    def test_refusals(self):
        self.check_commands("refusals.txt", cwd="examples")
        administrator = ("-vss option should not be used with -sdb option, "
                         "use %vss%# option for -sdb option\n")
        others = ("This option requires admin privileges...\nneed to "
                  "restart cmd prompt using \"Run As Administrator\" option...\n")
        for options, said in ((f"-vss 2 -sdb {SAMPLE}", administrator),
                              ("-vss two", "no snapshot: two\n"), ("-vss ''", "no snapshot: \n")):
            self.printed(options, code=FAILED, messages=others if os.geteuid() else said)

    def test_forms(self):
        self.check_commands("forms.txt", cwd="examples")

    def test_searches(self):
        self.check_commands("searches.txt", cwd="examples")

    def test_a_notice_of_more_than_4096_bytes_is_cut(self):
        longest = "x" * (4096 - len("Prob reading file \n"))
        said = f"Prob reading file {longest}"
        self.printed("-sdb", longest, code=FAILED, messages=said + "\n")
        self.printed("-sdb", longest + "x", code=FAILED, messages=said[:4092] + "...\n")
        start = said[:4090]
        self.printed("-sdb", start[len("Prob reading file "):] + "計計計", code=FAILED,
                     messages=start + "...\n")  # to a whole character

    def test_the_progress_line_is_wiped_on_terminals_alone(self):
        wipe = "\x1b[2K\r" + " " * 27 + "\r"
        said = ("ignored: x\r\n", f"Prob reading hive {SAMPLE}: is no hive\r\n")
        for term, expected in (("xterm", wipe.join(("", *said, ""))), ("dumb", "".join(said))):
            screen, terminal = os.openpty()
            subprocess.run([*ARGUMENTS.quilt.words, "-sdb", SAMPLE, "-listsdb", "x", "-reg", SAMPLE],
                           stdout=subprocess.DEVNULL, stderr=terminal, check=False,
                           env={**os.environ, "TERM": term})
            shown = os.read(screen, 4096)
            while len(shown) < len(expected) and select.select([screen], [], [], 5)[0]:
                shown += os.read(screen, 4096)
            self.assertEqual((term, shown.decode()), (term, expected))
            os.close(screen)
            os.close(terminal)

    def on_terminal(self, *options, columns=60, **places):
        """What a run shows on a terminal, that of the error stream where standard output has a place."""
        screen, terminal = os.openpty()
        termios.tcsetwinsize(terminal, (24, columns))
        to = {"stdout": terminal, "stderr": subprocess.DEVNULL, **places}
        environment = {"TERM": "xterm", **places.pop("env", {})}
        to["env"] = {**{name: value for name, value in os.environ.items() if name != "NO_COLOR"}, **environment}
        if "stdout" in places:
            to["stderr"] = terminal
        process = subprocess.Popen([*ARGUMENTS.quilt.words, *options], stdin=subprocess.DEVNULL, **to)
        os.close(terminal)
        shown = b""
        try:
            while block := os.read(screen, 4096):
                shown += block
        except OSError:  # nobody writes there any more
            pass
        os.close(screen)
        self.assertEqual(process.wait(), 0)
        return shown.decode().replace("\r\n", "\n")

    def test_reports_for_people_fit_a_terminal_and_have_colours_there(self):
        words = ("-sdb", SAMPLE, "-no_header")
        bold = f"\x1b[1mExe ID's [{SAMPLE}]\x1b[0m\n"
        self.assertIn(bold, self.on_terminal(*words, "-guids"))
        self.assertIn(f"\x1b[1m-------------------- [{SAMPLE}]\x1b[0m\n", self.on_terminal(*words, "-exes", "-multiline"))
        explained = self.on_terminal(*words, "-explain", columns=200)
        for shown in ("\x1b[1mledger.exe  ", "\x1b[1;31m  HIGH    patch.code  ", "\x1b[33m  MEDIUM  engine.off  ",
                      "\n                            +0x00012f42  74 -> eb"):
            self.assertIn(shown, explained)
        whole = self.printed(*words, "-guids", "-quiet").decode()
        for more in ({"env": {"NO_COLOR": "1"}}, {"env": {"TERM": "dumb"}}):
            self.assertEqual(self.on_terminal(*words, "-guids", columns=200, **more), whole)
        for report in ("-guids -color never", "-guids -csv", "-explain -csvgen", "-explain -xml", "-exes", "-exes -json", "-stats -csvgen", "-stats -safe_csv"):
            shown = self.on_terminal(*words, *report.split(), columns=200)
            self.assertEqual(("\x1b" in shown, bool(shown)), (False, True), report)
        # What does not fit goes on below, and nothing is lost.
        for report, columns in (("-guids", 50), ("-stats", 50), ("-explain", 80)):
            plain = self.printed(*words, report, "-quiet").decode()
            shown = self.on_terminal(*words, report, "-color", "never", columns=columns)
            self.assertLessEqual(max(map(len, shown.split("\n"))), columns)
            self.assertEqual("".join(shown.split()), "".join(plain.split()))
        # Nor does a name with wide characters or TABs reach the next line, where it might pass for a finding.
        for name in ("計" * 90, "\t" * 9, "a" * 70 + "\t\t"):
            path = self.write("wide.sdb", small_database(1, name + "  HIGH    inject.dll"))
            shown = self.on_terminal("-sdb", path, "-explain", "-no_header", "-color", "never", columns=80)
            self.assertLessEqual(max(len(line) + line.count("計") + 7 * line.count("\t") for line in shown.split("\n")), 80)
        self.assertIn(bold.encode(), self.printed(*words, "-guids", "-quiet", "-color", "ALWAYS"))
        out = self.path("out")
        self.printed(*words, "-guids", "-quiet", "-color", "always", "-out", out)
        self.assertEqual(self.read("out").replace(b"\r\n", b"\n").decode(), whole)
        self.printed(*words, "-color", "red", code=FAILED, messages="Don't understand -color red\n")

    def test_a_terminal_shows_how_far_a_list_is(self):
        for name in ("a", "b"):
            self.write(f"in/{name}.sdb", small_database(1, name))
        for words, total in ((("-stats",), 2), (("-diff", self.path("in")), 4)):
            with open(self.path("report"), "wb") as report:
                shown = self.on_terminal("-enumdir", self.path("in"), *words, stdout=report, columns=300)
            self.assertRegex(shown, rf"^\x1b\[2K\r1 of {total} files, [\d.]+ a second, \d+ s left: \S+/[ab].sdb"
                                    r"\x1b\[2K\r +\r$")
        with open(self.path("report"), "wb") as report:
            self.assertEqual(self.on_terminal("-enumdir", self.path("in"), "-stats", "-quiet", stdout=report), "")

    def test_moved_databases_are_paired_by_their_bytes(self):
        # Both have one identifier, and the order of their names is turned round.
        for name, example in (("in/1", "sample"), ("in/2", "changed"), ("other/3", "changed"), ("other/4", "sample")):
            self.write(f"{name}.sdb", Path(f"examples/{example}.sdb").read_bytes())
        here, there = self.path("in"), self.path("other")
        told = self.printed("-enumdir", here, "-diff", there, "-quiet", "-no_header").decode()
        self.assertEqual(told.count("no record differs"), 2, told)
        self.write("in/5.sdb", small_database(1, "lone"))
        self.write("other/5.sdb", b"no database")
        self.printed("-enumdir", here, "-diff", there, "-quiet", "-no_header", messages=os.path.join(there, "5.sdb") +
                     " stands in the place of " + os.path.join(here, "5.sdb") + ", and is no database\n")

    def test_a_refusal_leaves_the_results_file_alone(self):
        out = self.write("out", b"old")
        run(f"-tag seven -out {out}")
        self.assertEqual((self.read("out"), os.listdir(self.folder)), (b"old", ["out"]))

    def test_results_and_log_are_two_files(self):
        os.symlink(self.folder, self.path("link"))
        for out, log in (("a", "a"), ("a", "./A"), ("a", "link/a"), ("a", "a.partial"),
                         ("a.partial", "a"), ("b -csv -append", "link/b"), ("b", "hard")):
            if log == "hard":
                os.link(self.write("b", b"old"), self.path("hard"))
            files = os.listdir(self.folder)
            self.printed(f"-sdb {SAMPLE} -apps -out {self.path(out)} -diags {self.path(log)}",
                         code=FAILED, messages=f"{self.path(out).split()[0]} cannot hold both "
                                               "results and log, aborting\n")
            self.assertEqual(os.listdir(self.folder), files)
        self.printed(f"-sdb {SAMPLE} -apps -quiet -out /dev/null -diags /dev/null")

    def header(self, *options):
        return run("-tag", "1", *options).stdout.decode().split("\n")  # a refusal shows it

    def test_the_run_header(self):
        banner, run_line, command, *more = self.header("-name of two words")
        self.assertEqual((banner, more), ("quilt ver: 0.45", [""]))
        self.assertRegex(run_line, r"^run time: \d\d/\d\d/\d{4} \d\d:\d\d:\d\d \[UTC\]; host: "
                                   r"[^;]+; os: [^;]+;\d+\.\d+\.-;\d+\.\d+\.\d+;(32|64)$")
        program = ARGUMENTS.quilt.words[0]
        self.assertEqual(command, f'"cmdline: {program} -tag 1 \'-name of two words\'"')
        # The date takes the format of the run, unless it is none, and a list on standard input is hinted at.
        self.assertRegex(self.header("-dateformat", "YYYY-MM-DD")[1], r"^run time: \d{4}-\d\d-\d\d ")
        self.assertRegex(self.header("--dateformat", "yyyy/m/ddd")[1], r"^run time: \d\d/\d\d/\d{4} ")
        self.assertTrue(self.header("a\x1b\nb")[2].endswith(" a[x1b][LF]b\""))
        self.assertTrue(self.header("-pipe")[2].startswith('"cmdline: <filelist> ... | '))

    def test_unknown_and_accepted_options_change_nothing(self):
        names = ("zlibex cpuinst cpu fragment_files outdir alias hostname "
                 "username filter_skip filter_path")
        values = " ".join(f"-{name} a|b" for name in names.split())
        plain = f"-sdb {SAMPLE} -apps -quiet "
        accepted = f"-threads 3 -gzip -zlib -split_pathfile -separate_files -base16 {values}"
        self.assertEqual(self.printed(plain + accepted), self.printed(plain))
        self.assertEqual(self.printed(plain.replace("-", "--").replace("sample--", "sample-")),
                         self.printed(plain))
        for words in ("-stats -apps -strings a", "-apps -filter_sig 1", "-apps -num_subdirs 3", "-explain -exes -tag 0x7007",
                      "-stats -tagids 1", "-diff examples/changed.sdb -known examples/changed.sdb"):
            said = run(f"-sdb {SAMPLE} -quiet {words}").stderr.decode()
            unused = [word for word in words.split()[1:] if word.startswith("-") and word != "-pe"]
            self.assertEqual(sorted(re.findall("not used here: (-\\w+)", said)), sorted(unused), words)
        for option, said in (("stray", ""), ("-no_such", ""), ("exes", "-exes"), ("a", ""), ("-x", ""), ("b.SDB", "-sdb"), ("--exes=1", "-exes"),
                             ("-exse", "-exes"), ("--EXSE", "-exes"), ("-quite", "-quiet"),
                             ("-apps", ""), ("-l2", ""), ("-append", ""),
                             ("-versoin", "-version"), ("--version", ""), ("-guidss", "-guids"),
                             ("-liststb", "-listsdb"), ("", ""), ("x\n\x1b", "")):
            shown = option.replace("\n\x1b", "[LF][x1b]")
            said = f"ignored: {shown}" + (f" ({said}?)\n" if said else "\n")
            self.assertEqual(self.printed(*plain.split(), option, messages=said),
                             self.printed(plain))
        self.printed(*plain.split(), "-sdb", "a", "--Out",
                     messages="ignored: -sdb\nignored: a\n--Out wants a value\n")

    def test_each_database_of_a_list_is_searched_anew(self):
        other = self.write("other.sdb", small_database(1, "x"))
        for paths in ([other, SAMPLE], [SAMPLE, other]):
            report = self.printed("-pipe -quiet -strings ledger.exe",
                                  lines="".join(f"{path}\n" for path in paths).encode(),
                                  messages=f"no matches found: {other}\n")
            self.assertEqual((report.count(b"quilt ver"), b"ledger.exe" in report), (1, True))


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Runs the real quilt with options of every kind: help, refusals, conflicts, searches.

    python3 tests/options_test.py --quilt build/release/quilt [--update]

Run from the root of the repository. With --update the answers in tests/commands are written anew.
"""

import os
import sys

from support.whole_runs import (ARGUMENTS, FAILED, SAMPLE, Runs, main, run, small_database)


class Options(Runs):
    def test_refusals(self):
        self.check_commands("refusals.txt", cwd="examples")
        administrator = ("-vss option should not be used with -sdb option, "
                         "use %vss%# option for -sdb option\n")
        others = ("This option requires admin privileges...\nneed to "
                  "restart cmd prompt using \"Run As Administrator\" option...\n")
        self.printed(f"-vss 2 -sdb {SAMPLE}", code=FAILED,
                     messages=others if os.geteuid() else administrator)

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

    def test_a_refusal_leaves_the_results_file_alone(self):
        out = self.write("out", b"old")
        run(f"-tag seven -out {out}")
        self.assertEqual((self.read("out"), os.listdir(self.folder)), (b"old", ["out"]))

    def header(self, *options):
        return run("-tag", "1", *options).stdout.decode().split("\n")  # a refusal shows it

    def test_the_run_header(self):
        banner, run_line, command, *more = self.header("-name of two words")
        self.assertEqual((banner, more), ("quilt ver: 0.45", [""]))
        self.assertRegex(run_line, r"^run time: \d\d/\d\d/\d{4} \d\d:\d\d:\d\d \[UTC\]; host: "
                                   r"[^;]+; os: [^;]+;\d+\.\d+\.-;\d+\.\d+\.\d+;(32|64)$")
        program = ARGUMENTS.quilt.words[0]
        self.assertEqual(command, f'"cmdline: {program} -tag 1 \'-name of two words\'"')
        # The date takes the format of the run, and a list on standard input is hinted at.
        self.assertRegex(self.header("-dateformat", "YYYY-MM-DD")[1], r"^run time: \d{4}-\d\d-\d\d ")
        self.assertTrue(self.header("-pipe")[2].startswith('"cmdline: <filelist> ... | '))

    def test_unknown_and_accepted_options_change_nothing(self):
        names = ("threads zlibex cpuinst cpu fragment_files outdir num_subdirs alias hostname "
                 "username filter filter_skip filter_sig filter_path")
        values = " ".join(f"-{name} a|b" for name in names.split())
        plain = f"-sdb {SAMPLE} -apps -quiet "
        for options in ("-guid x -enumsdb stray -l2 -no_such",
                        f"-gzip -zlib -split_pathfile -separate_files -base16 {values}"):
            self.assertEqual(self.printed(plain + options), self.printed(plain))

    def test_each_database_of_a_list_is_searched_anew(self):
        other = self.write("other.sdb", small_database(1, "x"))
        for paths in ([other, SAMPLE], [SAMPLE, other]):
            report = self.printed("-pipe -quiet -strings ledger.exe",
                                  lines="".join(f"{path}\n" for path in paths).encode(),
                                  messages=f"no matches found: {other}\n")
            self.assertEqual((report.count(b"quilt ver"), b"ledger.exe" in report), (1, True))


if __name__ == "__main__":
    sys.exit(main())

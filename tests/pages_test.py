#!/usr/bin/env python3
"""Holds the manual, the option page and the completions against the options, and runs every example.

    python3 tests/pages_test.py --quilt build/release/quilt

Run from the root of the repository. The programs tell_options and make_program stand beside quilt.
"""

import gzip
import os
import pty
import re
import select
import shutil
import subprocess
import sys
import time
from pathlib import Path

from support import hives
from support.whole_runs import ARGUMENTS, FAILED, SAMPLE, Runs, main

sys.path.insert(0, "docs")
import make_pages  # pylint: disable=wrong-import-position

REFUSED = {"-vss", "-sqlite", "-sqlite_log"}  # the first by a machine without snapshots
# A line with TABs, and what the shell makes of it, in a folder with case.sdb and deep/.
TYPED = (("quilt -dateform\t", "quilt -dateformat"), ("quilt -sdb ca\t", "quilt -sdb case.sdb"),
         ("quilt -enumdir de\t", "quilt -enumdir deep/"), ("quilt -enumdir ca\t", "quilt -enumdir ca$"),
         ("quilt -strings ca\t", "quilt -strings ca$"), ("quilt --sdb ca\t", "quilt --sdb case.sdb"),
         ("quilt -sdb case.sdb --dateform\t", "quilt -sdb case.sdb --dateformat"),
         ("quilt -sdb case.sdb -sdb ca\t", "quilt -sdb case.sdb -sdb case.sdb"),
         ("quilt -explain -only me\t", "quilt -explain -only medium"), ("quilt -color al\t", "quilt -color always"))
SHELLS = {"bash": (["bash", "--norc", "-i"], "source {}/quilt.bash; bind 'set enable-bracketed-paste off'"),
          "zsh": (["zsh", "-f", "-i"], "fpath=({} $fpath); autoload -U compinit; compinit -D -u; unsetopt beep")}


class Pages(Runs):
    def tool(self, name):
        return shutil.which(name) or self.skipTest(f"no {name}")

    def beside(self, name):
        return os.path.join(os.path.dirname(ARGUMENTS.quilt.words[-1]), name)

    def test_kept_pages_are_what_the_options_tell(self):
        for path, text in make_pages.made(self.beside("tell_options")).items():
            self.assertEqual((path, Path(path).read_text("utf-8")), (path, text))

    def test_every_example_runs_without_a_word(self):
        hive = self.path("SOFTWARE")
        hives.make_hive(hive, {"{A}": hives.installed("C:\\Windows\\AppPatch\\case.sdb", "A", 1)})
        for place, source in (("case.sdb", SAMPLE), ("folder/case.sdb", SAMPLE),
                              ("mounted/Windows/AppPatch/case.sdb", SAMPLE),
                              ("mounted/Windows/System32/config/SOFTWARE", hive)):
            self.write(place, Path(source).read_bytes())
        for name in ("old.sdb", "vendor.sdb"):
            self.write(name, Path("examples/changed.sdb").read_bytes())
        self.write("firm.tsv", b"list\tentry\tnote\nknown host\thelp.example\t\n")
        self.write("list.txt", b"case.sdb\n")
        self.write("volume.img", gzip.decompress(Path("tests/images/ntfs-4096.img.gz").read_bytes()))
        subprocess.run([self.beside("make_program"), "4096", self.path("program.exe")], check=True)
        told = subprocess.run([self.beside("tell_options")], check=True, capture_output=True, text=True)
        self.addCleanup(Path("/dev/shm/sem.quilt_is_done").unlink, missing_ok=True)
        path = f"{os.path.dirname(ARGUMENTS.quilt.words[-1])}:{os.environ['PATH']}"
        for option in make_pages.read_options(told.stdout)[1]:
            result = subprocess.run(["sh", "-c", option.example], cwd=self.folder, capture_output=True, text=True,
                                    timeout=60, check=False, env={**os.environ, "PATH": path})
            said = re.sub(r"(processing|no matches found:|installed on another machine,|hive \S+ was not closed,) .+\n|->[\d.e-]+ secs\n",
                          "", result.stderr)
            expected = (FAILED, said) if option.name in REFUSED else (0, "")
            self.assertEqual((option.example, result.returncode, said), (option.example, *expected))
            self.assertTrue(result.stdout or "-out" in option.example, option.example)

    def test_help_fits_the_width_of_a_screen_and_tells_of_one_option(self):
        self.assertEqual([line for line in self.printed("--help").decode().split("\n") if len(line) > 79], [])
        for name in ("-dateformat", "--DATEFORMAT", "dateformat"):
            about = self.printed("-help", name).decode()
            self.assertTrue(about.startswith("-dateformat <format>\n") and "yyyy-mm-dd" in about, about)

    def test_the_manual_has_no_fault(self):
        said = subprocess.run([self.tool("mandoc"), "-Tlint", "-Wstyle", "docs/quilt.1"], check=False,
                              capture_output=True, text=True).stdout
        # Whether the pages that it refers to are there is another matter.
        self.assertEqual([line for line in said.splitlines() if not re.search("referenced manual|mandoc.db", line)], [])

    def shown(self, command, before, line, expected):
        """What a shell shows of a line that is typed into it, once that is what is expected or it took its time."""
        def clean(text):
            return re.sub(r"\x1b\[[0-9;?]*[a-zA-Z]|[\r\x07]|.\x08", "", text).strip()

        child, screen = pty.fork()
        if child == 0:
            os.chdir(self.folder)
            os.execvpe(command[0], command, {**os.environ, "TERM": "dumb", "PS1": "> ", "HOME": self.folder})

        def read_until(text, seconds):
            found, end = "", time.monotonic() + seconds
            while text not in clean(found) and time.monotonic() < end:
                if select.select([screen], [], [], 0.05)[0]:
                    found += os.read(screen, 4096).decode(errors="replace")
            return found

        try:
            os.write(screen, f"{before}; PS1='> '; echo rea''dy\n".encode())
            self.assertIn("ready", read_until("ready\n", 20))
            os.write(screen, line.encode())
            shown = read_until("\0", 0.7) if expected.endswith("$") else read_until(expected, 10)
            os.write(screen, b"\x15exit\n")
            read_until("\0", 0.1)
        except OSError:  # it has gone
            pass
        finally:
            os.close(screen)
            os.waitpid(child, 0)
        return clean(shown)

    def test_shells_complete_options_and_their_values(self):
        self.write("case.sdb", b"")
        self.write("deep/other", b"")
        for name, (command, before) in SHELLS.items():
            if not shutil.which(name):
                print(f"skipped: completions: no {name}")
                continue
            for line, expected in TYPED:
                shown = self.shown(command, before.format(os.path.abspath("completions")), line, expected)
                self.assertRegex(shown, re.escape(expected).replace(r"\$", "$"), (name, line))

    def test_fish_completes_options_and_their_values(self):
        self.write("case.sdb", b"")
        self.write("deep/other", b"")
        script = os.path.abspath("completions/quilt.fish")
        for line, expected in TYPED:
            shown = subprocess.run([self.tool("fish"), "--no-config", "-c",
                                    f"source {script}; complete -C '{line[:-1]}'"], cwd=self.folder, check=True,
                                   capture_output=True, text=True).stdout
            words = [found.split("\t")[0] for found in shown.splitlines()]
            self.assertEqual(words, [] if expected.endswith("$") else [expected.split()[-1]], line)


if __name__ == "__main__":
    sys.exit(main())

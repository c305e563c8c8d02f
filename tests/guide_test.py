#!/usr/bin/env python3
"""Runs every command of docs/guide.md, and holds what it prints against what stands there.

    python3 tests/guide_test.py --quilt build/release/quilt [--update]
    python3 tests/guide_test.py --make <folder>      makes the volume of the guide

Run from the root of the repository. With --update the page takes what is printed.
"""

import os
import re
import subprocess
import sys
from pathlib import Path

from support import hives
from support.whole_runs import ARGUMENTS, Runs, main, small_database

GUIDE = Path("docs/guide.md").resolve()
SAMPLE = Path("examples/sample.sdb").resolve()
MADE = 1773480413  # when the sample says that it was compiled
DAY = 86400


def make_case(folder):
    """The volume: a database of Windows, the same fonts twice, and the registry that tells of one of them."""
    mounted = Path(folder, "mnt")
    for place, moment in (("Windows/AppPatch/sysmain.sdb", MADE - 400 * DAY),
                          ("Windows/AppPatch/Custom/{7a3c5e10-94d2-4b6f-8e21-c0d9f45b7a63}.sdb", MADE + 240),
                          ("ProgramData/Tarnwick/fonts.sdb", MADE + 180)):
        path = mounted / place
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(small_database(12, "Windows") if "sysmain" in place else SAMPLE.read_bytes())
        os.utime(path, (moment, moment))
    hive = mounted / "Windows/System32/config/SOFTWARE"
    hive.parent.mkdir(parents=True)
    ticks = (MADE + 200 + 11_644_473_600) * 10_000_000
    hives.make_hive(hive, {"{7a3c5e10-94d2-4b6f-8e21-c0d9f45b7a63}": hives.installed(
        "C:\\ProgramData\\Tarnwick\\fonts.sdb", "Tarnwick Font Preview Pack", ticks)})


class Guide(Runs):
    def retold(self, page):
        """The page with what each command prints made anew."""
        before, told = "", []
        lines = page.split("\n")
        while lines:
            line = lines.pop(0)
            told.append(line)
            if not line.startswith("    $ "):
                continue
            while lines and lines[0].startswith("    ") and not lines[0].startswith("    $ "):
                lines.pop(0)
            command = line[6:]
            result = subprocess.run(["bash", "-c", before + command], cwd=self.folder, stdout=subprocess.PIPE,
                                    stderr=subprocess.STDOUT, text=True, timeout=60, check=False, env={
                                        **os.environ, "PATH": f"{self.path('bin')}:{os.environ['PATH']}"})
            if re.fullmatch(r"\w+=\S+", command):
                before += command + "\n"
            told += [f"    {shown}".rstrip() for shown in result.stdout.rstrip().splitlines()]
        return "\n".join(told)

    def test_every_command_prints_what_the_guide_shows(self):
        make_case(self.folder)
        os.mkdir(self.path("bin"))
        os.symlink(ARGUMENTS.quilt.words[-1], self.path("bin/quilt"))
        page = GUIDE.read_text("utf-8")
        self.assertGreater(page.count("    $ quilt"), 5)
        if ARGUMENTS.update:
            GUIDE.write_text(self.retold(page), "utf-8")
        else:
            self.assertEqual(self.retold(page), page)


if __name__ == "__main__":
    if sys.argv[1] == "--make":
        make_case(sys.argv[2])
    else:
        sys.exit(main())

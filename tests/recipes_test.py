#!/usr/bin/env python3
"""Runs the recipes of docs/recipes.md, and holds what they print against what stands there.

    python3 tests/recipes_test.py --quilt build/release/quilt

Run from the root of the repository; needs the Debian packages jq, sqlite3 and sleuthkit.
"""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

from support.whole_runs import ARGUMENTS, COMPRESSED, SAMPLE, Runs, main

PAGE = Path("docs/recipes.md").read_text("utf-8")
TOO_LARGE = re.compile("soffice|back/")  # tools that are not installed for a test


def recipes():
    """The commands of the page with what they print, in order."""
    found = []
    for line in re.findall(r"(?m)^    (.*)$", PAGE):
        if line.startswith("$ "):
            found.append([line[2:], ""])
        elif line.startswith("> "):
            found[-1][0] += "\n" + line[2:]
        else:
            found[-1][1] += line.rstrip() + "\n"
    return found


class Recipes(Runs):
    def test_recipes_print_what_they_say(self):
        for path in (SAMPLE, COMPRESSED):
            place = shutil.copy(path, self.folder)
            os.utime(place, (1714979289, 1714979289))
        os.mkdir(self.path("bin"))
        os.symlink(ARGUMENTS.quilt.words[-1], self.path("bin/quilt"))
        places = {**os.environ, "PATH": f"{self.path('bin')}:{os.environ['PATH']}", "LC_ALL": "C.UTF-8"}
        count = 0
        for command, printed in recipes():
            if TOO_LARGE.search(command):
                continue
            count += 1
            with self.subTest(command=command):
                result = subprocess.run(["bash", "-c", command], cwd=self.folder, env=places, capture_output=True,
                                        text=True)
                shown = "".join(f"{line.rstrip()}\n" for line in result.stdout.splitlines())
                self.assertEqual((result.stderr, shown), ("", printed))
        self.assertGreater(count, 10)


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Holds the shape of src/ against docs/architecture.md, and with --patches shows that a report and a
form are one file and one row each: it builds a copy of the tree with both added and runs them.

    python3 tests/house_test.py [--patches build/release/quilt]
"""

import argparse
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from support import findings_page

ROOT = Path(__file__).resolve().parent.parent
PATCHES = sorted(ROOT.glob("tests/patches/*.patch"))
SAMPLE = str(ROOT / "examples/sample.sdb")


def floors():
    """The number of each folder's floor, from the top."""
    text = (ROOT / "docs/architecture.md").read_text("utf-8").split("## Floors")[1].split("\n## ")[0]
    lines = re.findall(r"^    ((?:[\w.]+/? )+) ", text, re.M)
    return {name.rstrip("/"): number for number, line in enumerate(lines) for name in line.split()}


class House(unittest.TestCase):
    def test_folders_include_only_what_stands_below_them(self):
        floor_of = floors()
        self.assertEqual(set(floor_of), {path.name for path in (ROOT / "src").iterdir()})
        for path in (ROOT / "src").rglob("*.*"):
            own = path.relative_to(ROOT / "src").parts[0]
            for target in re.findall(r'^\s*#\s*include "([^"/]+)/', path.read_text("utf-8"), re.M):
                with self.subTest(file=str(path), includes=target):
                    self.assertTrue(target == own or floor_of[own] < floor_of[target])

    def test_the_page_of_findings_is_that_of_the_tables(self):
        self.assertEqual((ROOT / "docs/findings.md").read_text("utf-8"), findings_page.page())
        signals = set(re.findall(r'QUILT_SIGNAL\(\w+, "(.+)"\)',
                                 (ROOT / "src/model/signals.inc").read_text("utf-8")))
        provable = {row["id"] for row in findings_page.table("findings")
                    if row["scope"] != "left" and not row["id"].startswith("fix.")}
        self.assertEqual(signals, provable)
        families = {row["family"] for row in findings_page.table("fixes")}
        named = {row["id"][4:] for row in findings_page.table("findings") if row["id"].startswith("fix.")}
        self.assertEqual(named, families)

    def test_every_message_stands_in_its_page_with_cause_and_remedy(self):
        page = (ROOT / "docs/messages.md").read_text("utf-8")
        self.assertEqual([row for row in page.split("\n") if re.search(r"\|\s*\|", row) and "| cause |" not in row], [])
        found = 0
        for path in (ROOT / "src").rglob("*.cpp"):
            for call in re.findall(r'\b(?:say|fail)\(((?:\s*"(?:[^"\\]|\\.)*")+)',
                                   path.read_text("utf-8")):
                words = "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', call))
                words = re.sub(r"(?:0x)?%(?:\w*x|llu|s)", "…", words.replace("\\n", ""))
                words = words.replace("%%", "%").replace('\\"', '"')
                found += 1
                with self.subTest(file=str(path), words=words):
                    self.assertTrue(words == "…" or f"| {words} |" in page)
        self.assertGreater(found, 50)


class Patches(unittest.TestCase):
    def test_a_report_and_a_form_are_one_file_and_one_row_each(self):
        if QUILT is None:
            self.skipTest("only with --patches")
        self.assertEqual(len(PATCHES), 2)
        place = tempfile.mkdtemp(prefix="quilt-")
        self.addCleanup(shutil.rmtree, place)
        folder = shutil.copytree(ROOT, Path(place, "tree"),
                                 ignore=shutil.ignore_patterns("build", ".git"))
        for patch in PATCHES:
            changed = re.findall(r"^\+\+\+ b/(\S+)", patch.read_text("utf-8"), re.M)
            self.assertEqual(len(changed), 2)
            self.assertEqual(sum(path.endswith(".inc") for path in changed), 1)
            rows = re.findall(r"^[+-]QUILT_\w+", patch.read_text("utf-8"), re.M)
            self.assertEqual(len(rows), 1)
            subprocess.run(["patch", "-p1", "-s", "-i", patch], cwd=folder, check=True)
        build = folder / "build"
        for command in (["cmake", "-G", "Ninja", "-S", folder, "-B", build,
                         "-DCMAKE_UNITY_BUILD=ON"], ["cmake", "--build", build, "--target", "quilt"]):
            made = subprocess.run(command, capture_output=True, text=True)
            self.assertEqual(made.returncode, 0, made.stdout + made.stderr)

        def printed(program, *options):
            return subprocess.run([program, "-sdb", SAMPLE, "-quiet", *options], check=True,
                                  capture_output=True).stdout.split(b'"\n', 1)[-1]

        new = build / "quilt"
        sizes = printed(new, "-sizes")
        self.assertEqual(int(sizes.split()[-1]), Path(SAMPLE).stat().st_size)
        facts = dict(line.split(b"\t") for line in printed(new, "-stats", "-tabbed").splitlines())
        self.assertEqual(facts[b"Database Path/File"], SAMPLE.encode())
        self.assertEqual(printed(new, "-sizes", "-tabbed"), sizes)
        self.assertEqual(printed(new, "-apps"), printed(QUILT, "-apps"))


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--patches", metavar="QUILT")
    QUILT = parser.parse_args().patches
    suite = unittest.defaultTestLoader.loadTestsFromModule(sys.modules["__main__"])
    result = unittest.TextTestRunner(stream=sys.stdout).run(suite)
    bad = len({getattr(test, "test_case", test).id() for test, _ in result.failures + result.errors})
    print(f"{result.testsRun - bad - len(result.skipped)} passed, {bad} failed")
    sys.exit(bad != 0)

#!/usr/bin/env python3
"""Runs the real quilt on real PE files: programs made here by MinGW-w64, and all that Wine brings.

    python3 tests/pe_files_test.py --quilt build/release/quilt [--windows "wine quilt.exe"]

Run from the root of the repository. What is expected comes from the resource scripts, from a reader
of PE headers that stands here, and from wrestool.
"""

import csv
import os
import re
import shutil
import struct
import subprocess
import sys
import unittest
from pathlib import Path

from support.whole_runs import (ARGUMENTS, FAILED, RULE, Database, Runs, main, masked, run)

WINE = Path("/usr/lib/x86_64-linux-gnu/wine")
X64 = "x86_64-w64-mingw32"
# FILEOS, FILETYPE, FILESUBTYPE and FILEFLAGS, as numbers and as the report has the first two.
KINDS = [(0x40004, "nt, win32", 1, "app", 0, 0), (0x10001, "dos, win16", 3, "driver", 7, 2)]
STRINGS = {"CompanyName": "Ärger & Söhne, GmbH", "FileDescription": "計測器 ツール 𝄞",
           "InternalName": "tool", "LegalCopyright": "© 2026 \"quoted\"",
           "OriginalFilename": "Tool.EXE", "ProductName": "Инструменты"}
SECOND = {"CompanyName": "Second", "ProductName": "Zweites"}


def resource_script(kind, tables, languages=("9, 1",)):
    blocks = ""
    for key, strings in tables.items():
        values = "\n".join('VALUE "%s", "%s"' % (name, text.replace('"', '""'))
                           for name, text in strings.items())
        blocks += f'BLOCK "{key}"\nBEGIN\n{values}\nEND\n'
    facts = dict(zip(("os_number", "_", "file_type", "_", "subtype", "flags"), kind), blocks=blocks)
    template = Path("tests/support/version.rc.in").read_text("utf-8")
    return "".join(template.format(language=language, **facts) for language in languages)


def header_facts(path):
    """What the headers say, or None for what is to be refused."""
    data = Path(path).read_bytes()
    place = struct.unpack_from("<i", data, 60)[0] if len(data) >= 64 and data[:2] == b"MZ" else 0
    header = place + 24
    if place <= 64 or len(data) < header + 224 or data[place:place + 4] != b"PE\0\0":
        return None
    sections, stamp = struct.unpack_from("<HI", data, place + 6)
    size = 240 if struct.unpack_from("<H", data, header)[0] == 0x20b else 224
    if len(data) < header + size + 40 * sections:
        return None
    major, minor, image_major, image_minor = struct.unpack_from("<4H", data, header + 40)
    return {"FileSize": len(data), "CompileTimestamp": stamp, "OSMajorVersion": major,
            "OSMinorVersion": minor, "LinkerVersion": image_major << 16 | image_minor,
            "PECheckSum": struct.unpack_from("<I", data, header + 64)[0]}


def version_facts(resource):
    """The versions and the strings that the report shows of a version resource."""
    numbers = struct.unpack_from("<8H", resource, resource.index(b"\xbd\x04\xef\xfe") + 8)
    strings = re.findall(f"({'|'.join(STRINGS)})\0\0?([^\0]*)\0", resource.decode("utf-16-le"))
    return sorted([("fileversion", "{1}.{0}.{3}.{2}".format(*numbers)),
                   ("productversion", "{5}.{4}.{7}.{6}".format(*numbers)),
                   *((key.lower(), text.strip() or "0x00000000") for key, text in strings)])


def report_lines(path):
    result = run("-pe", path, "-stats", "-quiet", "-csv_separator", "=")
    lines = result.stdout.decode().split("\n")[3:-1]
    return {name.strip(): value.strip() for name, value in (line.split("=", 1) for line in lines)}


class Made(Runs):
    """Programs made by MinGW-w64."""

    def make(self, prefix, name, kind=None, tables=None, **script):
        if shutil.which(prefix + "-gcc") is None or shutil.which(prefix + "-windres") is None:
            self.skipTest(f"no {prefix}-gcc")
        self.write("main.c", b"int main(void) { return 0; }\n")
        commands = [f"gcc main.c -o {name}"]
        if kind:
            self.write("v.rc", resource_script(kind, tables, **script).encode())
            commands = ["windres -c 65001 v.rc v.o", f"gcc main.c v.o -o {name}"]
        for command in commands:
            subprocess.run(f"{prefix}-{command}".split(), check=True, cwd=self.folder)
        return self.path(name)

    def check(self, path, kind=None, tables=None):
        facts = header_facts(path)
        lines = {"Source file": path, "Filename": os.path.basename(path).lower(),
                 "ModuleType": "Win32", **{name: f"0x{facts[name]:08x}" for name in facts}}
        if kind is not None:
            lines |= {"fileos": kind[1], "filetype": kind[3], "fileversion": "1.2.3.65535",
                      "productversion": "65535.0.7.1"}
            lines |= {f"stringfileinfo_{table}_{key}".lower(): text
                      for table, strings in tables.items() for key, text in strings.items()}
        told = report_lines(path)
        told["CompileTimestamp"], _, date = told["CompileTimestamp"].partition(" [")
        self.assertRegex(date, r"^20\d\d-\d\d-\d\d \d\d:\d\d:\d\d\.000 UTC\]$")
        self.assertEqual(told, lines)

    def test_reports_say_what_the_resource_script_said(self):
        for prefix in (X64, "i686-w64-mingw32"):
            with self.subTest(compiler=prefix):
                self.check(self.make(prefix, "Plain.EXE"))
                for kind in KINDS:
                    tables = {"040904b0": {**STRINGS, "Comments": "not shown"}}
                    path = self.make(prefix, "Tool.exe", kind, tables)
                    self.check(path, kind, {"040904b0": STRINGS})
                tables = {"040904b0": STRINGS, "040704E4": SECOND}
                self.check(self.make(prefix, "Tool.exe", KINDS[0], tables), KINDS[0], tables)
                # Of two version resources one is read: that which stands first in the file.
                tables.pop("040904b0")
                path = self.make(prefix, "Tool.exe", KINDS[0], tables, languages=["7, 1", "9, 1"])
                self.check(path, KINDS[0], tables)

    def test_forms_messages_and_exit_values(self):
        tool = self.make(X64, "Tool.exe", KINDS[0], {"040904b0": STRINGS})
        bad = self.write("bad.exe", Path(tool).read_bytes()[:300])
        self.printed(f"-pe {bad} -stats -quiet", code=FAILED,
                     messages=f"Problem pulling PE stats from file {bad}: is no program\n")
        lines = f"{bad}\n\n{self.path('nowhere')}\n{tool}\n{tool}\n".encode()
        for form, rules, rows, heads in (("", 2, 0, 0), ("-csv", 0, 3, 1), ("-csvl2t", 0, 0, 0)):
            text = self.printed(
                f"-pe -stats -pipe {form}", lines=lines, code=FAILED,
                messages=f"Prob analyzing file {self.path('nowhere')}: no such file\n").decode()
            found = (text.count(RULE), text.count("\n") - 3 if form else 0,
                     text.count("source file,"))
            self.assertEqual((form, *found), (form, rules, rows, heads))
        listed = self.printed(f"-enumdir {self.folder} -pe -stats -csv -quiet -filter *.exe")
        self.assertEqual(listed.count(b"Tool.exe,"), 1)
        self.assertEqual(run("-pe -stats -pipe", lines=bad.encode()).returncode, FAILED)

    def test_matches_stay_on_the_console(self):
        tool, tag = self.make(X64, "tool.exe"), (d := Database()).tag
        image = d.image(tag(0x7007, tag(0x6001, "tool.exe"),
                            tag(0x7008, tag(0x6001, "*"), tag(0x4006, 3))))
        database, out = self.write("a.sdb", image), self.path("out")
        result = run(f"-sdb {database} -match -pe {tool} -out {out}")
        self.assertEqual((result.returncode, result.stdout), (0, b"match tagid 0000001e\n\n"))
        self.assertIn(b'<exe name="tool.exe"', self.read("out"))
        result = run(f"-sdb {database} -match -pe {tool} -multiline")
        self.assertTrue(result.stdout.split(b"\n", 3)[3].startswith(
            b"match tagid 0000001e\n-------------------- [" + database.encode()))

    def test_windows_reports(self):
        """The same bytes, but for the folder."""
        programs = ARGUMENTS.quilt, self.windows()
        tool = self.make(X64, "tool.exe", KINDS[1], {"040904b0": STRINGS, "040704e4": SECOND})
        shutil.copy(tool, "build/tool.exe")
        self.addCleanup(os.unlink, "build/tool.exe")
        for form in ("", "-csv", "-csv -pair_datetime", "-base10"):
            here, there = (program.run("-pe", "build/tool.exe", "-stats", *form.split())
                           for program in programs)
            self.assertEqual((form, there.returncode, masked(there.stdout)),
                             (form, 0, masked(here.stdout)))

    def test_a_sparse_file_of_three_gigabytes(self):
        tool = self.make(X64, "tool.exe", KINDS[0], {"040904b0": STRINGS})
        before = report_lines(tool)
        os.truncate(tool, 3 << 30)
        self.assertEqual(report_lines(tool), {**before, "FileSize": "0xc0000000"})
        empty = self.write("empty.exe", b"MZ" + b"\0" * 58 + struct.pack("<I", 0x7fffff00))
        os.truncate(empty, 3 << 30)
        self.assertEqual(run(f"-pe {empty} -stats").returncode, FAILED)


def wine_files():
    return sorted(str(path) for path in WINE.rglob("*") if path.is_file())


@unittest.skipIf(not WINE.is_dir(), "no Wine")
class Wine(Runs):
    def test_every_file_is_reported_or_refused_by_a_rule(self):
        files = wine_files()
        report = self.printed("-pe -stats -pipe -csv -quiet",
                              lines="".join(f"{path}\n" for path in files).encode())
        rows = list(csv.reader(report.decode().split("\n")[4:-1], strict=True))
        self.assertEqual({len(row) for row in rows}, {20})
        facts = {path: header_facts(path) for path in files}
        columns = {0: "name", 3: "CompileTimestamp", 7: "FileSize", 12: "LinkerVersion",
                   13: "OSMajorVersion", 14: "OSMinorVersion", 16: "PECheckSum", 19: "folder"}
        expected = [[str({**fact, "name": os.path.basename(path), "folder": os.path.dirname(path)}[one])
                     for one in columns.values()]
                    for path, fact in facts.items() if fact is not None]
        self.assertGreater(len(expected), 500)
        self.assertEqual([[row[place] for place in columns] for row in rows], expected)

    @unittest.skipIf(shutil.which("wrestool") is None, "wrestool is not installed")
    def test_version_strings_agree_with_wrestool(self):
        files = [path for path in wine_files() if header_facts(path) is not None]
        left = 50
        for path in files[::max(1, len(files) // (3 * left))]:
            resource = subprocess.run(["wrestool", "-x", "--raw", "--type=16", path],
                                      capture_output=True, check=False).stdout
            if not resource or left == 0:
                continue
            left -= 1
            with self.subTest(path=path):
                told = [(name.rpartition("_")[2], value)
                        for name, value in report_lines(path).items()
                        if name.startswith("stringfileinfo") or name.endswith("version")]
                self.assertEqual(sorted(told), version_facts(resource))
        self.assertEqual(left, 0, "too few files with a version resource")


if __name__ == "__main__":
    sys.exit(main())

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
KINDS = [(0x40004, "nt, win32", 1, "app", 0, 0), (0x4, "win32", 2, "dll", 0, 1),
         (0x10001, "dos, win16", 3, "driver", 7, 2), (0, "unk", 7, "statc_lib", 0, 0x3f),
         (0x99, "unk", 0x63, "unk", 1, 0x14)]
STRINGS = {"CompanyName": "Ärger & Söhne, GmbH", "FileDescription": "計測器 ツール 𝄞",
           "InternalName": "tool", "LegalCopyright": "© 2026 \"quoted\"",
           "OriginalFilename": "Tool.EXE", "ProductName": "Инструменты"}
SECOND = {"CompanyName": "Second", "ProductName": "Zweites"}
SHOWN = ("company", "description", "internalname", "copyright", "originalfilename", "productname")


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


def version_blocks(data, at=0, end=None):
    """The blocks of a version resource as (key, value, children)."""
    end = len(data) if end is None else end
    while at + 6 < end:
        length, value_length, kind = struct.unpack_from("<3H", data, at)
        if length == 0:
            break
        limit = at + length
        text = data[at + 6:limit].decode("utf-16-le", "replace")
        key = text[:text.index("\0")]
        value_at = (at + 6 + len(key.encode("utf-16-le")) + 2 + 3) & ~3
        value_end = value_at + value_length * (2 if kind == 1 else 1)
        children = list(version_blocks(data, (value_end + 3) & ~3, limit))
        yield key, data[value_at:min(value_end, limit)], children
        at = (limit + 3) & ~3


def version_facts(data):
    """What the report shows of a version resource, as wrestool gives it."""
    (_, fixed, children), = list(version_blocks(data))[:1]
    high, low, product_high, product_low = struct.unpack_from("<4I", fixed, 8)
    facts = {name: f"{a >> 16}.{a & 0xffff}.{b >> 16}.{b & 0xffff}"
             for name, a, b in (("fileversion", high, low),
                                ("productversion", product_high, product_low))}
    for info, _, tables in children:
        for table, _, strings in tables if info == "StringFileInfo" else ():
            for key, value, _ in strings:
                name = f"stringfileinfo_{table}_{key}".lower()
                if any(word in name for word in SHOWN):
                    facts[name] = value.decode("utf-16-le").split("\0")[0] or "0x00000000"
    return facts


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

    def expected(self, path, kind=None, tables=None):
        facts = header_facts(path)
        lines = {"Source file": path, "Filename": os.path.basename(path).lower(),
                 "ModuleType": "Win32", **{name: f"0x{facts[name]:08x}" for name in facts}}
        if kind is not None:
            lines |= {"fileos": kind[1], "filetype": kind[3], "fileversion": "1.2.3.65535",
                      "productversion": "65535.0.7.1"}
            lines |= {f"stringfileinfo_{table}_{key}".lower(): text
                      for table, strings in tables.items() for key, text in strings.items()}
        return lines

    def check(self, path, *told):
        lines = report_lines(path)
        lines["CompileTimestamp"], _, date = lines["CompileTimestamp"].partition(" [")
        self.assertRegex(date, r"^20\d\d-\d\d-\d\d \d\d:\d\d:\d\d\.000 UTC\]$")
        self.assertEqual(lines, self.expected(path, *told))

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
                     messages=f"Problem pulling PE stats from file {bad}\n")
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
        tool, other = (self.make(X64, name) for name in ("tool.exe", "other.exe"))
        tag = (d := Database()).tag
        image = d.image(tag(0x7007, tag(0x6001, "tool.exe"),
                            tag(0x7008, tag(0x6001, "*"), tag(0x4006, 3))))
        database, out = self.write("a.sdb", image), self.path("out")
        match = f"-sdb {database} -match -pe "
        result = run(f"{match} {tool} -out {out}")
        self.assertEqual((result.returncode, result.stdout), (0, b"match tagid 0000001e\n\n"))
        self.assertIn(b'<exe name="tool.exe"', self.read("out"))
        result = run(f"{match} {tool} -multiline")
        self.assertTrue(result.stdout.split(b"\n", 3)[3].startswith(
            b"match tagid 0000001e\n-------------------- [" + database.encode()))
        self.printed(f"{match} {other} -quiet", messages=f"no matches found: {database}\n")

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
        rows = list(csv.reader(report.decode().split("\n")[4:-1], quoting=csv.QUOTE_NONE))
        self.assertEqual({len(row) for row in rows}, {20})
        facts = {path: header_facts(path) for path in files}
        expected = [(os.path.basename(path), os.path.dirname(path), str(fact["PECheckSum"]))
                    for path, fact in facts.items() if fact is not None]
        self.assertGreater(len(expected), 500)
        self.assertEqual([(row[0], row[-1], row[3]) for row in rows], expected)

    def sample(self, count):
        files = [path for path in wine_files() if header_facts(path) is not None]
        for path in files[::max(1, len(files) // (3 * count))]:
            resource = subprocess.run(["wrestool", "-x", "--raw", "--type=16", path],
                                      capture_output=True, check=False).stdout
            if resource and count > 0:
                count -= 1
                yield path, version_facts(resource)
        self.assertEqual(count, 0, "too few files with a version resource")

    def setUp(self):
        super().setUp()
        if shutil.which("wrestool") is None:
            self.skipTest("wrestool is not installed")

    def test_version_strings_agree_with_wrestool(self):
        for path, facts in self.sample(50):
            with self.subTest(path=path):
                lines = report_lines(path)
                self.assertEqual({name: value for name, value in lines.items()
                                  if name.startswith("stringfileinfo") or name.endswith("version")},
                                 {name: value.strip() for name, value in facts.items()})

    def test_each_file_is_caught_by_its_own_record_alone(self):
        for path, facts in self.sample(50):
            with self.subTest(path=path):
                database, caught = self.records_about(path, facts)
                result = run("-sdb", self.write("a.sdb", database), "-match", "-pe", path, "-quiet")
                self.assertEqual(re.findall(r'<exe name="(.*?)"', result.stdout.decode()), caught)

    @staticmethod
    def records_about(path, facts):
        """A database of records that ask for all properties of a file, all but one of them with a
        property changed; and those that are to catch it."""
        d, headers = Database(), header_facts(path)
        version, product = (int.from_bytes(struct.pack(">4H", *map(int, facts[name].split("."))), "big")
                            for name in ("fileversion", "productversion"))
        # Tag, value, and how a bound is given: 0 for equality, -1 for a lower, 1 for an upper one.
        properties = [(0x4001, headers["FileSize"], 0), (0x400b, headers["PECheckSum"], 0),
                      (0x4006, 3, 0), (0x401c, headers["LinkerVersion"], 0),
                      (0x401d, headers["CompileTimestamp"], 0),
                      (0x401e, headers["CompileTimestamp"], 1),
                      (0x4033, headers["CompileTimestamp"], -1),
                      (0x400c, headers["OSMajorVersion"], 0),
                      (0x400d, headers["OSMinorVersion"], 0), (0x5002, version, 0),
                      (0x5003, product, 0), (0x500d, version, 1), (0x5013, version, -1),
                      (0x5006, product, 1), (0x5012, product, -1),
                      (0x6011, facts["productversion"], 0), (0x6013, facts["fileversion"], 0)]
        words = {"company": 0x6009, "description": 0x6012, "internalname": 0x6015,
                 "copyright": 0x6016, "originalfilename": 0x6014, "productname": 0x6010}
        strings = {}
        for key in sorted(facts):
            tag = next((words[word] for word in words if word in key), None)
            strings.setdefault(tag, facts[key])
        strings.pop(None, None)
        properties += [(tag, text, 0) for tag, text in strings.items() if text != "0x00000000"]

        records, caught = [], []
        for changed, (tag, value, bound) in [(None, (0, 0, 0)), *enumerate(properties)]:
            for step in (-1, 1):
                new = value + "x" if isinstance(value, str) else value + step
                if not isinstance(new, str) and not 0 <= new < 1 << (32 if tag < 0x5000 else 64):
                    continue
                name = f"{tag:04x} {step}"
                members = [d.tag(*((tag, new) if place == changed else of[:2]))
                           for place, of in enumerate(properties)]
                members.append(d.tag(0x6001, os.path.basename(path).lower()))
                records.append(d.tag(0x7007, d.tag(0x6001, name), d.tag(0x7008, *members)))
                if changed is None or step == bound:
                    caught.append(name)
        return d.image(*records), caught


if __name__ == "__main__":
    sys.exit(main())

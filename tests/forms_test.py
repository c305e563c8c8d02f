#!/usr/bin/env python3
"""Holds what quilt writes against real readers of its forms: an XML parser, a CSV reader, a terminal.

    python3 tests/forms_test.py --quilt build/release/quilt

Run from the root of the repository.
"""

import csv
import hashlib
import os
import re
import shlex
import subprocess
import sys
import xml.etree.ElementTree as xml
from datetime import datetime, timezone
from pathlib import Path

from support.hostile import HOSTILE, damaged_databases, hostile_database
from support.whole_runs import COMPRESSED, FAILED, GOLDEN, SAMPLE, Database, Runs, main, run

# What a reader may not meet: controls but TAB and the line's own end, and what reorders a line.
ACTING = re.compile("[\x00-\x08\x0b-\x1f\x7f-\x9f\u061c\u200e\u200f\u202a-\u202e\u2066-\u2069\ufffe\uffff]")
XML_LISTINGS = ("-apps", "-fixes", "-exes", "-shims", "-patches", "-tag 0x7007", "-apps -fixes",
                "-strings e", "-patchbytes 85", "-patchbytes '85 86 87 88'")
DELIMITED = {"-csv": ",", "-csv -no_whitespace": ",", "-csv -pair_datetime": ",", "-csvl2t": ",",
             "-csv -enable_quoted_csv_fields": ",", "-csv -csv_separator TAB": "\t",
             "-csv -pair_datetime -enable_quoted_csv_fields": ",", "-csv -csv_separator ;": ";",
             "-csvl2t -enable_quoted_csv_fields": ",", "-csvl2t -csv_separator |": "|",
             "-csvl2t -pair_datetime": ",", "-csv -hostname 'a \"host\", \x1b'": ",",
             "-csvl2t -username '\u202e,\"x'": ","}


class Forms(Runs):
    def report(self, options):
        """What the options make the run print, as text that does nothing on a screen."""
        result = run(options)
        text = result.stdout.decode()
        self.assertEqual((options, ACTING.findall(text)), (options, []))
        self.assertEqual((options, ACTING.findall(result.stderr.decode())), (options, []))
        return text

    def tree(self, options):
        text = self.report(options)
        try:
            return xml.fromstring(text)
        except xml.ParseError as error:
            self.fail(f"{options}: {error}\n{text}")

    def rows(self, text, separator):
        """The rows of a delimited report, behind its three lines of header; all of one length."""
        rows = list(csv.reader(text.split("\n")[3:-1], delimiter=separator, strict=True))
        self.assertEqual(len({len(row) for row in rows}), 1, rows)
        return rows

    def test_hostile_texts(self):
        for number, text in enumerate(HOSTILE):
            with self.subTest(text=text):
                image = hostile_database(text, HOSTILE[number - 1])
                path = self.write("hostile.sdb", image)
                for listing in XML_LISTINGS:
                    self.assertEqual(self.tree(f"-sdb {path} {listing}").tag, "shimdb")
                for form in ("-multiline", "-csvgen", "-bodyfile", "-csv", "-csvgen -csv_separator TAB"):
                    for listing in ("-apps", "-fixes", "-guids", "-stringtable", "-stats"):
                        report = self.report(f"-sdb {path} {listing} {form}")
                        if "TAB" in form and listing == "-guids":
                            self.assertEqual({row.count("\t") for row in
                                              re.findall(r"(?m)^[-\da-f]{36}.*", report)}, {2})
                for form, separator in DELIMITED.items():
                    rows = self.rows(self.report(f"-sdb {path} -stats {form}"), separator)
                    self.assertGreater(len(rows), 1)

    def test_names_of_files(self):
        for name in ("a\nb.sdb", "a\x1b[2J.sdb", 'a"b<c>&d.sdb', "\u202ebds.sdb", b"\xff\xfe,.sdb"):
            with self.subTest(name=name):
                folder = os.path.join(os.fsencode(self.folder), b"volume", b"Windows", b"apppatch")
                os.makedirs(folder, exist_ok=True)
                for number in range(2):
                    path = os.path.join(folder, str(number).encode() + os.fsencode(name))
                    Path(os.fsdecode(path)).write_bytes(hostile_database("x"))
                quoted = shlex.quote(os.fsdecode(path))
                tree = self.tree(f"-partition {self.path('volume')} -apps")
                self.assertEqual(tree.tag, "shimdbs")
                for form in ("-stats", "-stats -csv", "-stats -bodyfile", "-apps -multiline",
                             "-guids", "-listsdb"):
                    self.report(f"-partition {self.path('volume')} {form}")
                    if form != "-listsdb":
                        self.report(f"-sdb {quoted} {form}")
                for path in os.listdir(folder):
                    os.unlink(os.path.join(folder, path))

    def test_fields_hold_their_texts(self):
        """Whatever a name holds is read again as it was, but for its marks and the substitution."""
        marks = {"\r\n": "[CRLF]", "\n\r": "[LFCR]", "\n": "[LF]", "\r": "[CR]", "\x1b": "[x1b]",
                 "\x07": "[x07]", "\x9b": "[x9b]", "\x85": "[x85]", "\u202e": "[U+202E]",
                 "\u2066": "[U+2066]", "\u2069": "[U+2069]", "\u200e": "[U+200E]",
                 "\u200f": "[U+200F]", "\u061c": "[U+061C]", "\ufffe": "\ufffd", "\uffff": "\ufffd",
                 "\x7f": "[x7f]", "\x08": "[x08]", "\x01": "[x01]"}
        for text in HOSTILE[:-1]:
            marked = text
            if text.startswith("\n"):
                marked = "[LF]" + text[1:]
            for found, mark in marks.items():
                marked = marked.replace(found, mark)
            path = self.write("named.sdb", hostile_database(text))
            for form, separator, expected in (
                    ("-csv", ",", marked.replace(",", " ")),
                    ("-csv -csv_separator ;", ";", marked),
                    ("-csv -csv_separator TAB", "\t", marked.replace("\t", "[x09]")),
                    ("-csv -enable_quoted_csv_fields", ",", marked)):
                with self.subTest(text=text, form=form):
                    head, row = self.rows(self.report(f"-sdb {path} -stats {form}"), separator)
                    columns = [name.strip() for name in head]
                    self.assertEqual(row[columns.index("DB name")].rstrip(), expected.rstrip())
            for form, separator in (("-csv", ","), ("-csvgen", ","), ("-csvl2t", ","),
                                    ("-bodyfile", "|")):
                with self.subTest(text=text, form=form):
                    text_rows = re.findall(r"(?m)^[-\da-f]{36}.*",
                                           self.report(f"-sdb {path} -guids {form}"))
                    rows = list(csv.reader(text_rows, delimiter=separator, strict=True))
                    self.assertEqual({len(row) for row in rows}, {3})
                    self.assertIn(marked, [row[2] for row in rows])
            tree = self.tree(f"-sdb {path} -tag 0x7006")
            told = [tree[0].get("name"), *(child.get("stringref") or (child.text or "").strip()
                                           for child in tree[0].findall("name"))]
            has_markup = set(marked) & set("<>&")
            expected = marked if has_markup else marked.replace('"', "'").replace("\t", " ")
            self.assertEqual(told[0], "CDATA" if has_markup else expected)
            self.assertIn(expected, told)

    def test_xml_of_damaged_databases(self):
        for number, image in enumerate(damaged_databases(300)):
            path = self.write("damaged.sdb", image)
            listing = XML_LISTINGS[number % len(XML_LISTINGS)]
            with self.subTest(number=number):
                self.assertEqual(self.tree(f"-sdb {path} {listing} -quiet").tag, "shimdb")
                form, separator = list(DELIMITED.items())[number % len(DELIMITED)]
                text = self.report(f"-sdb {path} -stats {form} -quiet")
                if text.count("\n") > 4:
                    self.rows(text, separator)
                self.report(f"-sdb {path} -apps -fixes -guids -stringtable -multiline")

    def test_golden_documents(self):
        for path in GOLDEN.glob("*.xml"):
            with self.subTest(path=path):
                self.assertTrue(xml.parse(path).getroot().tag.startswith("shimdb"))

    def test_every_way_out_closes_the_document(self):
        program = self.write("program.exe", b"no program")
        other = self.write("other.sdb", b"no database")
        for options, children in ((f"-sdb {SAMPLE} -match -pe {program}", 0),
                                  (f"-sdb {SAMPLE} -patchbytes 'ff ee dd cc'", 0),
                                  (f"-sdb {SAMPLE} -strings nowhere", 0),
                                  (f"-sdb {SAMPLE}", 0), (f"-sdb {other} -apps", 0),
                                  (f"-sdb {SAMPLE} -patchbytes 85", 1)):
            with self.subTest(options=options):
                tree = self.tree(options)
                self.assertEqual((tree.tag, min(len(tree), 1)), ("shimdb", children))
        for options in ("-sdb nowhere.sdb -apps", "-apps", f"-sdb {SAMPLE} -tag 0x7001", ""):
            self.assertNotIn("<", self.report(options))

    def test_several_databases(self):
        for name in ("a.sdb", "b&<c>.sdb", "z.sdb"):
            self.write(f"v/Windows/apppatch/{name}", hostile_database(name))
        self.write("v/Windows/apppatch/none.sdb", b"no database")
        options = f"-partition {self.path('v')} -exes"
        tree = self.tree(options)
        self.assertEqual((tree.tag, [child.tag for child in tree]), ("shimdbs", ["shimdb"] * 3))
        self.assertEqual([os.path.basename(child.get("file")) for child in tree],
                         ["a.sdb", "b&<c>.sdb", "z.sdb"])
        self.assertEqual(self.report(options).count("<?xml"), 1)
        for name in ("a.sdb", "b&<c>.sdb", "z.sdb"):
            self.write(f"v/Windows/apppatch/{name}", b"no database")
        self.assertEqual(run(options).stdout.decode().split("\n", 1)[1], "<shimdb>\n</shimdb>\n")

    def test_match_lines_are_comments_in_the_document(self):
        tag = (d := Database()).tag
        head = b"MZ".ljust(60, b"\0") + (128).to_bytes(4, "little")
        path = self.write("tool.exe", head.ljust(128, b"\0") + b"PE\0\0" + bytes(20) + b"\x0b\1"
                          + bytes(4096))
        database = self.write("m.sdb", d.image(
            tag(0x7007, tag(0x6001, "tool.exe"), tag(0x6006, "Tool"), tag(0x4001, 1),
                tag(0x7008, tag(0x6001, "tool.exe")))))
        text = self.report(f"-sdb {database} -match -pe {path} -quiet")
        self.assertRegex(text, r"\n<!-- match tagid [\da-f]{8} -->\n")
        self.assertEqual(len(xml.fromstring(text)), 1)
        out = self.path("out.xml")
        self.assertRegex(self.report(f"-sdb {database} -match -pe {path} -quiet -out {out}"),
                         r"^match tagid [\da-f]{8}\n")
        self.assertNotIn("match tagid", Path(out).read_text())
        self.assertEqual(len(xml.parse(out).getroot()), 1)

    def test_body_file(self):
        for path in (SAMPLE, COMPRESSED, self.write("a|b.sdb", Path(SAMPLE).read_bytes())):
            for form in ("-bodyfile", "-bodyfile -csv_separator ,"):
                with self.subTest(path=path, form=form):
                    text = self.report(f"-stats -sdb {shlex.quote(path)} {form}")
                    first, second = (line.split("|") for line in text.splitlines())
                    data, facts = Path(path).read_bytes(), os.stat(path)
                    name = path.replace("|", ";")
                    self.assertEqual(first[:10:6], [hashlib.md5(data).hexdigest(), str(len(data))])
                    self.assertEqual((first[1], first[2:6], first[8], first[9]),
                                     (name, ["0"] * 4, str(int(facts.st_mtime)), "0"))
                    self.assertEqual((second[0], second[1], second[9:]),
                                     ("0", f"{name} (database)", ["0", "0"]))
                    self.assertEqual({len(first), len(second)}, {11})
        out = self.path("body")
        run("-stats", "-sdb", SAMPLE, "-bodyfile", "-out", out)
        timeline = list(csv.reader(subprocess.run(
            ["mactime", "-b", out, "-d", "-z", "UTC"], capture_output=True, text=True,
            check=True).stdout.splitlines()))
        self.assertIn(["Sat Mar 14 2026 09:26:53", "0", "m...", "0", "0", "0", "0", f"{SAMPLE} (database)"],
                      timeline)
        moment = datetime.fromtimestamp(int(os.stat(SAMPLE).st_mtime), timezone.utc)
        self.assertIn((moment.strftime("%a %b %d %Y %H:%M:%S"), str(os.path.getsize(SAMPLE)), SAMPLE),
                      [(row[0], row[1], row[-1]) for row in timeline if row[2].startswith("m")])
        listed = run("-stats -bodyfile -pipe", lines=f"{SAMPLE}\n{COMPRESSED}\n".encode())
        self.assertEqual([line.count(b"|") for line in listed.stdout.splitlines()], [10] * 4)


    def test_no_field_is_a_formula(self):
        """Where that is asked for. What stands behind an apostrophe is what would stand there else."""
        for text in ("=1+1", "+1", "-1", "@a", " =1", "\t-1", "a=1", "'=", "=a,b", '="a"'):
            tag = (d := Database()).tag
            path = self.write("=named.sdb", d.image(
                tag(0x6001, text), tag(0x9007, bytes(16)), tag(0x7007, tag(0x6001, text), tag(0x6006, "A"))))
            def safe_text(field):
                return "'" + field if field.strip(" \t")[:1] in tuple("=+-@") else field
            for form, separator in (("-csv", ","), ("-csv -enable_quoted_csv_fields", ","), ("-csvgen", "\t"),
                                    ("-csvl2t", ","), ("-multiline", "|"), ("-csv", ";")):
                for report in ("-stats", "-guids", "-stringtable", "-exes"):
                    with self.subTest(text=text, form=form, report=report):
                        options = f"-sdb {path} {report} {form} -csv_separator '{separator}' -no_header"
                        rows, safe = ([[field.rstrip() for field in row] for row in csv.reader(
                            self.report(options + more).splitlines(), delimiter=separator)]
                                      for more in ("", " -safe_csv"))
                        self.assertEqual([[safe_text(field) for field in row] for row in rows], safe)

    def test_rows_without_a_banner(self):
        for form, first in (("-csv", "source file"), ("-csvl2t", "date,time,"), ("-multiline", "Database Path"),
                            ("-csvgen", "Database Path"), ("", "Database Path"), ("-bodyfile", "323e6399")):
            self.assertEqual(run(f"-sdb {SAMPLE} -stats {form} -no_header").stdout.decode().find(first), 0)
        for options in ("-sdb nowhere.sdb -apps -no_header", f"-no_header -sdb {SAMPLE} -tag 0x7001",
                        f"-no_header -sdb {SAMPLE} -exes -csv", f"-no_header -sdb {SAMPLE} -exes -csvl2t"):
            self.assertEqual(run(options).stdout, b"")


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Holds pages against an XML parser, their own policy and the other forms.

    python3 tests/html_test.py --quilt build/release/quilt

Run from the root of the repository.
"""

import base64
import hashlib
import re
import struct
import sys
import xml.etree.ElementTree as xml
from pathlib import Path

from forms_test import ACTING
from json_test import LISTINGS, offsets_in_lines
from support import hives
from support.hostile import HOSTILE, damaged_databases, hostile_database
from support.json_lines import read_report
from support.whole_runs import (COMPRESSED, FAILED, SAMPLE, Database, Runs, main, run, small_database,
                                small_program)

# What a page is made of: nothing that leads out of it, and no attribute that acts.
ELEMENTS = set("""html head meta title style body header h1 h2 h3 main section details summary div p b em span dl dt
                  dd table thead tr th td a br form label input select option output datalist svg path text script
                  """.split())
ATTRIBUTES = set("""lang charset http-equiv content name class id hidden role for type autocomplete list value
                    aria-live aria-label href viewBox d x y transform""".split())


def text_of(element):
    return "".join(element.itertext())


class Html(Runs):
    def page(self, options, code=0, **places):
        """The page that a run makes, which is well formed, carries its policy and stands for itself."""
        result = run(options, **places)
        self.assertEqual((options, result.returncode), (options, code), result.stderr)
        text = result.stdout.decode()
        self.assertTrue(text.startswith("<!DOCTYPE html>\n") and text.endswith("</html>\n"), text[-200:])
        self.assertEqual(ACTING.findall(text), [])
        page = xml.fromstring(text)
        self.assertLessEqual({element.tag for element in page.iter()}, ELEMENTS)
        self.assertLessEqual({name for element in page.iter() for name in element.keys()}, ATTRIBUTES)
        ids = [element.get("id") for element in page.iter() if element.get("id")]
        self.assertEqual(len(ids), len(set(ids)))
        self.assertLessEqual({link.get("href")[1:] for link in page.iter("a")}, set(ids))
        policy = page.find("head/meta[@http-equiv]").get("content")
        digests = ["'sha256-" + base64.b64encode(hashlib.sha256(page.find(where).text.encode()).digest()).decode() + "'"
                   for where in ("head/style", "body/script", )]
        self.assertEqual(policy, f"default-src 'none'; style-src {digests[0]}; script-src {digests[1]}; "
                                 "base-uri 'none'; form-action 'none'")
        return page

    def examined(self, page):
        return [text_of(row) for row in page.findall(".//table[@class='all']/tr")[1:]]

    def cards(self, page):
        return page.findall(".//details[@class='c']")

    def facts(self, element):
        """Names and values of the first list of facts in an element."""
        children = list(element.find(".//dl"))
        return dict(zip((text_of(one) for one in children[::2]), children[1::2]))

    def test_hostile_texts_are_texts(self):
        for number, text in enumerate(HOSTILE):
            with self.subTest(text=text):
                path = self.write("hostile.sdb", hostile_database(text, HOSTILE[number - 1]))
                page = self.page(f"-sdb {path} -apps -fixes -guids -stringtable -html -quiet")
                lines = run(f"-sdb {path} -apps -multiline -csv_separator | -quiet").stdout.decode()
                told = set(re.findall(r"(?m)\|stringref *\|(.*)$", lines))
                self.assertIn("svc", told)
                shown = {text_of(value) for value in page.iter("dd")}
                self.assertLessEqual(told, shown)
                stats = self.page(f"-sdb {path} -stats -html -quiet")
                name = [*re.findall(r"(?m)^Database Internal Name\|(.*)$", run(
                    f"-sdb {path} -stats -quiet -csv_separator |").stdout.decode()), ""][0]
                self.assertEqual(text_of(self.facts(stats.find("body/main/section"))["name"]), name)

    def test_explanations_and_differences_are_tables(self):
        d = Database()  # so many that several threads tell of them
        long = self.write("long.sdb", d.image(d.tag(0x7007, d.tag(0x6001, "svchost.exe")) * 600))
        hostile = [self.write(f"{number}.sdb", hostile_database(text, HOSTILE[number - 1]))
                   for number, text in enumerate(HOSTILE)]
        for path in (SAMPLE, long, *hostile):
            for options, kind in ((f"-sdb {path} -explain", "finding"),
                                  (f"-sdb {SAMPLE} -diff {path}", "difference")):
                with self.subTest(options=options):
                    options += " -threads 3 -quiet "
                    rows = self.page(options + "-html").findall(f".//table[@class='{kind}']/tr")
                    told = [line for line in read_report(run(options + "-json").stdout) if line["kind"] == kind]
                    self.assertEqual([row[2 if kind == "finding" else 1].text for row in rows],
                                     [line["id" if kind == "finding" else "change"] for line in told])
                    elements = xml.fromstring(run(options + "-xml").stdout).iter(kind)
                    self.assertEqual(len(list(elements)), len(told))
        self.assertGreater(run(f"-sdb {long} -explain -csv -quiet").stdout.count(b"target.core"), 599)

    def test_records_are_whole(self):
        """Every offset of the plain listing stands in the page."""
        images = [Path(SAMPLE).read_bytes(), *damaged_databases(150)]
        for number, image in enumerate(images):
            path = self.write("some.sdb", image)
            options = f"-sdb {path} {LISTINGS[number % len(LISTINGS)]} -quiet"
            with self.subTest(number=number):
                found = [[int(place, 16) for place in re.findall(r"(?:<dt>|<p>|<p class=\"f\">|<summary>)0x(\w{8}) ",
                                                                 xml.tostring(card).decode())]
                         for card in self.cards(self.page(options + " -html", code=run(options).returncode))]
                lines = run(options + " -multiline -csv_separator |").stdout.decode()
                self.assertEqual([sorted(record) for record in found], offsets_in_lines(lines))

    def test_values_are_shown(self):
        operation = bytes([4, 0, 0, 0, 86, 0, 0, 0, 2, 0, 0, 0, 0, 16]).ljust(20, b"\0")
        operation += "a<b>.dll".encode("utf-16-le").ljust(64, b"\0") + b"\x85\xc0"
        tag = Database().tag
        d = Database()
        image = d.image(d.tag(0x7007, d.tag(0x6001, "a&b.exe"), b"\x05\x60" + struct.pack("<I", 7777), tag(0x5001, 1), tag(0x4001, 7),
                              d.tag(0x9002, operation), d.tag(0x9005, b"1234"), b"\x02\x10",
                              d.tag(0x5002, 6 << 48 | 2 << 32), b"\1\x30\7\x70"))
        path = self.write("a.sdb", image)
        card, = self.cards(self.page(f"-sdb {path} -exes -html -quiet"))
        self.assertEqual({name[11:]: text_of(value) for name, value in self.facts(card).items()}, {
            "name": "a&b.exe", "vendor": "no text at 0x1e61", "time": "1601-01-01 00:00:00.000", "size": "0x00000007",
            "patch_bits": "match a<b>.dll 0x00001000: 85 c0", "data_bits": "4 bytes", "general": "set",
            "bin_file_version": "6.2.0.0", "match_mode": "exe"})
        self.assertEqual(text_of(card.find("summary"))[11:], "exe a&b.exe")

    def test_lists_beyond_64_are_cards_of_their_own(self):
        tag = Database().tag
        innermost = tag(0x4001, 7)
        for _ in range(200):
            innermost = tag(0x7003, innermost, tag(0x4001, 9))
        path = self.write("deep.sdb", Database().image(tag(0x7007, tag(0x4001, 5), innermost)))
        cards = self.cards(self.page(f"-sdb {path} -exes -html -quiet"))
        self.assertEqual([len(list(card.iter("dl"))) for card in cards], [64, 64, 64, 9])
        self.assertIn("in 0x", text_of(cards[1].find("summary")))

    def test_what_was_examined_stands_on_top(self):
        image = small_database(3, "Named")
        path = self.write("v/ProgramData/a.sdb", image)
        self.write("v/Windows/System32/config/SOFTWARE", b"")
        self.write("v/Windows/AppPatch/bad.sdb", b"no database")
        hives.make_hive(self.path("v/Windows/System32/config/SOFTWARE"),
                        {"{A}": hives.installed("C:\\ProgramData\\a.sdb", "Says <so>", hives.MOMENT, 7)})
        options = f"-partition {self.path('v')} -stats -html -quiet"
        page = self.page(options, code=FAILED)
        run_facts = self.facts(page.find("body/header"))
        self.assertIn(options, text_of(run_facts["command line"]))
        rows = self.examined(page)
        good, = (row for row in rows if row.startswith(path))
        bad, = (row for row in rows if "is no database" in row)
        for digest in ("md5", "sha1", "sha256"):
            self.assertIn(hashlib.new(digest, image).hexdigest(), good)
        for words in ("Named", "database compiled 2003-06-", "file modified ", "registry installed ", f"{len(image)}"):
            self.assertIn(words, good)
        self.assertIn("bad.sdb", bad)
        marks = [text_of(mark) for mark in page.findall(".//svg/path[@transform]")]
        self.assertTrue(any(mark.startswith("registry installed 20") for mark in marks), marks)
        told = self.facts(page.find("body/main/section[@id='%s']" % next(
            link.get("href")[1:] for link in page.iter("a") if link.text == path)))
        self.assertIn("Says <so>", text_of(told["registry"]))
        program = self.write("tool.exe", small_program(1_500_000_000))
        listed = f"{COMPRESSED}\n{path}\n{self.path('none')}\n{COMPRESSED}\n".encode()
        page = self.page(f"-pipe -match -pe {program} -html -quiet", code=FAILED, lines=listed)
        digests = {name: hashlib.sha256(Path(name).read_bytes()).hexdigest() for name in (program, SAMPLE, COMPRESSED)}
        tool, packed, *_, again = self.examined(page)
        self.assertTrue(tool.startswith(program) and digests[program] in tool and "program compiled" in tool, tool)
        self.assertIn(f"SHA-256 {digests[COMPRESSED]}inflated MD5", packed)
        self.assertIn(f"inflated SHA-256 {digests[SAMPLE]}", packed)
        self.assertEqual(packed, again)
        self.assertEqual(text_of(self.facts(page.find("body/main/section"))["md5, inflated"]),
                         hashlib.md5(Path(SAMPLE).read_bytes()).hexdigest())

    def test_every_run_is_a_whole_page(self):
        tool = self.write("tool.exe", b"no program")
        self.write("v/Windows/AppPatch/a.sdb", Path(SAMPLE).read_bytes())
        lists = f"{SAMPLE}\n{tool}\n{self.path('none.sdb')}\n".encode()
        program = self.write("p.exe", small_program())
        for options, code, words in (
                (f"-sdb {SAMPLE} -explain", 0, "1 database; 0 could"),
                (f"-sdb {SAMPLE} -strings nowhere", 0, "1 database, 0 records; 0 could"),
                (f"-sdb {SAMPLE} -match -pe {tool}", FAILED, "1 could not be read"),
                (f"-sdb {SAMPLE} -match -pe {program}", 0, "0 records; 0 could"),
                (f"-pe {program} -stats", 0, "0 databases, 1 program, "),
                (f"-sdb {tool} -apps", FAILED, "1 could not be read"),
                (f"-sdb {SAMPLE} -patchbytes zz", FAILED, "The run was refused"),
                ("-apps", FAILED, "The run was refused"),
                (f"-partition {self.path('v')} -listsdb", 0, "1 database, "),
                (f"-partition {self.folder} -listsdb", FAILED, "Not all that was asked for"),
                ("-pipe -tag 0x7010", FAILED, "1 could not be read"),
                ("-pipe -stats", FAILED, "1 database, ")):
            with self.subTest(options=options):
                page = self.page(f"{options} -html -quiet", code=code, lines=lists)
                self.assertIn(words, text_of(page.find("body/section")))
        self.assertEqual(text_of(self.page(f"-partition {self.path('v')} -listsdb -html").find(
            "body/main/table/tr")), self.path("v/Windows/AppPatch/a.sdb"))

    def test_a_page_stands_alone(self):
        out = self.path("out.html")
        self.page(f"-sdb {SAMPLE} -apps -html -quiet")
        self.assertEqual(run(f"-sdb {SAMPLE} -apps -html -quiet -out {out}").stdout, b"")
        xml.fromstring(Path(out).read_text("utf-8"))
        result = run(f"-sdb {SAMPLE} -apps -html -quiet -out {out} -append")
        self.assertEqual((result.returncode, result.stderr), (FAILED, b"-append needs a form of lines, aborting\n"))

    def test_many_records_are_told_to_be_many(self):
        for count, words in ((20_000, b""), (20_001, b"20001 records in one page, which browsers take long for: "
                                                     b"-json serves better\n")):
            path = self.write("many.sdb", small_database(count, "Many"))
            result = run(f"-sdb {path} -exes -html -quiet")
            self.assertEqual((result.returncode, result.stderr), (0, words))
            self.assertEqual(b"So many records" in result.stdout, count > 20_000)


if __name__ == "__main__":
    sys.exit(main())

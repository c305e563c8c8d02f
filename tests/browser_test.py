#!/usr/bin/env python3
"""Opens pages in a real browser: they speak to nobody, have no error on its console, and serve by eye,
keyboard, search and on paper. Screenshots go to build/logs.

    python3 tests/browser_test.py --quilt build/release/quilt

Run from the root of the repository; needs the Debian packages chromium-driver and poppler-utils.
"""

import sys

from support.browser import Browser
from support.hostile import HOSTILE, hostile_database
from support.whole_runs import SAMPLE, Runs, main, run


class Pages(Runs):
    def setUp(self):
        super().setUp()
        self.browser = Browser()
        self.addCleanup(self.browser.close)

    def open(self, name, options, **places):
        path = self.write(name, run(f"{options} -html -quiet", **places).stdout)
        self.browser.open(path)
        self.assertEqual(self.browser.log(), [])
        loaded = self.browser.do("return performance.getEntriesByType('resource').length")
        self.assertEqual(loaded, 0)

    def visible(self, what):
        return self.browser.do("return Array.from(document.querySelectorAll(arguments[0]))"
                               ".filter(function (one) { return one.checkVisibility(); }).length", what)

    def test_the_sample(self):
        self.open("sample.html", f"-sdb {SAMPLE} -apps -fixes")
        browser = self.browser
        browser.picture("light")
        browser.emulate(prefers_color_scheme="dark")
        self.assertEqual(browser.do("return getComputedStyle(document.body).backgroundColor"), "rgb(20, 23, 27)")
        browser.picture("dark")
        top = browser.do("return ['header', '#summary', '#find', 'main'].map(function (one) {"
                         "return document.querySelector(one).getBoundingClientRect().top; })")
        self.assertEqual(top, sorted(top))
        self.assertEqual(self.visible("#end"), 0)
        count = self.visible(".c")
        self.assertGreater(count, 10)
        self.assertEqual(self.visible(".c dl"), 0)
        # By keyboard alone: the first card opens.
        browser.do("document.querySelector('.c summary').focus()")
        browser.keys("\ue007")
        self.assertGreater(self.visible(".c dl"), 0)
        browser.picture("open")
        for field, words, shown in (("words", "DRAWPLAN", None), ("words", "no such word", 0), ("words", "", count),
                                    ("program", "ledger", 1), ("program", "", count),
                                    ("fix", "LoadCompanionModule", None), ("fix", "", count),
                                    ("tag", "patch_ref", None), ("tag", "", count)):
            with self.subTest(field=field, words=words):
                told, _ = browser.search(field, words)
                self.assertEqual(told, f"{self.visible('.c')} of {count} shown")
                if shown is None:
                    self.assertTrue(0 < self.visible(".c") < count, told)
                else:
                    self.assertEqual(self.visible(".c"), shown)
        paper = browser.printed()
        for words in ("recordsvc.exe", "matching_file", "LoadCompanionModule", "SHA-256"):
            self.assertIn(words, paper)
        self.assertEqual(browser.log(), [])

    def test_hostile_texts(self):
        for number, text in enumerate([*HOSTILE, "<script>document.title='x'</script>",
                                       "\"><img src=x onerror=alert(1)>", "</style><style>*{display:none}"]):
            with self.subTest(text=text):
                path = self.write("hostile.sdb", hostile_database(text, HOSTILE[number % len(HOSTILE)]))
                self.open("hostile.html", f"-sdb {path} -apps -fixes -guids -stringtable")
                found = self.browser.do("return [document.images.length, document.scripts.length, document.title,"
                                        "document.querySelectorAll('main .c').length]")
                self.assertEqual(found[:2], [0, 1])
                self.assertTrue(found[2].startswith("quilt ") and found[3] > 1, found)
                self.assertEqual(self.browser.log(), [])

    def test_without_script(self):
        self.browser.close()
        self.browser.__init__(prefs={"profile.managed_default_content_settings.javascript": 2})
        path = self.write("sample.html", run(f"-sdb {SAMPLE} -apps -html -quiet").stdout)
        self.browser.open(path)
        self.assertEqual(self.visible("#find"), 0)
        self.assertIn("ledger.exe", self.browser.printed())

    def test_all_reports(self):
        for options in ("-guids", "-stringtable", "-stats", "-strings e", "-tag 0x7008"):
            self.open("report.html", f"-sdb {SAMPLE} {options}")
        self.assertEqual(self.browser.log(), [])


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Measures how a browser takes the page of all applications of a database: the first paint, and searches
from the last key to the paint of what is found.

    bench/page.py [build folder] [--database file]

Without a database one of 10,000 small records is made. Takes Chromium from the system (the Debian package
chromium-driver). Ends with 1 where a paint takes more than 2 s, or a search 0.5 s.
"""

import argparse
import os
import statistics
import subprocess
import sys
import tempfile
from pathlib import Path

sys.path.append(str(Path(__file__).resolve().parent.parent / "tests"))
from support.browser import PAINT, Browser
from support.whole_runs import small_database

LOADED = "return performance.timing.loadEventEnd - performance.timing.navigationStart"


def measure(quilt, database, folder):
    if database is None:
        database = f"{folder}/many.sdb"
        Path(database).write_bytes(small_database(10_000, "Many"))
    page = f"{folder}/many.html"
    with open(page, "wb") as out:
        subprocess.run([quilt, "-sdb", database, "-apps", "-html", "-quiet"], stdout=out, check=True)
    browser = Browser()
    try:
        paints, loads, searches = [], [], []
        for _ in range(5):
            browser.open(page)
            paints.append(browser.do(PAINT))
            loads.append(browser.do(LOADED))
            for words in ("tool77", "no such", "exe", ""):
                searches.append(browser.search("words", words)[1])
    finally:
        browser.close()
    print(f"{os.path.getsize(page) / 1e6:.1f} MB; first paint {statistics.median(paints):.0f} ms, "
          f"loaded {statistics.median(loads):.0f} ms; searches {statistics.median(searches):.0f} ms, "
          f"{max(searches):.0f} ms at most")
    return statistics.median(paints) > 2000 or max(searches) > 500


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("folder", nargs="?", default="build/release")
    parser.add_argument("--database")
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        return measure(os.path.join(arguments.folder, "quilt"), arguments.database, folder)


sys.exit(main())

#!/usr/bin/env python3
"""Measures how a fleet grows: the same inputs by one worker and by two.

    python3 bench/fleet.py --quilt build/release/quilt [--inputs 60] [--bytes 16000000] [--report '-apps']

Run from the root of the repository on a machine with two free cores; needs make_large_database beside quilt and
the Debian package python3-distributed. Prints inputs a second and how much more two workers do than one, the time
in which the cluster starts included and left out.
"""

import argparse
import os
import re
import subprocess
import sys
import tempfile
import time
from pathlib import Path


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--quilt", required=True)
    parser.add_argument("--inputs", type=int, default=60)
    parser.add_argument("--bytes", type=int, default=16_000_000)
    parser.add_argument("--report", default="-explain -only high", help="what is asked of each input")
    settings = parser.parse_args()
    quilt = os.path.abspath(settings.quilt)
    report = settings.report.split()
    with tempfile.TemporaryDirectory(prefix="quilt-") as place:
        collection = Path(place, "collection")
        collection.mkdir()
        first = collection / "0.sdb"
        subprocess.run([Path(quilt).parent / "make_large_database", str(settings.bytes), first], check=True)
        for i in range(1, settings.inputs):
            (collection / f"{i}.sdb").write_bytes(first.read_bytes())
        began = time.monotonic()
        subprocess.run([quilt, "-sdb", first, *report, "-json", "-quiet", "-threads", "1"], check=True,
                       stdout=subprocess.DEVNULL)
        print(f"{settings.inputs} inputs of {time.monotonic() - began:.2f} s")
        rates = []
        for workers in (1, 2):
            began = time.monotonic()
            run = subprocess.run([sys.executable, "fleet/quilt_fleet.py", "--quilt", quilt, "--workers", str(workers),
                                  "--into", Path(place, f"out{workers}"), collection, "--", *report],
                                 check=True, stderr=subprocess.PIPE, text=True)
            seconds = time.monotonic() - began
            rate = float(re.findall(r"([\d.]+) a second", run.stderr)[-1])
            rates.append((rate, settings.inputs / seconds))
            print(f"{workers} workers: {rate:.2f} a second, {settings.inputs / seconds:.2f} with the cluster's start")
        print("two do {:.2f} times what one does, {:.2f} with the start".format(*(b / a for a, b in zip(*rates))))


if __name__ == "__main__":
    main()

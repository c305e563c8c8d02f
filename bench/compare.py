#!/usr/bin/env python3
"""Measures quilt as a whole process against common tools, side by side in one run.

    bench/compare.py [build folder] [--pairs N] [--files N]

Builds nothing: takes quilt and its makers of large files from the folder (build/release), and
hivexget, mkntfs, ntfs-3g and Wine's programs from the system. The two commands of a row run in turn,
A B A B, and the ratio is the median of the ratios of the pairs, so that a slow
moment of the machine touches both. Clock and processor time stand side by side. Ends with 1 when a
figure is not reached by the clock.
"""

import argparse
import collections
import os
import re
import statistics
import sys
import tempfile
import time
from pathlib import Path

sys.path.append(str(Path(__file__).resolve().parent.parent / "tests"))
import volume_images

MIB = 1 << 20
SMALL_DATABASES = 1000
WINE = "/usr/lib/x86_64-linux-gnu/wine"


class Run:
    """What one process took: seconds by the clock and of the processor, peak memory in bytes."""

    def __init__(self, command, output=None, given=os.devnull):
        if output is not None and os.path.exists(output):
            os.unlink(output)  # some file systems write a file out that replaces another
        flags = os.O_WRONLY | os.O_CREAT
        actions = [(os.POSIX_SPAWN_OPEN, 0, given, os.O_RDONLY, 0),
                   (os.POSIX_SPAWN_OPEN, 1, output or os.devnull, flags, 0o644),
                   (os.POSIX_SPAWN_OPEN, 2, os.devnull, os.O_WRONLY, 0)]  # "no matches found"
        # A child begins with the peak of its parent, which is let sink to what that has now.
        Path("/proc/self/clear_refs").write_text("5")
        begin = time.perf_counter()
        child = os.posix_spawnp(command[0], command, os.environ, file_actions=actions)
        _, status, usage = os.wait4(child, 0)
        self.wall = time.perf_counter() - begin
        self.cpu = usage.ru_utime + usage.ru_stime
        self.peak = usage.ru_maxrss * 1024
        if status != 0:
            sys.exit(f"compare.py: {' '.join(command)} ended with status {status}")


class Table:
    def __init__(self, pairs):
        self.pairs = pairs
        self.missed = 0
        self.line("job / yardstick", "job", "yardstick", "ratio", "of cpu", "asked", True)

    def row(self, name, first, second, reach):
        """Two commands, job and yardstick, each with its output file, and the ratio of their times that
        is asked for."""
        runs = []
        for number in range(self.pairs + 1):
            pair = (Run(*first), Run(*second))
            if number > 0:  # the first pair fills the caches
                runs.append(pair)
        walls = [[run.wall * 1000 for run in side] for side in zip(*runs)]
        clock, cpu = (
            statistics.median(getattr(a, kind) / max(getattr(b, kind), 1e-9) for a, b in runs)
            for kind in ("wall", "cpu")
        )
        a, b = (f"{statistics.median(side):.1f} ms" for side in walls)
        self.line(name, a, b, f"{clock:.2f}", f"{cpu:.2f}", reach, clock <= reach)

    def memory(self, name, peak, limit):
        a, b = (f"{value / MIB:.1f} MiB" for value in (peak, limit))
        self.line(name, a, b, f"{peak / limit:.2f}", "", 1, peak <= limit)

    def line(self, name, a, b, clock, cpu, reach, reached):
        self.missed += not reached
        word = "" if reached else "  missed"
        job, _, yardstick = name.partition(" / ")
        print(f"{job:34} {yardstick:27} {a:>10} {b:>10} {clock:>6} {cpu:>6} {reach:>6}{word}",
              flush=True)


def make_small_databases(maker, place):
    """Many databases of 144 KB, and the file that lists them."""
    names = [os.path.join(place, f"small-{number}.sdb") for number in range(SMALL_DATABASES)]
    for name in names:
        Run([maker, "144000", name])
    with open(list_path := os.path.join(place, "list"), "w", encoding="utf-8") as file:
        file.writelines(f"{name}\n" for name in names)
    return list_path


def rare_word(apps):
    """The name of a program that one record alone holds, in two places."""
    with open(apps, "rb") as file:
        report = file.read()
    counts = collections.Counter(re.findall(rb'"(\w+\.exe)"', report))
    return next(name.decode() for name, count in counts.items()
                if count == report.count(name) == 2)


def shell(line):
    return ["sh", "-c", line]


def compare_finding(table, maker, place, quilt, large, load, apps):
    """Searches, statistics and lists; `apps` is the XML of -apps of the large database."""
    run = [quilt, "-sdb", large, "-quiet"]
    table.row("-stats / md5sum, then sha1sum", ([*run, "-stats"],),
              (shell(f"md5sum {large}; sha1sum {large}"),), 1.2)
    table.row("-stringtable / strings -el", ([*run, "-stringtable"], f"{place}/table"),
              (["strings", "-el", large], f"{place}/strings"), 1.0)
    word = rare_word(apps)
    table.row("-strings / grep -c in the XML of -apps", ([*run, "-strings", word], f"{place}/found"),
              (["grep", "-c", word, apps], f"{place}/count"), 1.2)  # it would see /dev/null
    table.row("-patchbytes with no hit / load", ([*run, "-patchbytes", "de ad be ef de ad be ef"],),
              load, 1.1)
    listed = make_small_databases(maker, place)
    table.row("-pipe -stats -csv, 1,000 of 144 KB / md5sum, then sha1sum",
              ([quilt, "-pipe", "-stats", "-csv", "-quiet"], f"{place}/csv", listed),
              (shell("xargs md5sum <%s; xargs sha1sum <%s" % (listed, listed)),), 0.8)


def compare_programs(table, folder, place, quilt, large, load):
    """Reports on PE files; `load` is the command that loads the large database."""
    program = os.path.join(place, "program.exe")
    Run([os.path.join(folder, "make_program"), str(64 * MIB), program])
    table.row("-pe -stats, 64 MiB / md5sum", ([quilt, "-pe", program, "-stats"],),
              (["md5sum", program],), 1.0)
    table.row("-match, 16 MiB / load", ([quilt, "-sdb", large, "-quiet", "-match", "-pe", program],),
              load, 2.0)
    many = os.path.join(place, "many-programs")
    os.mkdir(many)
    Run(shell(f"head -c 16384 {program} > {many}/0.exe; for i in $(seq 9999); do "
              f"cp {many}/0.exe {many}/$i.exe; done"))
    table.row("-match, 10,000 programs / md5sum", ([quilt, "-sdb", large, "-quiet", "-match", "-pe",
                                                    "-enumdir", many],),
              (shell(f"find {many} -type f | xargs md5sum"),), 1.0)
    files = sorted(os.path.join(path, name) for path, _, names in os.walk(WINE) for name in names)
    if not files:
        print("-pe -stats -pipe -csv: Wine is not installed")
        return
    with open(listed := os.path.join(place, "programs"), "w", encoding="utf-8") as file:
        file.writelines(f"{name}\n" for name in files)
    table.row("-pe -stats -pipe -csv, Wine / md5sum", ([quilt, "-pe", "-stats", "-pipe", "-csv"],
                                                       f"{place}/pe.csv", listed),
              (shell(f"xargs md5sum <{listed}"),), 1.5)


def compare_hive(table, folder, place, quilt):
    """What the registry tells, from a large hive with many installed databases."""
    hive = os.path.join(place, "SOFTWARE")
    Run([os.path.join(folder, "make_large_hive"), str(128 * MIB), "1000", hive])
    key = (r"Microsoft\Windows NT\CurrentVersion\AppCompatFlags\InstalledSDB"
           r"\{000001f4-1234-4321-abcd-0123456789ab}")
    run = ([quilt, "-listsdb", "-reg", hive, "-quiet"], os.path.join(place, "installed"))
    table.row("-listsdb -reg, 128 MiB / hivexget", run, (["hivexget", hive, key],), 1.0)
    table.row("-listsdb -reg, 128 MiB / cat", run, (["cat", hive],), 3.0)
    peak = max(Run(*run).peak for _ in range(3))
    table.memory("peak of it / 1.2 hives + 16 MiB", peak, 1.2 * os.path.getsize(hive) + 16 * MIB)


def compare_volumes(table, folder, place, quilt):
    """A large hive off the image of a volume, in many fragments and in one."""
    if reason := volume_images.why_no_mount():
        print(f"volume images left out: {reason}")
        return
    hive = os.path.join(place, "SOFTWARE-64")
    Run([os.path.join(folder, "make_large_hive"), str(64 * MIB), "1000", hive])
    with open(hive, "rb") as file:
        contents = file.read()
    for name, fragments in (("500 fragments", 500), ("contiguous", 1)):
        image = os.path.join(place, f"volume-{fragments}")
        volume_images.make_volume(image, 160 * MIB, 4096)
        with volume_images.mounted(image) as root:
            path = os.path.join(root, volume_images.HIVE)
            os.makedirs(os.path.dirname(path))
            pages = len(contents) // 4096
            volume_images.write_fragments(path, contents, -(-pages // fragments) * 4096)
            for number in range(5000):
                os.close(os.open(os.path.join(root, f"Windows/System32/module{number}.dll"),
                                 os.O_CREAT))
        table.row(f"-partition -listsdb, {name} / ntfscat",
                  ([quilt, "-partition", image, "-listsdb", "-quiet"], f"{place}/installed"),
                  (["ntfscat", image, volume_images.HIVE],), 1.0)


def compare_images(table, place, quilt, maker, files):
    """Databases and folders straight out of the image of a volume, against the same volume mounted."""
    if volume_images.why_no_mount():
        return
    image = os.path.join(place, "volume")
    volume_images.make_volume(image, (300 + files // 350) * MIB, 4096)
    database = os.path.join(place, "one.sdb")
    Run([maker, "1000000", database])
    with open(database, "rb") as file:
        contents = file.read()
    with volume_images.mounted(image) as root:
        for number in range(100):
            path = os.path.join(root, f"databases/{number}.sdb")
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "wb") as file:
                file.write(contents)
        for number in range(files):
            path = os.path.join(root, f"Windows/folder {number // 500}")
            if number % 500 == 0:
                os.makedirs(path)
            os.close(os.open(os.path.join(path, f"a file with a name {number}.dll"), os.O_CREAT))
    with volume_images.mounted(image) as root:
        table.row("-stats -csv of 100 in an image / md5sum, mounted",
                  ([quilt, "-enumdir", f"{image}/databases", "-stats", "-csv", "-quiet"],
                   f"{place}/csv"), (shell(f"md5sum {root}/databases/*"),), 1.5)
        walk = [quilt, "-enumdir", image, "-num_subdirs", "9", "-filter", "0.sdb", "-quiet",
                "-stats", "-csv"]
        table.row(f"a walk over {files:,} files / find, mounted", (walk, f"{place}/csv"),
                  (["find", root], f"{place}/found"), 2.0)
        table.memory("peak of it / 300 MiB", max(Run(walk).peak for _ in range(3)), 300 * MIB)


def compare(folder, pairs, place, files):
    quilt = os.path.join(folder, "quilt")
    maker = os.path.join(folder, "make_large_database")
    databases = {}
    for size in (1, 16):
        databases[size] = os.path.join(place, f"{size}.sdb")
        Run([maker, str(size * MIB), databases[size]])
    databases["shared"] = os.path.join(place, "shared.sdb")
    Run([maker, str(16 * MIB), databases["shared"], "shared"])

    def listing(size, *options):
        return [quilt, "-sdb", databases[size], "-quiet", *options]

    load = {size: (listing(size, "-tag", "0x7fff"),) for size in databases}
    report = os.path.join(place, "report")
    xml = {size: (listing(size, "-apps"), f"{report}-{size}.xml") for size in databases}
    plain = {size: (listing(size, "-apps", "-multiline"), f"{report}-{size}.txt")
             for size in databases}
    json = {size: (listing(size, "-apps", "-json"), f"{report}-{size}.json") for size in databases}
    page = {size: (listing(size, "-apps", "-html"), f"{report}-{size}.html") for size in databases}

    table = Table(pairs)
    for kind in ("shared", 16):
        table.row(f"load, {kind} / md5sum of the database", load[kind],
                  (["md5sum", databases[kind]],), 1.5)
        for name, command, reach in (("XML", xml[kind], 1.0), ("plain", plain[kind], 0.7),
                                     ("JSON", json[kind], 1.0), ("page", page[kind], 2.0)):
            Run(*command)
            table.row(f"-apps {name}, {kind} / md5sum of it", command, (["md5sum", command[1]],),
                      reach)
            peak = max(Run(*command).peak for _ in range(3)) - 16 * MIB
            table.memory("peak of it beyond 16 MiB / 2.5 images", peak,
                         2.5 * os.path.getsize(databases[kind]))
        table.row(f"-explain, {kind} / md5sum of its XML",
                  (listing(kind, "-explain"), f"{report}-explained"), (["md5sum", xml[kind][1]],), 1.0)
    other = os.path.join(place, "other.sdb")
    Run(["cp", databases[16], other])
    for name, one, two, path in (("16 and 16", 16, 16, other), ("shared and 16", "shared", 16, other)):
        table.row(f"-diff, {name} / load of both", (listing(one, "-diff", path), report),
                  (shell(" && ".join(" ".join(load[kind][0]) for kind in (one, two))),), 4.0)
    table.row("load, 16 MiB / 1 MiB", load[16], load[1], 20)
    table.row("-apps, 16 MiB / 1 MiB", xml[16], xml[1], 20)
    compare_finding(table, maker, place, quilt, databases["shared"], load["shared"],
                    xml["shared"][1])
    compare_programs(table, folder, place, quilt, databases[16], load[16])
    compare_hive(table, folder, place, quilt)
    compare_volumes(table, folder, place, quilt)
    compare_images(table, place, quilt, maker, files)
    return table.missed


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("folder", nargs="?", default="build/release")
    parser.add_argument("--pairs", type=int, default=11)
    parser.add_argument("--files", type=int, default=100_000, help="in the volume that is walked over")
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory() as place:
        return 1 if compare(arguments.folder, arguments.pairs, place, arguments.files) else 0


sys.exit(main())

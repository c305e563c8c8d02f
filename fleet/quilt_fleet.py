#!/usr/bin/env python3
"""Runs quilt over a collection that is too large for one machine, on Dask.

    fleet/quilt_fleet.py --into results collection
    fleet/quilt_fleet.py --into results --list inputs.txt --scheduler tcp://host:8786 -- -apps

An input is a database, a registry hive, an image of a volume or a disk, or the root of a mounted system; folders are
searched for them. Each becomes one file of JSON lines in results/parts, which takes its place when it is whole.
A run that was stopped goes on where it stopped; inputs that failed are tried again. docs/fleet.md tells more.

Ends with 0 when every input was read and reported whole, with 1 when any was not, with 2 when it could not begin.
"""

import argparse
import fcntl
import hashlib
import itertools
import json
import os
import subprocess
import sys
import time
import uuid
from pathlib import Path

AHEAD = 64  # inputs that wait at the scheduler for each worker
TRIES = 3  # of an input whose worker died
SHOWN_FAILURES = 20


# --- what there is to do

def kind_of_file(path):
    """What a file's first bytes say that it is; empty for what quilt does not read."""
    try:
        with open(path, "rb") as file:
            head = file.read(512)
    except OSError:
        return ""
    if head[:4] == b"regf":
        return "hive" if head[28:32] == bytes(4) else ""  # logs begin alike
    if head[8:12] in (b"sdbf", b"zdbf"):
        return "database"
    is_first_e01 = head[:8] == b"EVF\t\r\n\xff\0" and path.lower().endswith(".e01")
    if is_first_e01 or head[3:7] == b"NTFS" or head[510:512] == b"\x55\xaa":
        return "image"
    return ""


def is_system(folder):
    """Whether a folder is the root of a mounted system."""
    for name in os.listdir(folder):
        if name.lower() == "windows":
            below = {inner.lower() for inner in os.listdir(os.path.join(folder, name))}
            return bool(below & {"system32", "apppatch"})
    return False


def inputs_below(folder, say):
    """The inputs in a folder, in the order of their names, as (path, kind)."""
    try:
        if is_system(folder):
            yield folder, "system"
            return
        entries = sorted(os.scandir(folder), key=lambda entry: entry.name)
    except OSError as error:
        say(f"{folder}: {error.strerror}")
        yield folder, "unreadable"
        return
    for entry in entries:
        if entry.is_dir(follow_symlinks=False):
            yield from inputs_below(entry.path, say)
        elif entry.is_file():
            kind = kind_of_file(entry.path)
            if kind:
                yield entry.path, kind


def named_inputs(paths, list_file, say):
    """The inputs that were named. One that is nothing known is left to quilt, which says so."""
    listed = (line.rstrip("\r\n") for line in list_file) if list_file else ()
    seen = set()
    for path in map(os.path.abspath, filter(None, itertools.chain(paths, listed))):
        found = inputs_below(path, say) if os.path.isdir(path) else [(path, kind_of_file(path) or "database")]
        for item in found:
            if item[0] not in seen:
                seen.add(item[0])
                yield item


def arguments_for(path, kind, options):
    target = {"database": ["-sdb", path], "hive": ["-reg", path, "-listsdb"]}.get(kind, ["-partition", path])
    report = [] if kind == "hive" else options
    return [*target, *report, "-json", "-quiet", "-threads", "1"]


def part_name(path):
    """The place of an input's report below the results: the same in each run, and no two alike."""
    digest = hashlib.sha256(os.fsencode(path)).hexdigest()[:24]
    return f"parts/{digest[:2]}/{digest}.jsonl"


# --- what a worker does

def ends_whole(part):
    """What the last line of a report says: whether it is whole; None where there is no such line."""
    with open(part, "rb") as file:
        file.seek(max(0, os.fstat(file.fileno()).st_size - 4096))
        lines = file.read().splitlines()
    try:
        last = json.loads(lines[-1])
        return last["whole"] if last["kind"] == "end" else None
    except (IndexError, KeyError, ValueError, TypeError):
        return None


def report_input(quilt, arguments, part):
    """Has quilt write the report of one input beside its place, and puts it there if quilt came to its end.
    Gives the exit value and what quilt said."""
    os.makedirs(os.path.dirname(part), exist_ok=True)
    partial = f"{part}.{uuid.uuid4().hex}.partial"  # a worker that is taken for dead may still write
    try:
        with open(partial, "wb") as out:
            run = subprocess.run([quilt, *arguments], stdin=subprocess.DEVNULL, stdout=out,
                                 stderr=subprocess.PIPE, check=False)
        notices = run.stderr.decode("utf-8", "replace").splitlines()
        whole = ends_whole(partial)
        if whole is None or (whole and run.returncode != 0):
            what = "its report has no end" if whole is None else f"it ended with {run.returncode} behind its report"
            return run.returncode or 255, [*notices, what]
        os.replace(partial, part)
        return 0 if whole else run.returncode or 255, notices
    except OSError as error:
        return 255, [str(error)]
    finally:
        try:
            os.unlink(partial)
        except OSError:
            pass


# --- the run

def is_done(path, part, arguments, version):
    """Whether this very report stands already, whole, and is no older than what it tells of."""
    try:
        with open(part, "rb") as file:
            first = json.loads(file.readline())
            is_older = os.fstat(file.fileno()).st_mtime_ns < os.stat(path).st_mtime_ns
        return (ends_whole(part) is True and not (is_older and os.path.isfile(path))
                and (first["arguments"], first["version"]) == (arguments, version))
    except (OSError, ValueError, KeyError):
        return False


class Results:
    """The tables beside the reports. What was said of an input stays in the journal, which no run begins anew,
    so that a run that goes on tells all that those before it told."""

    def __init__(self, into):
        self.into = into
        self.failures = []
        self.said = {}
        journal = into / "journal.jsonl"
        if journal.exists():
            for line in journal.read_text("utf-8").splitlines():
                try:
                    row = json.loads(line)
                    self.said[row["input"]] = row["notices"]
                except ValueError:  # it was stopped in the middle of that line
                    pass
        self.journal = open(journal, "a", encoding="utf-8", buffering=1)
        self.journal.write("\n" if self.said else "")
        self.tables = {name: open(into / f"{name}.partial", "w", encoding="utf-8")
                       for name in ("inputs.jsonl", "failed.jsonl")}

    def record(self, path, kind, part, code, notices, is_new=True):
        stands = part is not None and (self.into / part).exists()
        line = json.dumps({"input": path, "kind": kind, "part": part if stands else None, "exit": code,
                           "notices": notices}) + "\n"
        if is_new:
            self.journal.write(line)
        self.tables["inputs.jsonl"].write(line)
        if code != 0:
            self.tables["failed.jsonl"].write(line)
            self.failures.append((path, notices))

    def put_in_place(self):
        self.journal.close()
        for name, file in self.tables.items():
            file.close()
            os.replace(self.into / f"{name}.partial", self.into / name)


def remove_partial_reports(into):
    """Removes what dead workers left."""
    for left in into.glob("parts/*/*.partial"):
        left.unlink(missing_ok=True)


class Progress:
    """Tells how far the work is: on a terminal in one line, elsewhere every ten seconds."""

    def __init__(self):
        self.begun = self.told = time.monotonic()
        self.done = self.failed = self.skipped = self.found = 0
        self.all_found = False
        self.on_screen = sys.stderr.isatty()

    def tell(self, at_end=False):
        now = time.monotonic()
        if not at_end and now - self.told < (0.2 if self.on_screen else 10):
            return
        self.told = now
        rate = self.done / max(now - self.begun, 1e-9)
        left = self.found - self.skipped - self.done
        text = (f"{self.done + self.skipped} of {self.found}{'' if self.all_found else '+'} inputs, "
                f"{self.failed} failed, {rate:.1f} a second")
        if rate and self.all_found and left:
            text += f", {left / rate:.0f} s left"
        print("\r\x1b[K" + text if self.on_screen else text, file=sys.stderr, flush=True,
              end="\n" if at_end or not self.on_screen else "")

    def say(self, text):
        print(("\r\x1b[K" if self.on_screen else "") + text, file=sys.stderr, flush=True)


def do_all(client, inputs, settings, progress, results):
    """Hands inputs to the workers, so many ahead, and records what comes of each."""
    from distributed import as_completed
    into = os.path.abspath(settings.into)
    running, waiting = as_completed(), {}

    def submit_next():
        for path, kind in inputs:
            progress.found += 1
            name = part_name(path)
            arguments = arguments_for(path, kind, settings.options)
            part = os.path.join(into, name)
            if kind == "unreadable":
                progress.done += 1
                progress.failed += 1
                results.record(path, kind, None, 255, ["the folder cannot be read"])
            elif path in results.said and is_done(path, part, arguments, settings.version):
                progress.skipped += 1
                results.record(path, kind, name, 0, results.said[path], is_new=False)
            else:
                future = client.submit(report_input, settings.quilt, arguments, part, pure=False)
                waiting[future.key] = (path, kind, name)
                running.add(future)
                return True
        progress.all_found = True
        return False

    slots = max(1, sum(worker["nthreads"] for worker in client.scheduler_info()["workers"].values()))
    while len(waiting) < slots * AHEAD and submit_next():
        pass
    while waiting:
        future = next(running)
        path, kind, name = waiting.pop(future.key)
        error = future.exception()
        code, notices = (255, [f"{type(error).__name__}: {error}"]) if error else future.result()
        progress.done += 1
        progress.failed += code != 0
        results.record(path, kind, name, code, notices)
        future.release()
        submit_next()
        progress.tell()


def version_of(quilt):
    told = subprocess.run([quilt, "--version"], capture_output=True, text=True, check=True).stdout.split()
    if told[:1] != ["quilt"]:
        raise OSError("is no quilt")
    return told[2]


def cluster_client(settings):
    import dask
    from distributed import Client, LocalCluster
    dask.config.set({"distributed.scheduler.allowed-failures": TRIES - 1})
    if settings.scheduler:
        return Client(settings.scheduler)
    return Client(LocalCluster(n_workers=settings.workers, threads_per_worker=1, dashboard_address=None,
                               processes=True))


def parse(words):
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("input", nargs="*", help="databases, hives, images, mounted systems, or folders of them")
    parser.add_argument("--list", type=argparse.FileType("r", errors="surrogateescape"),
                        help="a file that names inputs, one a line; - for standard input")
    parser.add_argument("--into", required=True, help="the folder of the results, which all workers see")
    parser.add_argument("--quilt", default="quilt", help="the program, at the same place on each worker")
    parser.add_argument("--workers", type=int, default=os.cpu_count(), help="on this machine (all its cores)")
    parser.add_argument("--scheduler", help="of a Dask cluster that stands, such as tcp://host:8786")
    quilts = words.index("--") if "--" in words else len(words)
    settings = parser.parse_args(words[:quilts])
    settings.options = words[quilts + 1:] or ["-stats"]
    if not settings.input and not settings.list:
        parser.error("no input")
    return settings


def main(words):
    settings = parse(words)
    if os.path.dirname(settings.quilt):
        settings.quilt = os.path.abspath(settings.quilt)
    into = Path(settings.into)
    try:
        settings.version = version_of(settings.quilt)
        into.mkdir(parents=True, exist_ok=True)
    except (OSError, subprocess.CalledProcessError) as error:
        print(error, file=sys.stderr)
        return 2
    with open(into / ".lock", "w", encoding="utf-8") as lock:
        try:
            fcntl.lockf(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except OSError:
            print(f"{into}: another run writes there", file=sys.stderr)
            return 2
        remove_partial_reports(into)
        progress, results = Progress(), Results(into)
        try:
            client = cluster_client(settings)
        except ModuleNotFoundError:
            print("Dask is not installed for this Python: on Debian it is the package python3-distributed, for "
                  "/usr/bin/python3", file=sys.stderr)
            return 2
        except (OSError, ValueError) as error:
            print(f"no cluster at {settings.scheduler or 'this machine'}: {error}", file=sys.stderr)
            return 2
        with client:
            do_all(client, named_inputs(settings.input, settings.list, progress.say), settings, progress, results)
        results.put_in_place()
        remove_partial_reports(into)
    progress.tell(at_end=True)
    for path, notices in results.failures[:SHOWN_FAILURES]:
        print(f"failed: {path}: {'; '.join(notices) or 'without a word'}", file=sys.stderr)
    if len(results.failures) > SHOWN_FAILURES:
        print(f"... and {len(results.failures) - SHOWN_FAILURES} more, see {into}/failed.jsonl", file=sys.stderr)
    if not progress.found:
        print("no input found", file=sys.stderr)
    return 0 if progress.found and not results.failures else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

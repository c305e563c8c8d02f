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
import logging
import os
import re
import signal
import subprocess
import sys
import tempfile
import time
import uuid
import warnings
from concurrent.futures import CancelledError
from pathlib import Path

AHEAD = 64  # inputs that wait at the scheduler for each worker
TRIES = 3  # of an input whose worker died
PATIENCE = 60  # seconds without a worker
SHOWN_FAILURES = 20
READ_BY_QUILT = {"-known", "-knowledge", "-reg", "-diff", "-pe"}  # options that name a file
OWN_OPTIONS = {  # which are given to quilt for each input, or would lead its report elsewhere
    "-sdb", "-partition", "-vss", "-enumdir", "-pipe", "-out", "-outfile", "-append", "-diags", "-threads", "-json",
    "-xml", "-csv", "-csvl2t", "-html", "-bodyfile", "-timesketch", "-multiline", "-quiet", "-h", "-help", "-?",
    "-version"}
NO_DATABASE = b"\2\0\0\0\3\0\0\0sdbf" + b"\x01\x70\0\0\0\0" + b"\x01\x78\0\0\0\0"  # one in which nothing stands


class Refusal(Exception):
    """The run cannot begin, or cannot go on."""


# --- names

def as_text(name):
    """A name as quilt tells it: what is no UTF-8 as [xff]."""
    return re.sub("[\udc80-\udcff]", lambda found: f"[x{ord(found[0]) - 0xdc00:02x}]", name)


def shown(text):
    """A text that may not act on the reader's screen."""
    marked = re.sub("[\x00-\x1f\x7f-\x9f]", lambda found: f"[x{ord(found[0]):02x}]", as_text(text))
    return re.sub("[\u061c\u200e\u200f\u202a-\u202e\u2066-\u2069]", lambda found: f"[U+{ord(found[0]):04X}]", marked)


def number_of(count, what):
    return f"{count} {what}{'' if count == 1 else 's'}"


# --- what there is to do

def kind_of_file(path):
    """What a file's first bytes say that it is; empty for what quilt does not read."""
    with open(path, "rb") as file:
        head = file.read(512)
    if head[:4] == b"regf":
        return "hive" if head[28:32] == bytes(4) else ""  # logs begin alike
    if head[8:12] in (b"sdbf", b"zdbf"):
        return "database"
    is_first_e01 = head[:8] == b"EVF\t\r\n\xff\0" and path.lower().endswith(".e01")
    if is_first_e01 or head[3:7] == b"NTFS" or head[510:512] == b"\x55\xaa":
        return "image"
    return ""


def folders_of_system(folder):
    """Where quilt looks in the root of a mounted system; empty for any other folder."""
    found = []
    for windows in [name for name in os.listdir(folder) if name.lower() == "windows"]:
        path = os.path.join(folder, windows)
        try:
            below = {name.lower(): os.path.join(path, name) for name in os.listdir(path)}
            config = [os.path.join(below[name], inner) for name in below if name == "system32"
                      for inner in os.listdir(below[name]) if inner.lower() == "config"]
            patches = [below[name] for name in below if name == "apppatch" and os.listdir(below[name])]
        except OSError:  # a file of that name, or what cannot be listed: that is told where it is walked
            continue
        found += config + patches
    return found


def inputs_below(top, say):
    """The inputs in a folder, in the order of their names, as (path, kind); what cannot be read has its reason
    in place of a kind, behind an exclamation mark."""
    left = [top]
    while left:
        path = left.pop()
        try:
            if os.path.islink(path) and path != top and os.path.isdir(path):
                say(f"{path} is a link to a folder, not entered")
            elif os.path.isdir(path):
                if folders_of_system(path):
                    yield path, "system"
                else:
                    left += [os.path.join(path, name) for name in sorted(os.listdir(path), reverse=True)]
            elif os.path.isfile(path):
                kind = kind_of_file(path)
                if kind:
                    yield path, kind
            elif not os.path.exists(path):
                os.stat(path)  # which tells why
        except OSError as error:
            if not (os.path.islink(path) and isinstance(error, FileNotFoundError)):  # a link to nothing holds nothing
                yield path, f"!{error.strerror}"


def named_inputs(paths, list_file, say):
    """The inputs that were named. One that is nothing known is left to quilt, which says so."""
    def kind_of_named(path):
        try:
            return kind_of_file(path) or "database"
        except OSError:
            return "database"
    listed = (line.rstrip("\r\n") for line in list_file) if list_file else ()
    seen = set()
    for path in map(os.path.abspath, filter(None, itertools.chain(paths, listed))):
        found = inputs_below(path, say) if os.path.isdir(path) else [(path, kind_of_named(path))]
        for item in found:
            if item[0] not in seen:
                seen.add(item[0])
                yield item


class States:
    """What tells whether something is still what it was: size, moments and number of each file that quilt reads."""

    def __init__(self):
        self.folder, self.names = None, []

    def of_file(self, path):
        try:
            status = os.stat(path)
            return [as_text(path), status.st_size, status.st_mtime_ns, status.st_ctime_ns, status.st_ino]
        except OSError:
            return [as_text(path)]

    def of(self, path, kind):
        if kind == "system":
            files = [os.path.join(folder, name) for top in folders_of_system(path)
                     for folder, _, names in os.walk(top) for name in names]
        elif kind in ("hive", "image"):  # with its logs or its other parts
            files = [path, *self.beside(path)]
        else:
            files = [path]
        text = json.dumps([self.of_file(file) for file in sorted(files)])
        return hashlib.sha256(text.encode()).hexdigest()

    def beside(self, path):
        folder, name = os.path.split(path)
        if folder != self.folder:
            self.folder, self.names = folder, os.listdir(folder)
        stem = name.rsplit(".", 1)[0] + "."
        return [os.path.join(folder, other) for other in self.names if other.startswith(stem) and other != name]


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
        file.seek(max(0, os.fstat(file.fileno()).st_size - 65536))
        lines = file.read().splitlines()
    try:
        last = json.loads(lines[-1])
        return last["whole"] if last["kind"] == "end" and isinstance(last["whole"], bool) else None
    except (IndexError, KeyError, ValueError, TypeError, RecursionError):
        return None


def way_it_ended(code):
    return f"it was ended by {signal.Signals(-code).name}" if code < 0 else f"it ended with {code}"


def report_input(quilt, arguments, part, limit):
    """Has quilt write the report of one input beside its place, and puts it there if quilt came to its end.
    Gives the exit value and what quilt said."""
    partial = f"{part}.{uuid.uuid4().hex}.partial"  # a worker that is taken for dead may still write
    try:
        os.makedirs(os.path.dirname(part), exist_ok=True)
        with open(partial, "wb") as out:
            run = subprocess.run([quilt, *arguments], stdin=subprocess.DEVNULL, stdout=out,
                                 stderr=subprocess.PIPE, check=False, timeout=limit)
        notices = run.stderr.decode("utf-8", "replace").splitlines()
        whole = ends_whole(partial)
        if whole is None or (whole and run.returncode != 0):
            what = "its report has no end" if whole is None else "behind its whole report"
            return run.returncode or 255, [*notices, f"{what}: {way_it_ended(run.returncode)}"]
        os.replace(partial, part)
        if not whole and not notices:
            notices = ["its report says that it is not whole"]
        return 0 if whole else run.returncode or 255, notices
    except subprocess.TimeoutExpired:
        return 255, [f"it took more than {limit} seconds, and was ended"]
    except OSError as error:
        return 255, [str(error)]
    finally:
        try:
            os.unlink(partial)
        except OSError:
            pass


# --- the run

def is_done(part, arguments, version):
    """Whether this very report stands already, whole."""
    try:
        with open(part, "rb") as file:
            first = json.loads(file.readline())
        return (ends_whole(part) is True
                and (first["arguments"], first["version"]) == ([as_text(word) for word in arguments], version))
    except (OSError, ValueError, LookupError, TypeError, RecursionError):
        return False


class Results:
    """The tables beside the reports. What was said of an input stays in the journal, which no run begins anew,
    so that a run that goes on tells all that those before it told, and knows what they read."""

    def __init__(self, into):
        self.into = into
        self.failures = []
        self.with_notices = 0
        self.said = {}  # notices and state, by path
        journal = into / "journal.jsonl"
        if journal.exists():
            for line in journal.read_bytes().splitlines():
                try:
                    row = json.loads(line)
                    self.said[row["path"]] = (row["notices"], row["state"])
                except (ValueError, LookupError, TypeError):  # it was stopped in the middle of that line
                    pass
        self.journal = open(journal, "a", encoding="utf-8", buffering=1)
        self.journal.write("\n" if self.said else "")
        self.tables = {name: open(into / f"{name}.partial", "w", encoding="utf-8")
                       for name in ("inputs.jsonl", "failed.jsonl")}

    def record(self, path, kind, part, code, notices, state=None):
        """Enters one input, in the journal too where there is a state that it was found in."""
        stands = part is not None and (self.into / part).exists()
        row = {"input": as_text(path), "kind": kind, "part": part if stands else None, "exit": code,
               "notices": notices}
        if row["input"] != path:
            row["input_bytes"] = os.fsencode(path).hex()
        if state:
            self.journal.write(json.dumps({**row, "path": path, "state": state}) + "\n")
        line = json.dumps(row) + "\n"
        self.tables["inputs.jsonl"].write(line)
        if code != 0:
            self.tables["failed.jsonl"].write(line)
            self.failures.append((path, notices))
        elif notices:
            self.with_notices += 1

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
        found = number_of(self.found, "input") if self.all_found else f"{self.found}+ inputs"
        text = f"{self.done + self.skipped} of {found}, {self.failed} failed, {rate:.1f} a second"
        if rate and self.all_found and left:
            text += f", {left / rate:.0f} s left"
        print("\r\x1b[K" + text if self.on_screen else text, file=sys.stderr, flush=True,
              end="\n" if at_end or not self.on_screen else "")

    def say(self, text):
        print(("\r\x1b[K" if self.on_screen else "") + shown(text), file=sys.stderr, flush=True)


class Cluster:
    """The workers, and whether there still are any."""

    def __init__(self, client):
        self.client, self.looked, self.seen = client, 0.0, time.monotonic()

    def slots(self):
        return sum(worker["nthreads"] for worker in self.client.scheduler_info()["workers"].values())

    def check(self):
        now = time.monotonic()
        if now - self.looked < 5:
            return
        self.looked = now
        try:
            if self.client.status not in ("running", "connecting"):
                raise Refusal("the scheduler is gone")
            if self.client.status == "running" and self.slots():
                self.seen = now
        except OSError:  # counts as nobody there
            pass
        if now - self.seen > PATIENCE:
            raise Refusal(f"there was no worker for {PATIENCE} seconds")


def do_all(client, inputs, settings, progress, results):
    """Hands inputs to the workers, so many ahead, and records what comes of each."""
    from distributed import as_completed
    into = os.path.abspath(settings.into)
    running, waiting, states, cluster = as_completed(), {}, States(), Cluster(client)

    def submit_next():
        for path, kind in inputs:
            progress.found += 1
            if kind.startswith("!"):
                progress.done += 1
                progress.failed += 1
                results.record(path, "unreadable", None, 255, [f"it cannot be read: {kind[1:]}"])
                continue
            name = part_name(path)
            arguments = arguments_for(path, kind, settings.options)
            part = os.path.join(into, name)
            state = f"{states.of(path, kind)} {settings.state}"
            notices, state_before = results.said.get(path, ([], None))
            if state == state_before and not settings.anew and is_done(part, arguments, settings.version):
                progress.skipped += 1
                results.record(path, kind, name, 0, notices)
            else:
                future = client.submit(report_input, settings.quilt, arguments, part, settings.limit, pure=False)
                waiting[future.key] = (path, kind, name, state)
                running.add(future)
                return True
        progress.all_found = True
        return False

    while not cluster.slots():
        cluster.check()
        progress.say("no worker there yet")
        time.sleep(5)
    while len(waiting) < cluster.slots() * AHEAD and submit_next():
        pass
    while waiting:
        while not running.has_ready():
            cluster.check()
            progress.tell()
            time.sleep(0.005)
        future = next(running)
        path, kind, name, state = waiting.pop(future.key)
        try:
            error = future.exception()
            code, notices = (255, [f"{type(error).__name__}: {error}"]) if error else future.result()
        except (CancelledError, OSError) as lost:
            raise Refusal("the scheduler is gone") from lost
        progress.done += 1
        progress.failed += code != 0
        results.record(path, kind, name, code, notices, state)
        future.release()
        submit_next()
        progress.tell()


def version_of(quilt):
    told = subprocess.run([quilt, "--version"], capture_output=True, check=True).stdout.split()
    if told[:1] != [b"quilt"] or len(told) < 3:
        raise Refusal(f"{quilt} is no quilt")
    return told[2].decode("utf-8", "replace")


def check_options(quilt, options):
    """Refuses options that belong to this program, and those that quilt does not take."""
    for word in options:
        if re.sub("^--?", "-", word).lower() in OWN_OPTIONS:
            raise Refusal(f"{word} is not for the words behind --: inputs, results and their form are named here")
    with tempfile.TemporaryDirectory() as folder:
        probe = Path(folder, "Windows/AppPatch/probe.sdb")
        probe.parent.mkdir(parents=True)
        probe.write_bytes(NO_DATABASE)
        runs = [subprocess.run([quilt, *arguments_for(path, kind, options)], stdin=subprocess.DEVNULL,
                               capture_output=True, check=False)
                for path, kind in ((str(probe), "database"), (folder, "system"))]
    said = [run.stderr.decode("utf-8", "replace").splitlines() for run in runs]
    wrong = [line for line in said[0]  # some options are for systems alone, one for images
             if line in said[1] and line != "not used here: -deleted" and re.search(
                 "^ignored: |^not used here: |^Don't understand|^prob understanding|^invalid |^This option requires"
                 "| wants |^Prob reading", line)]
    if wrong or any(b'"refused":true' in run.stdout or b'"no report of it was asked for"' in run.stdout for run in runs):
        raise Refusal("quilt does not take these options: "
                      + "; ".join(wrong or said[0][:3] or ["no report is asked for"]))


def cluster_client(settings):
    import dask
    from distributed import Client, LocalCluster
    logging.disable(logging.CRITICAL)
    warnings.simplefilter("ignore")
    dask.config.set({"distributed.scheduler.allowed-failures": TRIES - 1})
    if settings.scheduler:
        return Client(settings.scheduler)
    handler = signal.signal(signal.SIGINT, signal.SIG_IGN)  # workers inherit it: this program tells of the end
    try:
        return Client(LocalCluster(n_workers=settings.workers, threads_per_worker=1, dashboard_address=None,
                                   processes=True))
    finally:
        signal.signal(signal.SIGINT, handler)


def positive(text):
    number = int(text)
    if number < 1:
        raise argparse.ArgumentTypeError("must be 1 or more")
    return number


def parse(words):
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("input", nargs="*", help="databases, hives, images, mounted systems, or folders of them")
    parser.add_argument("--list", type=argparse.FileType("r", errors="surrogateescape"),
                        help="a file that names inputs, one a line; - for standard input")
    parser.add_argument("--into", required=True, help="the folder of the results, which all workers see")
    parser.add_argument("--quilt", default="quilt", help="the program, at the same place on each worker")
    parser.add_argument("--workers", type=positive, default=os.cpu_count(), help="on this machine (all its cores)")
    parser.add_argument("--scheduler", help="of a Dask cluster that stands, such as tcp://host:8786")
    parser.add_argument("--anew", action="store_true", help="do again what is done")
    parser.add_argument("--limit", type=positive, default=4 * 3600, help="seconds for one input (14400)")
    quilts = words.index("--") if "--" in words else len(words)
    settings = parser.parse_args(words[:quilts])
    settings.options = words[quilts + 1:] or ["-stats"]
    if not settings.input and not settings.list:
        parser.error("no input")
    return settings


def begin(settings):
    """What must be so before anything is written."""
    if os.path.dirname(settings.quilt):
        settings.quilt = os.path.abspath(settings.quilt)
    try:
        settings.version = version_of(settings.quilt)
    except (OSError, subprocess.CalledProcessError) as error:
        raise Refusal(str(error)) from error
    for i, word in enumerate(settings.options[:-1]):
        if re.sub("^--?", "-", word).lower() in READ_BY_QUILT and not settings.options[i + 1].startswith("-"):
            settings.options[i + 1] = os.path.abspath(settings.options[i + 1])
    check_options(settings.quilt, settings.options)
    files = States()
    settings.state = hashlib.sha256(json.dumps(
        [files.of_file(word) for word in settings.options if os.path.isfile(word)]).encode()).hexdigest()
    into = os.path.realpath(settings.into)
    for path in settings.input:
        if os.path.isdir(path) and os.path.commonpath([into, os.path.realpath(path)]) == os.path.realpath(path):
            raise Refusal(f"{settings.into} lies in {path}, which is examined")
    try:
        import distributed  # noqa: F401 ; looked for before a folder is made
    except ModuleNotFoundError as error:
        raise Refusal("Dask is not installed for this Python: on Debian it is the package python3-distributed, for "
                      "/usr/bin/python3") from error
    if os.path.exists(into) and not os.path.isdir(into):
        raise Refusal(f"{settings.into} is no folder")
    os.makedirs(into, exist_ok=True)


def run_all(settings, into):
    """Does it all, as far as that goes. Gives the progress, the results, and what ended it early."""
    progress, results = Progress(), Results(into)
    stopped = None
    try:
        client = cluster_client(settings)
    except (OSError, ValueError) as error:
        raise Refusal(f"no cluster at {settings.scheduler or 'this machine'}: {error}") from error
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    try:
        do_all(client, named_inputs(settings.input, settings.list, progress.say), settings, progress, results)
    except KeyboardInterrupt:
        stopped = "stopped; the same command goes on"
    except Refusal as refusal:
        stopped = f"{refusal}; the same command goes on"
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    results.put_in_place()
    try:
        client.close(timeout=5)
        if client.cluster:
            client.cluster.close(timeout=5)
    except (OSError, TimeoutError):
        pass
    remove_partial_reports(into)
    return progress, results, stopped


def main(words):
    settings = parse(words)
    into = Path(settings.into)
    try:
        begin(settings)
        with open(into / ".lock", "w", encoding="utf-8") as lock:
            try:
                fcntl.lockf(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
            except OSError as error:
                raise Refusal(f"{into}: another run writes there") from error
            remove_partial_reports(into)
            progress, results, stopped = run_all(settings, into)
    except Refusal as refusal:
        print(shown(str(refusal)), file=sys.stderr)
        return 2
    except OSError as error:  # such as a full disk
        print(shown(str(error)), file=sys.stderr)
        return 1
    progress.tell(at_end=True)
    if results.with_notices:
        print(f"{number_of(results.with_notices, 'input')} of which quilt said something, though nothing failed: see "
              f"inputs.jsonl", file=sys.stderr)
    for path, notices in results.failures[:SHOWN_FAILURES]:
        print(shown(f"failed: {path}: {'; '.join(notices) or 'without a word'}"), file=sys.stderr)
    if len(results.failures) > SHOWN_FAILURES:
        print(f"... and {len(results.failures) - SHOWN_FAILURES} more, see {into}/failed.jsonl", file=sys.stderr)
    if stopped:
        print(stopped, file=sys.stderr)
    elif not progress.found:
        print("no input found", file=sys.stderr)
    return 0 if progress.found and not results.failures and not stopped else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

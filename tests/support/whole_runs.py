"""What tests of whole programs share: running one, what it says, and files for it to read."""

import argparse
import os
import re
import shlex
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

SAMPLE = "examples/sample.sdb"
COMPRESSED = "examples/sample-compressed.sdb"
GOLDEN = Path("tests/golden").resolve()
COMMANDS = Path("tests/commands").resolve()  # how quilt answers them, as text
FAILED = 255
BANNER = b"quilt ver: 0.45\n"
RULE = "-" * 75 + "\n"
RUN_FACTS = (b'"command":"quilt","arguments":[],"time":"2026-01-02T03:04:05.0060000Z","host":"host",'
             b'"system":"system"')
ARGUMENTS = argparse.Namespace()  # of the script: programs and switches
WATCHED = [os.path.abspath("examples")]  # folders in which no run changes anything but its results


def standing():
    """What stands in these folders, down to the moment of the last change to each file."""
    found = {}
    for top in WATCHED:
        for folder, _, names in os.walk(top):
            for path in (os.path.join(folder, name) for name in names):
                status = os.lstat(path)
                found[path] = (status.st_ino, status.st_mode, status.st_size, status.st_mtime_ns,
                               status.st_ctime_ns,
                               0 if os.path.islink(path) else status.st_atime_ns)
    return found


def last_name(path):
    return re.split(r"[/\\\\]", path)[-1]


class Program:
    preamble = b""
    keeps_access_times = True

    def __init__(self, command):
        *before, program = shlex.split(command)
        self.words = [*before, os.path.abspath(program)]
        if len(self.words) > 1:  # wine, which may speak before the program does
            self.keeps_access_times = False
            self.preamble = self.run("--version").stderr

    def run(self, *options, **places):
        """The result of a run, which left everything but its results as it was."""
        before = standing()
        result = self.run_unwatched(*options, **places)
        after = standing()
        results = {last_name(path) for option, name in zip(options, options[1:])
                   if re.fullmatch("--?(out|outfile|diags)", option)
                   for path in (name, os.path.realpath(os.path.join(places.get("cwd") or "", name)))}
        may_change = {name + ".partial" for name in results}
        if b"aborting" not in result.stderr:
            may_change |= results
        for path in before.keys() | after.keys():
            if last_name(path) in may_change:
                continue
            was, now = before.get(path), after.get(path)
            if was and now and not self.keeps_access_times:
                if was[-1] != now[-1]:
                    os.utime(path, ns=(was[-1], was[3]))
                was, now = was[:-1], now[:-1]
            assert was == now, f"{path}: {was} became {now} by {options}"
        return result

    def run_unwatched(self, *options, cwd=None, env=None, lines=b""):
        # Files, not pipes: what wine starts in the background would keep those open.
        with (tempfile.TemporaryFile() as given, tempfile.TemporaryFile() as out,
              tempfile.TemporaryFile() as messages):
            given.write(lines)
            given.seek(0)
            result = subprocess.run([*self.words, *options], stdin=given, stdout=out,
                                    stderr=messages, timeout=120, cwd=cwd,
                                    env={**os.environ, **(env or {})})
            out.seek(0)
            messages.seek(0)
            result.stdout = out.read()
            result.stderr = messages.read().removeprefix(self.preamble)
            return result


def run(*options, **places):
    """Runs quilt. Options are words, or one text that a shell would split into them."""
    words = shlex.split(options[0]) if len(options) == 1 else options
    return ARGUMENTS.quilt.run(*words, **places)


def masked(report):
    """The report with LF alone and without what changes from run to run in its header."""
    if report.startswith(b'{"kind":"run"'):
        return re.sub(rb'"command":.*?("system":)"[^"]*"', RUN_FACTS, report, count=1)
    if report.startswith(b"<!DOCTYPE"):
        return re.sub(rb"(?s)<title>.*?</title>|<dt>command line</dt>.*?</dl>", b"", report, count=2)
    report = re.sub(rb"(?m)^run time: .*$", b"run time: ...", report.replace(b"\r\n", b"\n"), count=1)
    return re.sub(rb'(?m)^"cmdline: .*"$', b'"cmdline: ..."', report, count=1)


def conversation(command, files=(), **places):
    """A command line and, as text, what comes of it: what is printed, what is said, the exit value.
    Options may be followed by "< a b", two lines of standard input, or "< all" for the names of
    `files`, and by "~ pattern" for what alone is to be shown of what is printed."""
    options, _, pattern = command.partition(" ~ ")
    options, _, names = options.partition(" < ")
    names = files if names == "all" else names.split()
    result = run(options, lines="".join(f"{name}\n" for name in names).encode(), **places)
    printed = re.sub(r"quilt ver: 0.45\nrun time: .*\n\"cmdline: .*\"\n", "<header>\n",
                     result.stdout.decode())
    if pattern:
        printed = "".join(found[0] + "\n" for found in re.finditer(pattern, printed, re.M))
    usage = (GOLDEN / "usage.txt").read_text("utf-8")
    printed = printed.replace(usage, "<usage>\n")
    said = result.stderr.decode().replace(usage, "<usage>\n")
    shown = "".join(f"{mark} {line}" if line.endswith("\n") else f"{mark} {line}<no end>\n"
                    for mark, text in ((">", printed), ("!", said))
                    for line in re.findall(r".*\n|.+", text))
    return f"$ {command}\n{shown}= {result.returncode}\n"


def retold(text, **places):
    """The text with what follows each of its commands made anew."""
    return "".join(conversation(line[2:], **places) if line.startswith("$ ") else line + "\n"
                   for line in text.rstrip("\n").split("\n") if not line.startswith((">", "!", "=")))


class Runs(unittest.TestCase):
    """A test of whole runs, with a folder of its own."""
    maxDiff = None

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="quilt-")
        self.addCleanup(shutil.rmtree, self.folder)
        WATCHED.append(self.folder)
        self.addCleanup(WATCHED.pop)

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, contents):
        path = Path(self.path(name))
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(contents)
        return str(path)

    def read(self, name):
        return Path(self.path(name)).read_bytes()

    def printed(self, *options, code=0, messages="", **places):
        """What a run prints that ends and speaks as told; `messages` is text or bytes."""
        result = run(*options, **places)
        spoken = messages if isinstance(messages, bytes) else messages.encode()
        self.assertEqual((options, result.returncode, result.stderr), (options, code, spoken))
        return result.stdout

    def check_commands(self, name, **places):
        """Holds what commands do against tests/commands, or writes it there."""
        path = COMMANDS / name
        if ARGUMENTS.update:
            path.write_text(retold(path.read_text("utf-8"), **places), "utf-8")
        expected = path.read_text("utf-8")
        self.assertIn("$ ", expected)
        self.assertEqual(retold(expected, **places), expected)

    def windows(self):
        return ARGUMENTS.windows or self.skipTest("no Windows program")

    def wine_drive(self, letter, target):
        prefix = os.environ.get("WINEPREFIX", os.path.expanduser("~/.wine"))
        drive = os.path.join(prefix, "dosdevices", letter)
        os.symlink(os.path.abspath(target), drive)
        self.addCleanup(os.unlink, drive)


class Database:
    """Writes a database: tags are bytes, a list's children stand behind one another."""

    def __init__(self):
        self.strings = b""

    def tag(self, tag, *value):
        """A tag with the type that its number says."""
        kind = tag >> 12
        if kind == 6:
            stored = (value[0] + "\0").encode("utf-16-le")
            value = [6 + len(self.strings)]
            self.strings += struct.pack("<HI", 0x8801, len(stored)) + stored
        if kind in (7, 9):
            return struct.pack("<HI", tag, len(contents := b"".join(value))) + contents
        return struct.pack({4: "<HI", 5: "<HQ", 6: "<HI"}[kind], tag, *value)

    def image(self, *children):
        return (struct.pack("<II4s", 2, 3, b"sdbf") + self.tag(0x7001, *children)
                + self.tag(0x7801, self.strings))


def small_program(moment=0):
    """A 64-bit program of 4 KiB with that moment of compiling, and without resources."""
    head = (b"MZ".ljust(60, b"\0") + (128).to_bytes(4, "little")).ljust(128, b"\0")
    return (head + b"PE\0\0" + struct.pack("<4xI12x", moment) + b"\x0b\1").ljust(4096, b"\0")


def small_database(number, name):
    """A database with a name, an identifier and as many records as its number says."""
    tag = (d := Database()).tag
    exes = [tag(0x7007, tag(0x6001, f"tool{i}.exe"), tag(0x6006, "Tool, of all"),
                tag(0x7008, tag(0x6001, "*"), tag(0x4001, i))) for i in range(number)]
    moment = tag(0x5001, 127_000_000_000_000_000 + number * 864_000_000_000)
    return d.image(moment, tag(0x6022, "v3.0"), tag(0x6001, name),
                   tag(0x9007, bytes([number % 256] * 16)), *exes)


def main(prepare=lambda: None, update=lambda: None):
    """Runs the tests of the script, behind `prepare`; the last line tells how many passed."""
    parser = argparse.ArgumentParser()
    for name in ("--quilt", "--windows", "--reader", "--windows-reader"):
        parser.add_argument(name, type=Program, required=name == "--quilt")
    parser.add_argument("--update", action="store_true")
    parser.add_argument("--need-mount", action="store_true")
    parser.add_argument("--most", type=int, default=2000, help="calls of one kind that are let fail one by one")
    parser.add_argument("--only", default="", help="part of the names of the tests to run")
    parser.parse_args(namespace=ARGUMENTS)
    if ARGUMENTS.update:
        update()
    loader = unittest.TestLoader()
    loader.testNamePatterns = [f"*{ARGUMENTS.only}*"]
    prepare()
    suite = loader.loadTestsFromModule(sys.modules["__main__"])
    result = unittest.TextTestRunner(stream=sys.stdout, verbosity=1).run(suite)
    for test, reason in result.skipped:
        print(f"skipped: {test.id()}: {reason}")
    # A test with several bad cases is one failed test.
    failed = {getattr(test, "test_case", test).id() for test, _ in result.failures + result.errors}
    print(f"{result.testsRun - len(failed) - len(result.skipped)} passed, {len(failed)} failed")
    return 1 if failed else 0

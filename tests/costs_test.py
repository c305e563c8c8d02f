#!/usr/bin/env python3
"""Runs quilt on files that are made to cost more than they weigh: twice the input takes less than three
times the work, and neither memory nor text grows beyond what the input allows.

    python3 tests/costs_test.py --quilt build/release/quilt

Run from the root of the repository, with a program without sanitizers.
"""

import os
import struct
import subprocess
import sys
import zlib

from support.whole_runs import ARGUMENTS, FAILED, Runs, main

MIB = 1 << 20
EXE, SHIM, PATCH, MATCHING, SHIM_REF, PICK_ONE = 0x7007, 0x7004, 0x7005, 0x7008, 0x7009, 0x7037
NAME, VENDOR, COMPILER, REFERENCE = 0x6001, 0x6005, 0x6022, 0x4005
BITS, EXE_ID, NULL = 0x9002, 0x9004, 0x1001
LEFT, ENDED = "not all are followed", "its report ends at tag"
FIRST = 18  # where what stands in the database list begins


def tag(number, *contents, size=None):
    contents = b"".join(contents)
    return struct.pack("<HI", number, len(contents) if size is None else size) + contents


def dword(number, value):
    return struct.pack("<HI", number, value)


NAMED = dword(NAME, 6) + dword(VENDOR, 6)


def image(*contents, strings=("a",)):
    table = b"".join(tag(0x8801, text.encode("utf-16-le")) for text in strings)
    return struct.pack("<II4s", 2, 1, b"sdbf") + tag(0x7001, *contents) + tag(0x7801, table)


def nested(count, innermost=NAMED, number=EXE):
    sizes = range((count - 1) * 6 + len(innermost), len(innermost) - 6, -6)
    return b"".join(struct.pack("<HI", number, size) for size in sizes) + innermost


def unsound():
    """A list that claims less than it holds, and so ends too late."""
    return tag(EXE, NAMED, tag(0x9001, b"a"), tag(0x9001, b"b"))[:-2]


def chain(count):
    each = 6 + len(NAMED) + 12
    return b"".join(tag(SHIM, NAMED, tag(SHIM_REF, dword(REFERENCE, FIRST + (i + 1) * each)))
                    for i in range(count))


def fan(count):
    large = tag(SHIM, dword(0x4001, 1) * count)
    return large + tag(EXE, NAMED, tag(SHIM_REF, dword(REFERENCE, FIRST))) * count


def overlapping(count, contents=NAMED):
    one = 6 + len(contents)
    return b"".join(tag(EXE, contents, size=(count - i) * one - 6) for i in range(count))


def layer_of_lists(count):
    """Programs that share a layer in which there are many lists, of which none is a fix."""
    layer = tag(0x700b, NAMED, tag(0x7018, dword(NAME, 6)) * count)
    return layer + tag(EXE, dword(NAME, 6), tag(0x700b, dword(NAME, 6), dword(0x401a, FIRST))) * count


def operations(size):
    """Patch operations of 12 bytes each, whose data are half of the value."""
    return tag(PATCH, dword(NAME, 6), dword(NAME, 6),
               tag(BITS, struct.pack("<III", 4, 12, size // 2) * (size // 12)))


def patched(count):
    """Programs that share a patch of many operations."""
    value = b"".join(struct.pack("<IIIII", 2, 85, 1, i, 0) + b"a".ljust(65, b"\0") for i in range(count))
    refers = tag(EXE, NAMED, tag(0x700a, dword(NAME, 6), dword(REFERENCE, FIRST)))
    return tag(PATCH, dword(NAME, 6), tag(BITS, value)) + refers * count


def layers(count):
    """Programs that share a layer, which refers to itself."""
    layer, refers = 0x700b, tag(0x700b, dword(NAME, 6), dword(0x401a, FIRST))
    return tag(layer, NAMED, refers * 100) + tag(EXE, NAMED, refers) * (count // 100)


def deflated(contents):
    packed = zlib.compress(contents, 9)
    return (struct.pack("<II4sQ", 2, 1, b"zdbf", 0) + packed).ljust(len(contents) // 8, b"\0")


def marked_everywhere(count):
    """A database, and a record in it, each of whose texts is one of many characters that get marks."""
    texts = b"".join(dword(number, 6) for number in (NAME, VENDOR, COMPILER))
    return image(texts, tag(EXE, texts), strings=["\u202e\"" * (count // 2), "a"])


def caught_again_and_again(count):
    """Lists that catch a program, in records that hold each other."""
    return image(overlapping(count, NAMED + tag(MATCHING, dword(NAME, 6))),
                 strings=["tool.exe", "a"])


def long_name(count, length):
    return image(tag(EXE, dword(NAME, 6), tag(MATCHING, dword(NAME, 6))) * count,
                 strings=["tool.ex" + "b" * length, "a"])


# What is made, from how much of it, and what is asked of it. Where text grows with the square of it, fewer
# records than several threads would share.
ROWS = {
    "a text behind an end": (lambda n: image(strings=["b" * n + "\0" + "a" * n, "z"]),
                             2_000_000, "-strings a"),
    "a thousand texts": (lambda n: image(NAMED, strings=[f"name number {i}" for i in range(n)]),
                         40_000, "-strings " + ",".join(f"text {i}" for i in range(1000))),
    "the same text again": (lambda n: image(dword(NAME, 6) * n, strings=["e" * n, "z"]),
                            1_200_000, "-strings " + ",".join("e" * 200)),
    "texts in one another": (lambda n: image(strings=["a" * n, "z"]), 5_000_000,
                             "-strings " + ",".join("a" * i + "b" for i in range(300))),
    "identifiers in nested lists": (lambda n: image(nested(n, NAMED + tag(EXE_ID, bytes(16)))),
                                    1_000_000, "-guids"),
    "identifiers, each in a list": (
        lambda n: image(nested(n, b"".join(tag(EXE, NAMED, tag(EXE_ID, struct.pack("<QQ", i, i)))
                                           for i in range(n)))), 30_000, "-guids"),
    "identifiers, with a search": (lambda n: image(nested(n, NAMED + tag(EXE_ID, bytes(16)))),
                                   20_000, "-guids -strings a"),
    "an unsound list": (lambda n: image(unsound(), nested(n)), 60_000, "-stats"),
    "unsound nested lists": (lambda n: image(nested(n, unsound())), 60_000, "-stats"),
    "unsound lists, searched": (lambda n: image(overlapping(n), unsound()), 20_000,
                                "-exes -strings nothing,a"),
    "inflated tags": (lambda n: deflated(image(struct.pack("<H", NULL) * n)), 8_000_000, "-stats"),
    "inflated tags, listed": (lambda n: deflated(image(tag(EXE, struct.pack("<H", NULL) * n))),
                              1_000_000, "-exes"),
    "a patch to be matched": (
        lambda n: image(tag(EXE, tag(MATCHING, dword(NAME, 0), tag(BITS, struct.pack(
            "<III", 4, 12, n // 2) * (n // 12)), *[struct.pack("<H", NULL)] * (n // 8)))),
        3_000_000, "-match -pe PROGRAM"),
    "a long name of many": (lambda n: long_name(n // 8, n), 400_000, "-match -pe PROGRAM"),
    "chain of references": (lambda n: image(chain(n)), 1_500, "-shims"),
    "chain, plain": (lambda n: image(chain(n)), 1_500, "-shims -multiline"),
    "fan of references": (lambda n: image(fan(n)), 250, "-exes"),
    "overlapping sizes": (lambda n: image(overlapping(n)), 250, "-exes"),
    "fan of references, JSON": (lambda n: image(fan(n)), 250, "-exes -json"),
    "inflated tags, JSON": (lambda n: deflated(image(tag(EXE, struct.pack("<H", NULL) * n))),
                            1_000_000, "-exes -json"),
    "nested lists, JSON": (lambda n: image(nested(n)), 250, "-exes -json"),
    "fan of references, page": (lambda n: image(fan(n)), 250, "-exes -html"),
    "nested lists, page": (lambda n: image(nested(n)), 250, "-exes -html"),
    "a match of many, page": (lambda n: long_name(n // 8, n), 400_000, "-match -pe PROGRAM -html"),
    "markup, page": (lambda n: image(tag(EXE, *[dword(NAME + i % 16, 6) for i in range(200)]) * (n // 50),
                                     strings=["<&" * (n // 2), "a"]), 600, "-exes -html"),
    "nested lists": (lambda n: image(nested(n)), 250, "-exes"),
    "nested lists, plain": (lambda n: image(nested(n)), 250, "-exes -multiline"),
    "patch operations": (lambda n: image(operations(n)), 1_200_000, "-patches"),
    "bytes in patch operations": (lambda n: image(operations(n)), 9_000_000,
                                  "-patches -patchbytes ee"),
    "a long string of many": (
        lambda n: image(tag(EXE, *[dword(NAME + i % 16, 6) for i in range(200)]) * (n // 50),
                        strings=["x" * n, "a"]), 600, "-exes"),
    "lists that catch again": (caught_again_and_again, 500, "-match -pe PROGRAM"),
    "many names of one database": (
        lambda n: image(dword(NAME, 6) * n, tag(EXE, NAMED), strings=["x" * n, "a"]), 200_000,
        "-stats -csv"),
    "scalars behind an empty list": (
        lambda n: image(tag(EXE, tag(SHIM), struct.pack("<H", NULL) * n)), 200_000, "-exes"),
    "a sparse hive": (lambda n: n << 24, 40, "-stats -reg SPARSE"),
    "fan of references, explained": (lambda n: image(fan(n)), 2_000, "-explain"),
    "a patch of many, explained": (lambda n: image(patched(n)), 3_000, "-explain"),
    "layers in layers, explained": (lambda n: image(layers(n)), 20_000, "-explain"),
    "a long name of many, explained": (lambda n: long_name(n // 8, n), 400_000, "-explain -csv"),
    "empty lists, explained": (lambda n: image(tag(EXE) * n), 400_000, "-explain -only high"),
    "empty patches, explained": (lambda n: image(tag(PATCH) * n), 200_000, "-explain -csv -only low"),
    "operations, explained": (lambda n: image(operations(n)), 1_200_000, "-explain"),
    "choices in choices, explained": (
        lambda n: image(tag(EXE, NAMED, nested(n, tag(MATCHING, dword(NAME, 6)), PICK_ONE))),
        200_000, "-explain"),
    "a layer of many lists, explained": (lambda n: image(layer_of_lists(n)), 50_000, "-explain -xml"),
    "a layer of many lists, matched": (
        lambda n: image(layer_of_lists(n), strings=["tool.exe", "a"]), 50_000,
        "-match -explain -csv -pe PROGRAM"),
    "facts of a list, explained": (
        lambda n: image(tag(EXE, NAMED, tag(MATCHING, dword(NAME, 6), dword(VENDOR, 6) * n)),
                        strings=["tool.exe", "a"]),
        400_000, "-match -explain -pe PROGRAM"),
    "layers in layers, explained in a page": (lambda n: image(layers(n)), 20_000, "-explain -html"),
    "nested lists, compared": (lambda n: image(nested(n)), 100_000, "-diff examples/sample.sdb"),
    "alike in name, compared": (lambda n: image(*(tag(EXE, NAMED, dword(0x4001, i)) for i in range(n))),
                                50_000, "-diff examples/sample.sdb"),
    "nested lists, known": (lambda n: image(nested(n)), 250, "-exes -known examples/sample.sdb"),
}

# What would have no end of its own: more of what stands above, or of a kind by itself.
BEYOND = {
    "reference chain": (lambda: image(chain(6_000)), "-shims", LEFT),
    "overlapping sizes": (lambda: image(overlapping(10_000)), "-exes", ENDED),
    "overlapping sizes, plain": (lambda: image(overlapping(10_000)), "-exes -multiline", ENDED),
    "nested lists": (lambda: image(nested(100_000)), "-exes", ENDED),
    "nested lists, JSON": (lambda: image(nested(100_000)), "-exes -json", ENDED),
    "overlapping sizes, JSON": (lambda: image(overlapping(10_000)), "-exes -json", ENDED),
    "reference chain, JSON": (lambda: image(chain(6_000)), "-shims -json", LEFT),
    "nested lists, page": (lambda: image(nested(100_000)), "-exes -html", ENDED),
    "overlapping sizes, page": (lambda: image(overlapping(10_000)), "-exes -html", ENDED),
    "patch operations": (lambda: image(operations(MIB)), "-patches", ""),
    "patch operations, page": (lambda: image(operations(MIB)), "-patches -html", ""),
    "a long string in one record": (
        lambda: image(tag(EXE, dword(VENDOR, 6) * 100_000), strings=["x" * 100_000, "a"]), "-exes",
        ENDED),
    "a long string of many": (
        lambda: image(tag(EXE, NAMED) * 10_000, strings=["x" * 100_000, "a"]), "-exes", ENDED),
    "a long name of many identifiers": (
        lambda: image(*(tag(EXE, NAMED, tag(EXE_ID, struct.pack("<QQ", i, i)))
                        for i in range(10_000)), strings=["x" * 50_000, "a"]), "-guids", ENDED),
    "nested lists without substance": (
        lambda: image(nested(100_000, tag(SHIM_REF, dword(REFERENCE, FIRST)))), "-exes -csv", ENDED),
    "unsound nested lists": (lambda: image(unsound(), nested(100_000)), "-stats",
                             "not all counts are exact"),
    "unsound nested identifiers": (
        lambda: image(unsound(), b"".join(
            tag(EXE, NAMED, tag(EXE_ID, struct.pack("<QQ", i, i)), size=(10_000 - i) * 40 - 6)
            for i in range(10_000))), "-guids", "not all names are exact"),
    "fan of references": (lambda: image(fan(5_000)), "-exes", ENDED),
    "a layer of many lists": (lambda: image(layer_of_lists(50_000)), "-explain -xml",
                              "not all fixes of its records could be looked at, from tag"),
    "lists that catch again": (lambda: caught_again_and_again(10_000), "-match -pe PROGRAM",
                               "Not all nested records could be matched"),
    "scalars behind an empty list": (
        lambda: image(tag(EXE, tag(SHIM), struct.pack("<H", NULL) * 5_000_000)), "-exes", ""),
    "texts in one another": (
        lambda: image(strings=["a" * 5_000_000, "z"]),
        "-strings " + ",".join("a" * i + "b" for i in range(400)), "no matches found"),
    **{f"a text of marks, {options}": (lambda: marked_everywhere(9 * MIB), options, "")
       for options in ("-exes", "-exes -multiline -safe_csv", "-exes -json", "-stringtable -html",
                       "-stats", "-stats -csv", "-stats -csvl2t", "-stats -timesketch")},
    "a sparse hive": (lambda: 60 << 30, "-stats -reg SPARSE", "is no hive"),
    "inflated beyond": (lambda: deflated(image(bytes(70 * MIB))), "-exes",
                        "it inflates to more than quilt takes"),
}
# What stands behind a failure, and what leaves the exit value as it is.
TOLD = [word for _, _, word in BEYOND.values() if word]
HARMLESS = ("", LEFT, "no matches found")


class Costs(Runs):
    def run_measured(self, options, path):
        """Exit value, processor time, memory in bytes and length of what is printed."""
        words = options.replace("PROGRAM", self.path("tool.exe")).replace("SPARSE", path).split()
        words = ["-sdb", "examples/sample.sdb" if "-reg" in words else path, *words, "-quiet"]
        with open(self.path("out"), "wb") as out, open(self.path("said"), "wb") as said:
            process = subprocess.Popen([*ARGUMENTS.quilt.words, *words], stdout=out, stderr=said)
            _, status, usage = os.wait4(process.pid, 0)
            process.returncode = os.waitstatus_to_exitcode(status)
        return (process.returncode, usage.ru_utime + usage.ru_stime, usage.ru_maxrss * 1024,
                os.path.getsize(self.path("out")))

    def made(self, name, maker, *numbers):
        """The path of what a maker makes, and the size that it has for those who read it. It is made in
        a process of its own, since what a program takes counts from the memory of who starts it."""
        path = self.path(name)
        if (child := os.fork()) == 0:
            contents = maker(*numbers)
            with open(path, "wb") as file:
                file.write(b"regf" if isinstance(contents, int) else contents)
            if isinstance(contents, int):
                os.truncate(path, contents)
            os._exit(0)
        self.assertEqual(os.waitpid(child, 0)[1], 0)
        with open(path, "rb") as file:
            head = file.read(12)
        return path, os.path.getsize(path) * (8 if head[8:9] == b"z" else 1)

    def setUp(self):
        super().setUp()
        head = b"MZ".ljust(60, b"\0") + struct.pack("<I", 128)
        head = head.ljust(128, b"\0") + b"PE\0\0" + struct.pack("<HH", 0x14c, 0)
        self.write("tool.exe", head.ljust(1024, b"\0"))

    def hold_bounds(self, size, memory, printed):
        self.assertLess(memory, 10 * size + 64 * MIB)
        self.assertLessEqual(printed, 64 * size + 66 * MIB)

    def cheapest(self, options, *inputs):
        """Processor time and text of runs over each of some inputs, within their bounds. They take turns,
        so that a moment of a busy machine is one for all."""
        best = [float("inf")] * len(inputs)
        texts = [0] * len(inputs)
        for _ in range(3):
            for number, (path, size) in enumerate(inputs):
                code, time, memory, texts[number] = self.run_measured(options, path)
                said = self.read("said").decode()
                self.assertTrue(code == 0 or any(word in said for word in TOLD), said)
                self.hold_bounds(size, memory, texts[number])
                best[number] = min(best[number], time)
        return zip(best, texts)

    def test_twice_the_input_takes_less_than_three_times_the_work(self):
        for name, (maker, count, options) in ROWS.items():
            with self.subTest(name):
                one, two = self.made("one", maker, count), self.made("two", maker, 2 * count)
                for _ in range(5):  # work that grows with the square is too much in each
                    (time, text), (more_time, more_text) = self.cheapest(options, one, two)
                    # Within the bound on text, work may grow as that does.
                    most_time = 1.5 * max(2, more_text / text) * time
                    if more_time < most_time:
                        break
                self.assertLess(more_time, most_time)

    def test_what_has_no_end_of_its_own_is_ended_and_told(self):
        for name, (maker, options, word) in BEYOND.items():
            with self.subTest(name):
                path, size = self.made("made", maker)
                result, _, memory, printed = self.run_measured(options, path)
                said = self.read("said").decode()
                self.assertEqual(result, 0 if word in HARMLESS else FAILED)
                self.assertIn(word, said)
                self.assertLessEqual(said.count("\n"), 2 if word else 0)
                self.hold_bounds(size, memory, printed)


if __name__ == "__main__":
    sys.exit(main())

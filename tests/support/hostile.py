"""Texts and databases that are made to mislead, or damaged."""

import random
import struct
from pathlib import Path

from support.whole_runs import SAMPLE, Database

HOSTILE = [
    "two\r\nlines", "three\nin\rall\n\r", "]]>", "<a b='c'>&amp;]]></a>", "<!--", "-->",
    'a "quote"', '"', '","', "it's", "a,b|c;d\te", "\x1b[2J\x1b]0;title\x07", "\x9b2J\x85",
    "gnp.\u202eexe", "\u2066left\u2069\u200e\u200f\u061c", "\ufffe\uffff\ufeff", "\x7f\x08\x01",
    "Чертёж 計測 \U0001f9f5", "-" * 79 + "<", "-" * 77 + "\x1b<", "\nDatabase MD5 | 0", "CDATA", "*", ""]


def hostile_database(text, second="it"):
    """The text in every place that a database has for one, and tags that come twice."""
    tag = (d := Database()).tag
    inline = (second + text + "\0").encode("utf-16-le")
    inline = b"\x02\x88" + len(inline).to_bytes(4, "little") + inline
    operation = (struct.pack("<5I", 2, 86, 2, 0, 0)
                 + text.encode("utf-16-le")[:62].ljust(64, b"\0") + b"\x85\x86")
    twice = [tag(0x6001, text), tag(0x6001, second), tag(0x6001, text), inline, inline]
    return d.image(
        tag(0x6022, text), tag(0x6001, text), tag(0x9007, bytes(range(16))),
        tag(0x7007, *twice, tag(0x6006, text), tag(0x6006, text), tag(0x6005, text), tag(0x4023, 1),
            tag(0x4023, 2), tag(0x9004, bytes(16)),
            tag(0x7008, tag(0x6001, "*"), tag(0x6009, text), *twice),
            tag(0x7003, tag(0x6003, text), tag(0x6003, text)),
            tag(0x700d, tag(0x4015, 1), tag(0x4015, 1), tag(0x6018, text), tag(0x6018, text))),
        tag(0x7007, tag(0x6001, "svc"), tag(0x6006, text)),
        tag(0x7006, *twice, b"\1\x2a\2", b"\2\x2a\3"),
        tag(0x7002, tag(0x7005, tag(0x6001, text), tag(0x9002, operation)),
            tag(0x7004, *twice, tag(0x9010, bytes(16)))))


def damaged_databases(count):
    """The sample with random bytes changed, taken out or put in: seeded, so the same each time."""
    sample = Path(SAMPLE).read_bytes()
    chance = random.Random(11)
    for _ in range(count):
        image = bytearray(sample)
        for _ in range(chance.randrange(1, 40)):
            at = chance.randrange(12, len(image))
            kind = chance.random()
            if kind < 0.7:
                image[at] = chance.choice((chance.randrange(256), 0, 0x3c, 0x22, 0x1b, 0x70, 0x60))
            elif kind < 0.8:
                image[at:at] = bytes(chance.randrange(256) for _ in range(chance.randrange(9)))
            elif kind < 0.9:
                del image[at:at + chance.randrange(9)]
            else:
                piece = chance.randrange(12, len(image))
                image[at:at] = image[piece:piece + chance.randrange(64)]
        yield bytes(image)

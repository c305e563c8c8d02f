#!/usr/bin/env python3
"""Holds JSON reports and events for Timesketch against a strict reader, their schema and the other forms.

    python3 tests/json_test.py --quilt build/release/quilt

Run from the root of the repository.
"""

import hashlib
import os
import re
import shlex
import struct
import sys
from datetime import datetime
from pathlib import Path

from support import hives
from support.hostile import HOSTILE, damaged_databases, hostile_database
from support.json_lines import SCHEMA, VALIDATORS, read_lines, read_report
from support.whole_runs import COMPRESSED, FAILED, GOLDEN, SAMPLE, Database, Runs, main, run, small_program

LISTINGS = ("-apps -fixes -guids -stringtable", "-exes", "-strings e", "-patchbytes 85", "-tag 0x7007")


def lists_in(line):
    yield line
    for child in line["children"]:
        yield from lists_in(child)


def offsets_in_json(lines):
    """The offsets of all tags of each record, ascending."""
    records = []
    for line in lines:
        if line["kind"] != "record":
            continue
        if "within" not in line:
            records.append([])
        for one in lists_in(line):
            repeated = one.get("repeated", {})
            records[-1] += [one["offset"], *(at for name, at in one["at"].items() if name not in repeated),
                            *(scalar["at"] for scalars in repeated.values() for scalar in scalars)]
    return [sorted(record) for record in records]


def offsets_in_lines(text):
    """The same of a plain report with "|" between its fields."""
    records = []
    for line in text.split("\n"):
        if line.startswith("-------------------- ["):
            records.append([])
        elif found := re.match(r"(?:[\da-f]+\|)?([\da-f]{6,})\|[\da-f]{4}\|", line):
            records[-1].append(int(found[1], 16))
    return [sorted(record) for record in records]


class Json(Runs):
    def lines(self, options, code=0, **places):
        """What a run tells in JSON, without its first and last line."""
        result = run(options, **places)
        self.assertEqual((options, result.returncode), (options, code), result.stderr)
        first, *lines, last = read_report(result.stdout)
        self.assertEqual(first["arguments"], shlex.split(options))
        self.assertEqual(last["whole"], code == 0)
        return lines

    def records(self, image, options="-tag 0x7007", code=0):
        path = self.write("made.sdb", image)
        return [line for line in self.lines(f"-sdb {path} {options} -json -quiet", code=code)
                if line["kind"] == "record"]

    def test_golden_reports_are_as_their_schema_says(self):
        found = [read_report(path.read_bytes().split(b"messages:\n")[0])
                 for path in GOLDEN.glob("*.json")]
        self.assertGreater(len(found), 5)

    def test_texts_come_back_whole(self):
        for number, text in enumerate(HOSTILE):
            with self.subTest(text=text):
                second = HOSTILE[number - 1]
                path = self.write("hostile.sdb", hostile_database(text, second))
                lines = self.lines(f"-sdb {path} -apps -fixes -guids -stringtable -json -quiet")
                record = next(line for line in lines if line["kind"] == "record")
                self.assertEqual([scalar["value"] for scalar in record["repeated"]["name"]],
                                 [text, second, text])
                inline = [scalar["value"] for scalar in record["repeated"]["tag_34818"]]
                self.assertEqual(inline, [second + text] * 2)
                patch = next(one for line in lines if line["kind"] == "record" for one in lists_in(line)
                             if one["tag"] == "patch")
                self.assertEqual(patch["values"]["patch_bits"],
                                 [{"op": "replace", "module": text[:31], "address": 0, "bytes": "8586"}])
                self.assertIn(text, [line["text"] for line in lines if line["kind"] == "string"])
                self.assertIn(text, [line["name"] for line in lines if line["kind"] == "identifier"])
                facts, = self.lines(f"-sdb {path} -stats -json -quiet")
                self.assertEqual((facts["name"], facts["compiler_version"]),
                                 (text or None, text or None))

    def test_values_are_typed_by_their_tags(self):
        moment = 127_000_000_123_456_789
        tag = Database().tag
        for number, stored, value, raw in (
                (0x1001, b"", True, None), (0x2a01, b"\xff", 255, None), (0x3002, b"\x01\x70", 0x7001, None),
                (0x4001, struct.pack("<I", 0xffffffff), 0xffffffff, None),
                (0x401d, struct.pack("<I", 1234567890), "2009-02-13T23:31:30Z", None),
                (0x401d, struct.pack("<I", 0), None, None),
                (0x401d, b"\xff" * 4, None, "0xffffffff"),
                (0x5001, struct.pack("<Q", moment), "2003-06-13T17:46:52.3456789Z", None),
                (0x5001, struct.pack("<Q", 1), "1601-01-01T00:00:00.0000001Z", None),
                (0x5004, struct.pack("<Q", 2_650_467_743_999_999_999), "9999-12-31T23:59:59.9999999Z", None),
                (0x5004, struct.pack("<Q", 2_650_467_744_000_000_000), None, "0x24c85a5ed1c04000"),
                (0x4033, struct.pack("<I", 1234567890), "2009-02-13T23:31:30Z", None),
                (0x5014, struct.pack("<Q", 6 << 48), "6.0.0.0", None), (0x5017, bytes(8), "0.0.0.0", None),
                (0x501c, struct.pack("<Q", 6 << 48), "6.0.0.0", None),
                (0x5002, struct.pack("<Q", 6 << 48 | 2 << 32 | 1180 << 16 | 4), "6.2.1180.4", None),
                (0x5002, struct.pack("<Q", 6 << 48 | 2 << 32 | 0xffffffff), "6.2", None),
                (0x5002, struct.pack("<Q", 6 << 48 | 0xffff << 32 | 1), "6", "0x0006ffff00000001"),
                (0x5ffe, struct.pack("<Q", 10), "0x000000000000000a", None),
                (0x6001, struct.pack("<I", 6), "first", None), (0x6ffe, struct.pack("<I", 48), "", None),
                (0x6001, struct.pack("<I", 7), None, "0x00000007"),
                (0x6001, struct.pack("<I", 24), "\xe9", "0x00000018"),
                (0x8ffe, struct.pack("<I", 4) + b"a\0\0\xd8", "a\ufffd", None),
                (0x8ffe, struct.pack("<I", 6) + b"a\0\0\0b\0", "a", {"size": 6, "hex": "610000006200"}),
                (0x9004, struct.pack("<I", 16) + bytes(range(16)), "03020100-0504-0706-0809-0a0b0c0d0e0f", None),
                (0x9004, struct.pack("<I", 2) + b"\x01\x02", None, {"size": 2, "hex": "0102"}),
                (0x9ffe, struct.pack("<I", 3) + b"\xeb\0\x01\0", {"size": 3, "hex": "eb0001"}, None),
                (0x9005, struct.pack("<I", 2) + b"\x85\xc0", {"size": 2, "hex": "85c0"}, None),
                (0x9002, struct.pack("<I", 4) + b"\x85\xc0\0\0", [], {"size": 4, "hex": "85c00000"})):
            with self.subTest(tag=hex(number), stored=stored):
                made = Database()
                for text in ("first", "\xe9\0hidden", ""):
                    made.tag(0x6001, text)
                image = made.image(tag(0x7007, struct.pack("<H", number) + stored, b"\x02\x10", b"\x03\x10"))
                record, = self.records(image)
                name = next(iter(record["values"]))
                self.assertEqual((record["values"][name], record.get("raw", {}).get(name)), (value, raw))
                self.assertEqual(record["at"][name], record["offset"] + 6)
                self.assertEqual(record.get("tags"), {"byte": number} if name == "byte" else None)

    def test_the_schema_holds_values_by_the_types_of_their_tags(self):
        names = [(int(number, 16), name) for number, name in re.findall(
            r"SDB_TAG\((0x\w+), (\w+)\)", Path("src/sdb/tag_list.inc").read_text("utf-8"))]
        names += [(number, f"tag_{number}") for kind in (1, 3, 4, 5, 6, 8, 9)
                  for number in (kind << 12, (kind << 12) + 1234, (kind << 12) + 0xfff)] + [(0x2001, "byte")]
        kinds = {1: "set", 2: "number", 3: "number", 4: "number moment", 5: "bits moment version", 6: "text",
                 8: "text", 9: "binary guid_or_none patch"}
        shapes = SCHEMA["$defs"]["list"]["properties"]
        for number, name in names:
            if number >> 12 != 7:
                with self.subTest(name=name):
                    kind, = (to["$ref"] for pattern, to in shapes["values"]["patternProperties"].items()
                             if re.search(pattern, name))
                    again, = (to["items"]["properties"]["value"]["$ref"]
                              for pattern, to in shapes["repeated"]["patternProperties"].items()
                              if re.search(pattern, name))
                    self.assertEqual(kind, again)
                    self.assertIn(kind.split("/")[-1], kinds[number >> 12].split())
        record = self.records(Path(SAMPLE).read_bytes(), "-exes")[0]
        for name, value in (("size", "1"), ("name", 1), ("general", False), ("time", "yesterday"),
                            ("bin_file_version", "0x01"), ("tag_20481", 1), ("exe_id", {}), ("patch_bits", "eb")):
            for changed in ({"values": {name: value}}, {"repeated": {name: [{"at": 1, "value": value}]}}):
                self.assertFalse(VALIDATORS["record"].is_valid({**record, **changed}), changed)

    def test_a_record_is_a_tree(self):
        tag = (d := Database()).tag
        shim = tag(0x7004, tag(0x6001, "Fix"), tag(0x9010, bytes(16)), tag(0x7003, tag(0x6003, "a.dll")))
        library = tag(0x7002, shim)
        led = tag(0x7009, tag(0x6001, "Fix"), tag(0x4004, 24))
        image = d.image(library, tag(
            0x7007, tag(0x6001, "a.exe"), tag(0x7008, tag(0x6001, "*"), b"\1\x20\1\2\x20\2", tag(0x4001, 1)),
            led, tag(0x6006, "A"), tag(0x7008, tag(0x6001, "b"), tag(0x6001, "c")), led))
        record, = self.records(image)
        self.assertEqual(record["values"], {"name": "a.exe", "app_name": "A"})
        self.assertEqual([child["tag"] for child in record["children"]],
                         ["matching_file", "shim_ref", "matching_file", "shim_ref"])
        offsets = [child["offset"] for child in record["children"]]
        self.assertEqual(offsets, sorted(offsets))
        first, reference, second, other = record["children"]
        at = first["at"]["byte"]
        self.assertEqual((first["values"]["byte"], first["tags"]), (1, {"byte": 0x2001}))
        self.assertEqual(first["repeated"], {"byte": [{"at": at, "value": 1, "tag": 0x2001},
                                                      {"at": at + 3, "value": 2, "tag": 0x2002}]})
        self.assertEqual([scalar["value"] for scalar in second["repeated"]["name"]], ["b", "c"])
        self.assertEqual(second["values"], {"name": "b"})
        for one in (reference, other):
            followed, = one["children"]
            self.assertEqual(followed.pop("reference"), one["at"]["shim_tagid"])
            self.assertEqual((one["values"]["shim_tagid"], followed["offset"], followed["tag"]), (24, 24, "shim"))
            self.assertEqual([child["values"] for child in followed["children"]], [{"module": "a.dll"}])
        self.assertEqual(reference["children"], other["children"])

    def test_lists_beyond_64_begin_lines_of_their_own(self):
        tag = Database().tag
        innermost = tag(0x4001, 7) + tag(0x4002, 8)
        for _ in range(200):
            innermost = tag(0x7003, innermost, tag(0x4001, 9))
        lines = self.records(Database().image(tag(0x7007, tag(0x4001, 5), innermost, tag(0x7008, tag(0x4001, 6)))))
        self.assertEqual([line["tag"] for line in lines], ["exe", "inexclude", "inexclude", "inexclude",
                                                           "matching_file"])
        everything = [one for line in lines for one in lists_in(line)]
        self.assertEqual(len(everything), 202)
        offsets = {one["offset"]: one for one in everything}
        for line in lines[1:]:
            around = offsets[line["within"]]
            self.assertTrue(around["offset"] < line["offset"] < around["offset"] + around["size"] + 6)
        self.assertEqual(lines[-1]["within"], lines[0]["offset"])

    def test_damaged_databases_are_told_as_in_lines(self):
        for number, image in enumerate(damaged_databases(300)):
            path = self.write("damaged.sdb", image)
            with self.subTest(number=number):
                options = LISTINGS[number % len(LISTINGS)]
                report = run(f"-sdb {path} {options} -json -quiet").stdout
                lines = read_report(report, validated=number % 10 == 0)
                plain = run(f"-sdb {path} {options} -multiline -csv_separator | -quiet").stdout.decode()
                self.assertEqual(offsets_in_json(lines), offsets_in_lines(plain))
                if number % 3 == 0:
                    read_report(run(f"-sdb {path} -stats -json -quiet").stdout, validated=number % 10 == 0)
                    read_lines(run(f"-sdb {path} -stats -timesketch -quiet").stdout)

    def test_every_run_is_a_whole_report(self):
        tool = self.write("tool.exe", b"no program")
        self.write("v/Windows/AppPatch/a.sdb", Path(SAMPLE).read_bytes())
        self.write("v/Windows/AppPatch/b.sdb", b"no database")
        os.makedirs(self.path("w/Windows/AppPatch"))
        os.symlink(os.path.abspath(SAMPLE), self.path("w/Windows/AppPatch/out.sdb"))
        lists = f"{SAMPLE}\n{tool}\n{self.path('none.sdb')}\n".encode()
        for options, code, kinds, counts in (
                (f"-sdb {SAMPLE} -strings nowhere", 0, ["database"], (1, 0, 0, False)),
                (f"-sdb {SAMPLE} -fixes -strings nowhere", 0, ["database", "note"], (1, 0, 0, False)),
                (f"-sdb {SAMPLE}", 0, ["database", "note"], (1, 0, 0, False)),
                (f"-sdb {SAMPLE} -tag", 0, ["database", "note"], (1, 0, 0, False)),
                (f"-sdb {SAMPLE} -exes -strings nowhere -diags /dev/full", FAILED, ["database"], (1, 0, 0, False)),
                ("-h", 0, [], (0, 0, 0, True)),
                (f"-sdb {SAMPLE} -match -pe {tool}", FAILED, ["database", "failure"], (1, 0, 1, False)),
                (f"-sdb {tool} -apps", FAILED, ["failure"], (0, 0, 1, False)),
                (f"-pe {tool} -stats", FAILED, ["failure"], (0, 0, 1, False)),
                (f"-sdb {tool}.sdb -apps", FAILED, ["failure"], (0, 0, 1, True)),
                (f"-sdb {SAMPLE} -match -pe {tool}.exe", FAILED, ["failure"], (0, 0, 1, True)),
                (f"-sdb {SAMPLE} -patchbytes zz", FAILED, [], (0, 0, 0, True)),
                ("-apps", FAILED, [], (0, 0, 0, True)),
                (f"-partition {self.path('v')} -patches -strings no", FAILED, ["database", "failure"],
                 (1, 0, 1, False)),
                (f"-partition {self.path('v')} -listsdb", 0, ["target"] * 2, (2, 0, 0, False)),
                (f"-partition {self.folder} -listsdb", FAILED, [], (0, 0, 0, False)),
                (f"-partition {self.path('w')} -exes", FAILED, ["failure"], (0, 0, 1, False)),
                ("-pipe -tag 0x7010", FAILED, ["database", "failure"], (1, 0, 1, False)),
                ("-pipe -stats", FAILED, ["statistics", "failure"], (1, 0, 1, False))):
            with self.subTest(options=options):
                result = run(f"{options} -json -quiet", lines=lists)
                lines = read_report(result.stdout)
                self.assertEqual((result.returncode, [line["kind"] for line in lines[1:-1]]), (code, kinds))
                end = lines[-1]
                self.assertEqual((end["databases"], end["programs"], end["failed"], end["refused"]), counts)
                self.assertEqual(end["whole"], code == 0)

    def test_a_file_takes_the_whole_stream(self):
        out = self.path("out.json")
        listed = f"-partition {self.path('v')} -listsdb -json -quiet -out {out}"
        self.write("v/Windows/AppPatch/a.sdb", Path(SAMPLE).read_bytes())
        self.assertEqual(run(listed).stdout, b"")
        self.assertEqual([line["kind"] for line in read_report(Path(out).read_bytes())], ["run", "target", "end"])
        self.assertEqual(run(f"{listed} -append").stdout, b"")
        self.assertEqual(len(read_lines(Path(out).read_bytes())), 6)
        cut = self.write("cut.json", b'{"kind":"ru')
        run(f"-sdb {SAMPLE} -exes -json -quiet -append -out {cut}")
        first, *report = Path(cut).read_bytes().split(b"\n", 1)
        self.assertEqual((first, len(read_report(report[0]))), (b'{"kind":"ru', 10))
        rows = self.write("cut.csv", b"cut o")
        run(f"-sdb {SAMPLE} -stats -csv -no_header -quiet -append -out {rows}")
        self.assertEqual(Path(rows).read_bytes().split(b"\r\n")[0], b"cut o")

    def test_names_that_are_no_utf_8(self):
        path = os.fsencode(self.folder) + b"/\xffa\xc2\x85\"\xe2\x80.sdb"
        Path(os.fsdecode(path)).write_bytes(Path(SAMPLE).read_bytes())
        first, *lines, _ = read_report(run("-sdb", os.fsdecode(path), "-patches", "-json", "-quiet").stdout)
        shown = f"{self.folder}/[xff]a\x85\"[xe2][x80].sdb"
        self.assertEqual((first["arguments"][1], bytes.fromhex(first["arguments_bytes"][1])), (shown, path))
        self.assertEqual([(line["database"], bytes.fromhex(line["database_bytes"])) for line in lines],
                         [(shown, path)] * 2)

    def test_statistics_hold_all_facts(self):
        tag = (d := Database()).tag
        exes = [tag(0x7007, tag(0x6001, f"{i}.exe"), tag(0x6006, "A"), tag(0x4001, 1)) for i in range(3)]
        image = d.image(tag(0x5001, hives.MOMENT), tag(0x6001, "Named"), tag(0x4023, 4), *exes)
        path = self.write("v/ProgramData/a.sdb", image)
        os.utime(path, ns=(1_300_000_000_123_456_700, 1_400_000_000_765_432_100))
        self.write("v/Windows/System32/config/SOFTWARE", b"")
        hive = self.path("v/Windows/System32/config/SOFTWARE")
        hives.make_hive(hive, {"{A}": hives.installed("C:\\ProgramData\\a.sdb", "Says, so", hives.MOMENT, 7)})
        facts, = self.lines(f"-partition {self.path('v')} -stats -json -quiet")
        digests = {name: hashlib.new(name, image).hexdigest() for name in ("md5", "sha1", "sha256")}
        self.assertEqual({name: facts[name] for name in digests}, digests)
        self.assertEqual(facts["file"], {"size": len(image), **digests})
        self.assertEqual((facts["name"], facts["platform"], facts["version"]), ("Named", 4, "2.3"))
        times = {(time["source"], time["event"]): time["time"] for time in facts["times"]}
        self.assertEqual(times["file", "modified"], "2014-05-13T16:53:20.7654321Z")
        self.assertEqual(times["file", "accessed"], "2011-03-13T07:06:40.1234567Z")
        self.assertEqual(times["database", "compiled"], times["registry", "installed"])
        self.assertEqual({one["name"]: (one["count"], one["counts"]) for one in facts["counts"]},
                         {"appname": (1, "values"), "exe": (3, "tags"), "strings": (7, "tags")})
        self.assertEqual((facts["registry"]["path"], facts["registry"]["description"], facts["registry"]["type"]),
                         ("C:\\ProgramData\\a.sdb", "Says, so", 7))
        packed, = self.lines(f"-sdb {COMPRESSED} -stats -json -quiet")
        file, inflated = Path(COMPRESSED).read_bytes(), Path(SAMPLE).read_bytes()
        self.assertEqual((packed["size"], packed["sha256"]), (len(inflated), hashlib.sha256(inflated).hexdigest()))
        self.assertEqual((packed["file"]["size"], packed["file"]["md5"]),
                         (len(file), hashlib.md5(file).hexdigest()))
        cut = self.write("cut.sdb", inflated[:3000])
        told, = self.lines(f"-sdb {cut} -stats -json -quiet", code=FAILED)
        self.assertEqual((told["extent"]["read"], told["extent"]["whole"]), (3000, False))

    def test_a_match_tells_each_fact(self):
        tag = (d := Database()).tag
        tool = self.write("tool.exe", small_program())

        def exe(*facts):
            return tag(0x7007, tag(0x6001, "tool.exe"), tag(0x6006, "A"),
                       tag(0x7008, tag(0x6001, "*"), *facts))
        image = d.image(exe(tag(0x4001, 4096)), exe(tag(0x4001, 4095)),
                        exe(tag(0x4001, 4096), tag(0x6009, "Maker")),
                        exe(tag(0x6009, "Maker"), tag(0x6010, "x"), tag(0x4003, 1)),
                        exe(tag(0x401d, 0), tag(0x5006, 6 << 48), tag(0x4001, 4096)))
        path = self.write("m.sdb", image)
        _, match, *records = self.lines(f"-sdb {path} -match -pe {tool} -json -quiet")
        self.assertEqual((match["program"], match["by"], match["complete"]), (tool, "name", True))
        self.assertEqual([(one["verdict"], one["listed"]) for one in match["lists"]],
                         [("yes", True), ("no", False), ("unknown", True), ("no", False), ("unknown", True)])
        named = match["lists"][1]
        compared = next(one for one in named["facts"] if one["tag"] == "name")
        self.assertEqual((compared["compared"], compared["compared_at"]), ("tool.exe", named["record"] + 6))
        self.assertLessEqual({"size": 4096, "sha256": hashlib.sha256(Path(tool).read_bytes()).hexdigest()}.items(),
                             match["program_file"].items())
        facts = [[(one["tag"], one["database"], one["program"], one["agrees"]) for one in row["facts"]]
                 for row in match["lists"]]
        self.assertEqual(facts[1], [("size", 4095, 4096, "no"), ("name", "*", "tool.exe", "yes")])
        self.assertEqual(facts[2][2], ("company_name", "Maker", None, "unknown"))
        self.assertIn(("link_date", None, None, "yes"), facts[4])
        self.assertEqual([record["offset"] for record in records],
                         [one["record"] for one in match["lists"] if one["listed"]])
        self.assertEqual([one["record"] for one in match["records"]], [record["offset"] for record in records])

    def test_programs_are_objects(self):
        tool = self.write("tool.exe", small_program(1234567890))
        os.utime(tool, (1e9, 1e9))
        program, = self.lines("-pipe -pe -stats -json -quiet", lines=tool.encode())
        self.assertEqual((program["kind"], program["path"]), ("program", tool))
        digests = {name: hashlib.new(name, Path(tool).read_bytes()).hexdigest() for name in ("md5", "sha1", "sha256")}
        self.assertLessEqual({"size": 4096, **digests}.items(), program.items())
        self.assertEqual([(one["event"], one["time"]) for one in program["times"]][:2],
                         [("compiled", "2009-02-13T23:31:30Z"), ("modified", "2001-09-09T01:46:40.0000000Z")])
        numbers = {one["tag"]: one["number"] for one in program["properties"]}
        self.assertEqual((numbers["link_date"], numbers["size"]), (1234567890, 4096))
        language = {one["language"] for one in program["properties"]}
        self.assertEqual(language, {None})
        event, *_ = read_lines(run(f"-pe {tool} -stats -timesketch -username u").stdout)
        self.assertLessEqual({"datetime": "2009-02-13T23:31:30Z", "timestamp": 1234567890000000, "user": "u",
                              "property_size": 4096, "property_module_type": 3, **digests}.items(), event.items())

    def test_events_for_timesketch(self):
        path = self.write("named.sdb", hostile_database('a\n"b\u202e'))
        os.utime(path, ns=(1_300_000_000_123_456_700, -1_000_000_000_500_000_000))
        events = read_lines(run("-stats", "-timesketch", "-quiet", "-hostname", "h", "-sdb", path).stdout)
        self.assertEqual({event["timestamp_desc"] for event in events},
                         {"file modified", "file accessed", "file created"})
        for event in events:
            self.assertTrue(all(isinstance(value, (str, int)) for value in event.values()))
            moment = datetime.fromisoformat(event["datetime"])
            self.assertEqual(moment.timestamp() * 1_000_000 // 1, event["timestamp"])
            self.assertGreater(event["count_exe"], 0)
            self.assertEqual((event["name"], event["host"], event["database"]), ('a\n"b\u202e', "h", path))
            self.assertTrue(path in event["message"] and event["md5"] and event["sha256"])
        self.assertEqual(run(f"-sdb {path} -apps -timesketch -quiet").stdout, b"")


if __name__ == "__main__":
    sys.exit(main())

"""Reads JSON reports as strictly as they are promised, and holds them against their schema."""

import json
import re
from pathlib import Path

import jsonschema

SCHEMA = json.loads((Path(__file__).parents[2] / "docs/schema/report-1.schema.json").read_text("utf-8"))
# What must be an escape: controls, and what reorders or ends a line.
ACTING = re.compile("[\x00-\x09\x0b-\x1f\x7f-\x9f\u061c\u200e\u200f\u2028-\u202e\u2066-\u2069\ufffe\uffff]")


def closed(node):
    """The schema without room for members that it does not name. What an object shares with others by a
    reference stands in it itself, which costs readers of the schema far less."""
    if isinstance(node, list):
        return [closed(item) for item in node]
    if not isinstance(node, dict):
        return node
    if "properties" in node and "$ref" in node:
        shared = SCHEMA["$defs"][node["$ref"].split("/")[-1]]
        node = {**shared, **node, "properties": {**shared["properties"], **node["properties"]},
                "required": shared.get("required", []) + node.get("required", [])}
        del node["$ref"]
    made = {key: closed(value) for key, value in node.items()}
    if made.get("type") in ("object", ["object", "null"]) and {"properties", "patternProperties"} & made.keys():
        made["additionalProperties"] = False
    return made


jsonschema.Draft202012Validator.check_schema(SCHEMA)
CLOSED = closed(SCHEMA)
VALIDATORS = {kind["$ref"].split("/")[-1]: jsonschema.Draft202012Validator({**kind, "$defs": CLOSED["$defs"]})
              for kind in SCHEMA["oneOf"]}


def members(pairs):
    made = dict(pairs)
    if len(made) != len(pairs):
        raise ValueError(f"a name twice in {[name for name, _ in pairs]}")
    return made


def refused(constant):
    raise ValueError(f"{constant} is no JSON")


def read_lines(report):
    """The objects of JSON lines, from bytes."""
    text = report.decode()
    if ACTING.search(text) or text[-1:] not in ("", "\n"):
        raise ValueError("a character that acts, or a line without an end")
    return [json.loads(line, object_pairs_hook=members, parse_constant=refused)
            for line in text.split("\n")[:-1]]


def read_report(report, validated=True):
    """The lines of a whole report, in an order that makes sense, all known to the schema."""
    lines = read_lines(report)
    kinds = [line["kind"] for line in lines]
    if kinds.count("run") != 1 or kinds.count("end") != 1 or (kinds[0], kinds[-1]) != ("run", "end"):
        raise ValueError(f"no whole report: {kinds}")
    told = set()
    for line in lines:
        if line["kind"] in ("database", "statistics"):
            told.add(line["database"])
        elif line["kind"] in ("finding", "difference", "caught"):
            pass  # of what the registry names, or one side alone has
        elif line.get("database", "") not in told | {""}:
            raise ValueError(f"a line in front of its database: {line}")
        if validated:
            VALIDATORS[line["kind"]].validate(line)
    return lines

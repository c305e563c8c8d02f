"""Reads what llvm-cov exports and prints, for the files of src/, the lines that were reached."""

import json
import os
import sys

root = os.path.join(os.getcwd(), "src", "")
rows = [(file["filename"].removeprefix(root), file["summary"]["lines"])
        for file in json.load(sys.stdin)["data"][0]["files"] if file["filename"].startswith(root)]
for name, lines in sorted(rows, key=lambda row: row[1]["percent"]):
    print(f"{lines['percent']:6.1f} %  {lines['covered']:5} of {lines['count']:5}  {name}")
covered, count = (sum(lines[key] for _, lines in rows) for key in ("covered", "count"))
print(f"{100 * covered / count:6.1f} %  {covered:5} of {count:5}  in all")

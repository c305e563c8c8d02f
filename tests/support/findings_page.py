"""Makes docs/findings.md of the tables in knowledge/: python3 tests/support/findings_page.py > docs/findings.md"""

import csv
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
GROUPS = {"place": "Where the file lies", "registry": "How it is registered",
          "target": "What it aims at", "effect": "What it does", "identity": "Who it says it is",
          "time": "When", "shape": "How it is built"}
HEAD = """# Findings

What `quilt -explain` may find: what each means, how it is proven, and what else it may be. A finding says what
stands in a file or a registry, and never who put it there or why. This page is made of the tables in
[knowledge/](../knowledge) by `tests/support/findings_page.py`; `-knowledge <file>` adds rows to them, or changes
some.

**Weights.** High is to be looked at now, medium to be looked at, low counts only beside others. Subjects with a
high finding come first, then the sum of all that was found orders them; a sum never raises a weight. In a database
of the vendor's own the findings of "aims at", "does" and "built" have no weight. One is the vendor's own by place,
name and identifier together, and then explained only when `-sdb` names it; every other one is custom, a copy
of a vendor's file under another name too.

**What a clean set of databases does not prove.** Fixes can be applied out of the memory of a process, with no
database at all. Nothing in a file tells of that.

**Places** are counted from the root of the volume that `-partition` or `-vss` names or that the image in a path
holds, or from a walked folder that has a folder `Windows`; elsewhere only a path that leads through such a folder
tells one. Of a copy that lies anywhere else nothing is said about places but its name.
"""


def table(name):
    lines = (ROOT / f"knowledge/{name}.tsv").read_text("utf-8").splitlines()
    return list(csv.DictReader(lines, delimiter="\t", quoting=csv.QUOTE_NONE))


def cell(text):
    return text.replace("|", "\\|")


def page():
    findings, made = table("findings"), [HEAD]
    for group, title in GROUPS.items():
        made.append(f"\n## {title}\n\n| id | weight | technique | what it means | how it is proven | "
                    "what else it may be | source |\n|---|---|---|---|---|---|---|\n")
        for row in findings:
            if row["group"] == group and row["scope"] != "left":
                only = " Of custom databases alone." if row["scope"] == "custom" else ""
                made.append("| {} | {} | {} | {} | {} | {} | {} |\n".format(*map(cell, (
                    row["id"], row["weight"], row["technique"], row["means"], row["proof"] + only,
                    row["otherwise"], row["source"]))))
    made.append("\n## Left out\n\nWhat databases, hives, volumes and programs cannot prove. The hosts of a firm "
                "are not known either: `apphelp.link` takes those that `-knowledge` adds to \"known host\".\n\n"
                "| id | what it would mean | why it is left out |\n|---|---|---|\n")
    for row in findings:
        if row["scope"] == "left":
            made.append(f"| {row['id']} | {cell(row['means'])} | {cell(row['proof'])} |\n")
    made.append("\n## Lists\n\n")
    lists = {}
    for row in table("lists"):
        lists.setdefault(row["list"], []).append(
            f"`{row['entry']}`" + (f" ({row['note']})" if row["note"] else ""))
    for name, entries in lists.items():
        made.append(f"- **{name}**: {', '.join(entries)}\n")
    made.append("\n## Sources\n\n")
    for row in table("sources"):
        made.append(f"- **{row['source']}**: {row['title']}\n")
    return "".join(made)


if __name__ == "__main__":
    print(page(), end="")

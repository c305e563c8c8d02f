#!/usr/bin/env python3
"""Makes the manual, docs/options.md and the completions of shells from what quilt tells of its options.

    python3 docs/make_pages.py build/release/tell_options

The program tell_options is built from the table of options (src/front/option_words.cpp). The day of the
manual is that of the newest release in CHANGELOG.md. tests/pages_test.py holds what is kept against it.
"""

import re
import subprocess
import sys
import textwrap
from collections import namedtuple
from datetime import date
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
NOTE = "Made by docs/make_pages.py from src/front/option_words.cpp."
SYNOPSES = (("Fl sdb Ar file", "Ar report", "Op Ar options"), ("Fl partition Ar volume", "Ar report", "Op Ar options"),
            ("Fl enumdir Ar folder | Fl pipe", "Ar report", "Op Ar options"), ("Fl pe Ar file", "Fl stats"),
            ("Fl sdb Ar file", "Fl match Fl pe Ar file"), ("Fl help", "Ar option"))
PATHS = {"file", "folder", "volume"}

Option = namedtuple("Option", "name group argument effect detail otherwise conflicts example")


def read_options(text):
    version, *lines = text.rstrip("\n").split("\n")
    return version, [Option(*line.split("\t")) for line in lines]


def groups(options):
    found = {}
    for option in options:
        found.setdefault(option.group, []).append(option)
    return found.items()


def sentence(text):
    return text[:1].upper() + text[1:] + ("" if text.endswith(".") else ".")


# --- the manual

def roff(text):
    """Text in lines of sentences, that begins no request and keeps its backslashes and dashes."""
    lines = [line for one in re.split(r"(?<=[.]) (?=[A-Z])", text) for line in textwrap.wrap(one, 72)]
    return re.sub(r"(?m)^([.'])", r"\\&\1", "\n".join(lines).replace("\\", "\\e").replace("-", "\\-"))


def literal(command):
    return ".Dl " + command.replace("\\", "\\e").replace("-", "\\-").replace(" . ", " \\&. ")


def manual(version, options):
    released = re.search(r"^## [\d.]+, ([\d-]+)$", (ROOT / "CHANGELOG.md").read_text("utf-8"), re.M)[1]
    day = date.fromisoformat(released)
    out = [f'.\\" {NOTE}', f".Dd {day:%B} {day.day}, {day.year}", ".Dt QUILT 1", ".Os", ".Sh NAME", ".Nm quilt",
           ".Nd analyser of Windows application-compatibility shim databases", ".Sh SYNOPSIS"]
    for request, *more in SYNOPSES:
        out += [".Nm", f".{request}", *(f".{line}" for line in more)]
    out += [".Sh DESCRIPTION", ".Nm", "reads shim databases",
            ".Pq Pa .sdb ,", "in which Windows records which programs get which compatibility fixes,",
            "and reports what they hold.", "It writes nothing to what it examines.", ".Pp",
            "Options begin with one dash or two.", "Their order and case have no meaning.",
            "What no option takes is ignored, and said."]
    for group, members in groups(options):
        out += [f".Ss {group}", ".Bl -tag -width Ds"]
        for option in members:
            name = "\\&?" if option.name == "-?" else option.name[1:]
            out += [f".It Fl {name}" + (f" Ar {option.argument}" if option.argument else ""),
                    roff(sentence(option.effect))]
            out += [roff(option.detail)] if option.detail else []
            out += [roff(f"Without it: {option.otherwise}.")] if option.otherwise else []
            out += [roff(f"Conflicts with: {option.conflicts}.")] if option.conflicts else []
            out += [".Pp", literal(option.example)]
        out.append(".El")
    out += [".Sh EXIT STATUS",
            "0 when all that was named or found was read and written whole,", "255 when anything was not;",
            "the error stream says what.", "A search without a hit, and what is ignored, leave 0.",
            ".Sh EXAMPLES", "The applications of a database:", ".Pp", literal("quilt -sdb file.sdb -apps"), ".Pp",
            "The databases of a mounted volume, a row each:", ".Pp",
            literal("quilt -partition /mnt/c -stats -csv"), ".Pp", "A timeline of listed databases:", ".Pp",
            literal("find . -name '*.sdb' | quilt -pipe -stats -csvl2t"), ".Sh SEE ALSO",
            "The pages about output, messages and security that come with", ".Nm .", ".Xr jq 1 ,",
            ".Xr mactime 1 ,", ".Xr sqlite3 1"]
    return "\n".join(out) + "\n"


# --- the page

def page(version, options):
    out = ["# Options", "", f"<!-- {NOTE} -->", "",
           "Options begin with one dash or two; their order and case have no meaning. What no option takes is",
           "ignored, and said. `quilt --help` shows them all in short, `quilt -help -sdb` one of them.", ""]
    out += [f"- {group}: " + " ".join(f"`{option.name}`" for option in members)
            for group, members in groups(options)]
    for group, members in groups(options):
        out += ["", f"## {group}"]
        for option in members:
            head = option.name + (f" <{option.argument}>" if option.argument else "")
            out += ["", f"### `{head}`", "",
                    re.sub(r"([*_<])", r"\\\1", " ".join(filter(None, (sentence(option.effect), option.detail)))),
                    ""]
            out += [f"- {label}: {text}".replace("*", "\\*").replace("_", "\\_")
                    for label, text in (("Without it", option.otherwise), ("Conflicts with", option.conflicts))
                    if text]
            out.append(f"- Example: `{option.example}`")
    return "\n".join(out) + "\n"


# --- completions

def told(options):
    """Without those that are only taken for the sake of other tools."""
    return [option for option in options if not option.group.startswith("Of other tools")]


def names(options, kinds):
    return "|".join(option.name for option in options if option.argument and option.argument in kinds)


def families():
    """What stands in front of the dot of the findings' names."""
    rows = (ROOT / "knowledge/findings.tsv").read_text("utf-8").splitlines()[1:]
    return " ".join(sorted({row.split(".")[0] for row in rows if "." in row.split("\t")[0]}))


def known_values():
    """What some options take, by name, and whether commas part several."""
    return {"-color": ("always never auto", False), "-only": ("high medium low", True), "-family": (families(), True)}


REPEATED = {"-sdb", "-reg", "-known", "-knowledge", "-filter", "-filter_sig"}


def bash(version, options):
    values = "|".join(o.name for o in options if o.argument and o.argument not in PATHS and o.name not in known_values())
    choices = "".join(f"""
    {name})
        mapfile -t COMPREPLY < <(compgen -W '{words}' -- "$word")
        return
        ;;""" for name, (words, _) in known_values().items())
    return f"""# {NOTE}
_quilt() {{
    local word=${{COMP_WORDS[COMP_CWORD]}} before=${{COMP_WORDS[COMP_CWORD - 1]}} dash=
    before=${{before,,}}
    COMPREPLY=()
    [[ $word != -* ]] || before=
    case ${{before/#--/-}} in
    {names(options, {"file", "volume"})})
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
        return
        ;;
    {names(options, {"folder"})})
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -d -- "$word")
        return
        ;;
    {values})
        return
        ;;{choices}
    esac
    [[ $word != --* ]] || dash=-
    mapfile -t COMPREPLY < <(compgen -P "$dash" -W '{" ".join(o.name for o in told(options))}' -- "${{word#"$dash"}}")
}}
complete -F _quilt quilt
"""


def zsh(version, options):
    out = ["#compdef quilt", f"# {NOTE}", "",
           'words=("${(@)words/#--/-}")  # options may have two dashes', "[[ $PREFIX != --* ]] || compset -P 1 -", "_arguments \\"]
    actions = {"file": ":file:_files", "volume": ":volume:_files", "folder": ":folder:_path_files -/", "": ""}
    for option in told(options):
        name = option.name.replace("?", "\\?")
        effect = re.sub(r"([\[\]:])", r"\\\1", option.effect).replace("'", "'\\''")
        action = actions.get(option.argument, f":{option.argument}: ")
        if option.name in known_values():
            words, are_several = known_values()[option.name]
            action = f":{option.argument}:" + (f"_values -s , {option.argument} {words}" if are_several else f"({words})")
        elif option.name == "-pe":
            action = "::file:_files"  # of a list it has none
        name = ("*" if option.name in REPEATED else "") + name
        if option.name == "-help":
            action = f"::option:({' '.join(o.name for o in told(options) if o.name != '-?')})"
        out.append(f"    '{name}[{effect}]{action}' \\")
    return "\n".join(out)[:-2] + "\n"


def fish(version, options):
    out = [f"# {NOTE}", "complete -c quilt -f"]
    takes = {"file": " -r -F", "volume": " -r -F", "folder": " -x -a '(__fish_complete_directories)'", "": ""}
    for option in told(options):
        effect = option.effect.replace("\\", "\\\\").replace("'", "\\'")
        name = option.name[1:]
        take = takes.get(option.argument, " -x")
        if option.name in known_values():
            take = f" -x -a '{known_values()[option.name][0]}'"
        out.append(f"complete -c quilt -o '{name}' -l '{name}'{take} -d '{effect}'")
    return "\n".join(out) + "\n"


def powershell(version, options):
    rows = "\n".join("        '{}' = '{}'".format(o.name, o.effect.replace("'", "''")) for o in told(options))
    return f"""# {NOTE}
# Put it into your $PROFILE: . quilt.ps1
Register-ArgumentCompleter -Native -CommandName quilt, quilt.exe -ScriptBlock {{
    param($word, $line, $position)
    $options = [ordered]@{{
{rows}
    }}
    $dash = if ($word.StartsWith('--')) {{ '-' }} else {{ '' }}
    $options.Keys | Where-Object {{ "$dash$_" -like "$word*" }} | ForEach-Object {{
        [System.Management.Automation.CompletionResult]::new("$dash$_", "$dash$_", 'ParameterName', $options[$_])
    }}
}}
"""


PAGES = {"docs/quilt.1": manual, "docs/options.md": page, "completions/quilt.bash": bash,
         "completions/_quilt": zsh, "completions/quilt.fish": fish, "completions/quilt.ps1": powershell}


def made(program):
    """The text of each page, by its path."""
    told_by = subprocess.run([program], check=True, capture_output=True, text=True).stdout
    return {path: make(*read_options(told_by)) for path, make in PAGES.items()}


if __name__ == "__main__":
    for where, text in made(sys.argv[1]).items():
        (ROOT / where).write_text(text, "utf-8")

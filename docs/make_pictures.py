#!/usr/bin/env python3
"""Makes the pictures of the README from real runs: docs/make_pictures.py build/release/quilt

docs/pictures/terminal.svg is what a terminal shows of a run, as text; docs/pictures/page.png the page of -html in
Chromium, where that is installed.
"""

import html
import os
import pty
import re
import shutil
import subprocess
import sys
import tempfile
import termios
from pathlib import Path

HERE = Path(__file__).resolve().parent
COLUMNS, MOST_ROWS = 96, 26
TERMINAL = ["-sdb", "examples/sample.sdb", "-explain", "-only", "high", "-no_header", "-quiet"]
PAGE = ["-sdb", "examples/sample.sdb", "-explain", "-html", "-quiet"]
WIDTH, HEIGHT, LEFT, TOP = 8.4, 18, 16, 44  # of a character, and of what stands around all
STYLES = {"1": "font-weight:bold;fill:#fff", "1;31": "font-weight:bold;fill:#ff7b72", "33": "fill:#e3b341"}


def shown_on_terminal(quilt, words):
    """The lines that a terminal shows of a run, with their colours."""
    screen, terminal = pty.openpty()
    termios.tcsetwinsize(terminal, (50, COLUMNS))
    environment = {name: value for name, value in os.environ.items() if name != "NO_COLOR"}
    process = subprocess.Popen([quilt, *words], stdin=subprocess.DEVNULL, stdout=terminal, stderr=terminal,
                               cwd=HERE.parent, env={**environment, "TERM": "xterm"})
    os.close(terminal)
    text = b""
    try:
        while block := os.read(screen, 4096):
            text += block
    except OSError:  # it has ended
        pass
    if process.wait() != 0:
        sys.exit("the run failed")
    return text.decode().replace("\r\n", "\n").rstrip("\n").split("\n")


def spans(line):
    """A line as parts of one style each."""
    style, parts = "", []
    for piece in re.split(r"(\x1b\[[\d;]*m)", line):
        if piece.startswith("\x1b["):
            style = STYLES.get(piece[2:-1], "")
        elif piece:
            parts.append(f'<tspan style="{style}">{html.escape(piece)}</tspan>' if style else html.escape(piece))
    return "".join(parts)


def terminal_picture(command, lines):
    rows = [f'<tspan style="fill:#7ee787">$</tspan> {html.escape(command)}', *map(spans, lines)]
    wide, high = int(COLUMNS * WIDTH + 2 * LEFT), TOP + len(rows) * HEIGHT + 12
    text = "\n".join(f'<text x="{LEFT}" y="{TOP + i * HEIGHT}" xml:space="preserve">{row}</text>'
                     for i, row in enumerate(rows))
    dots = "".join(f'<circle cx="{20 + i * 18}" cy="16" r="5.5" fill="{color}"/>'
                   for i, color in enumerate(("#ff5f56", "#ffbd2e", "#27c93f")))
    return (f'<svg xmlns="http://www.w3.org/2000/svg" width="{wide}" height="{high}" role="img" '
            f'font-family="ui-monospace,Menlo,Consolas,DejaVu Sans Mono,monospace" font-size="14" fill="#c9d1d9">\n'
            f'<title>{html.escape(command)}</title>\n<rect width="100%" height="100%" rx="8" fill="#0d1117"/>\n'
            f"{dots}\n{text}\n</svg>\n")


def page_picture(quilt, to):
    chromium = shutil.which("chromium") or shutil.which("google-chrome")
    if not chromium:
        return print("no chromium: the page keeps its picture")
    with tempfile.TemporaryDirectory() as place:
        with open(f"{place}/page.html", "wb") as page:
            subprocess.run(["quilt", *PAGE], executable=quilt, stdout=page, check=True, cwd=HERE.parent)
        subprocess.run([chromium, "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
                        f"--user-data-dir={place}/profile", "--window-size=1280,1400", f"--screenshot={to}",
                        f"file://{place}/page.html"], check=True, capture_output=True)


def main(quilt):
    quilt = os.path.abspath(quilt)
    folder = HERE / "pictures"
    folder.mkdir(exist_ok=True)
    lines = shown_on_terminal(quilt, TERMINAL)
    if len(lines) > MOST_ROWS:
        lines = [*lines[:MOST_ROWS], "..."]
    (folder / "terminal.svg").write_text(terminal_picture("quilt " + " ".join(TERMINAL), lines), "utf-8")
    page_picture(quilt, folder / "page.png")


if __name__ == "__main__":
    main(sys.argv[1])

"""Chromium without a window, driven by the WebDriver protocol."""

import base64
import json
import os
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import urllib.error
import urllib.request
from pathlib import Path

PICTURES = Path("build/logs")
SEARCH = """
    var done = arguments[arguments.length - 1], field = document.getElementById(arguments[0]);
    var begin = performance.now();
    field.value = arguments[1];
    field.dispatchEvent(new Event("input", {bubbles: true}));
    var shown = document.getElementById("shown"), before = shown.textContent;
    shown.textContent = "";
    new MutationObserver(function () {
        requestAnimationFrame(function () { setTimeout(function () {
            done([shown.textContent, performance.now() - begin]); }, 0); });
    }).observe(shown, {childList: true, characterData: true, subtree: true});
"""
PAINT = """
    var found = performance.getEntriesByName("first-paint")[0];
    return found ? found.startTime : null;
"""


class Browser:
    """Chromium, by the WebDriver protocol."""

    def __init__(self, **options):
        self.folder = tempfile.mkdtemp(prefix="browser-")
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            port = free.getsockname()[1]
        self.place = f"http://127.0.0.1:{port}"
        self.driver = subprocess.Popen(["chromedriver", f"--port={port}"], stdout=subprocess.DEVNULL,
                                       stderr=subprocess.DEVNULL, start_new_session=True)
        arguments = ["--headless=new", "--no-sandbox", "--disable-gpu", "--window-size=1300,900",
                     f"--user-data-dir={self.folder}", "--hide-scrollbars", *options.pop("arguments", ())]
        wanted = {"browserName": "chrome", "goog:loggingPrefs": {"browser": "ALL"},
                  "goog:chromeOptions": {"args": arguments, **options}}
        for _ in range(100):
            try:
                self.place += "/session/" + self.ask("/session", {"capabilities": {"alwaysMatch": wanted}})["sessionId"]
                return
            except (urllib.error.URLError, ConnectionError):
                time.sleep(0.1)
        self.close()
        raise OSError("chromedriver does not answer")

    def ask(self, path, body=None, method=None):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.place + path, data, {"Content-Type": "application/json"}, method=method)
        try:
            with urllib.request.urlopen(request, timeout=120) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            raise AssertionError(error.read().decode()[:500]) from error

    def open(self, path):
        self.ask("/url", {"url": Path(path).resolve().as_uri()})

    def do(self, script, *arguments):
        return self.ask("/execute/sync", {"script": script, "args": arguments})

    def search(self, field, words):
        """What the page tells of a search, and the milliseconds until that is painted."""
        return self.ask("/execute/async", {"script": SEARCH, "args": [field, words]})

    def keys(self, text):
        element = next(iter(self.ask("/element/active").values()))
        self.ask(f"/element/{element}/value", {"text": text})

    def picture(self, name):
        PICTURES.mkdir(parents=True, exist_ok=True)
        (PICTURES / f"page-{name}.png").write_bytes(base64.b64decode(self.ask("/screenshot")))

    def emulate(self, **features):
        self.ask("/goog/cdp/execute", {"cmd": "Emulation.setEmulatedMedia", "params": {
            "features": [{"name": name.replace("_", "-"), "value": value} for name, value in features.items()]}})

    def printed(self):
        paper = base64.b64decode(self.ask("/print", {"background": True}))
        return subprocess.run(["pdftotext", "-layout", "-", "-"], input=paper, check=True,
                              capture_output=True).stdout.decode()

    def log(self):
        return [line["message"] for line in self.ask("/se/log", {"type": "browser"})]

    def close(self):
        try:
            if "/session/" in self.place:
                self.ask("", method="DELETE")
        finally:
            os.killpg(self.driver.pid, signal.SIGTERM)
            self.driver.wait()
            shutil.rmtree(self.folder, ignore_errors=True)

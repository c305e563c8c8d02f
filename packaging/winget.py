#!/usr/bin/env python3
"""Writes the manifest of a package for winget, three files, beside it.

    packaging/winget.py quilt-0.45-windows-x86_64.zip https://example.org/releases
    winget validate --manifest <the folder that it names>

The second argument is where the package is handed out.
"""

import hashlib
import re
import sys
import zipfile
from pathlib import Path

SCHEMA = "1.6.0"
HEAD = """# yaml-language-server: $schema=https://aka.ms/winget-manifest.{kind}.{schema}.schema.json
PackageIdentifier: {name}
PackageVersion: "{version}"
"""
PARTS = {  # file ending: kind, text
    "": ("version", "DefaultLocale: en-US\n"),
    ".installer": ("installer", """Platform: [Windows.Desktop]
MinimumOSVersion: 10.0.0.0
InstallerType: zip
NestedInstallerType: portable
NestedInstallerFiles:
  - RelativeFilePath: {program}
    PortableCommandAlias: quilt
Installers:
  - Architecture: x64
    InstallerUrl: {place}/{package}
    InstallerSha256: {digest}
"""),
    ".locale.en-US": ("defaultLocale", """PackageLocale: en-US
Publisher: The quilt authors
PackageName: quilt
License: MIT
ShortDescription: Analyser of Windows application-compatibility shim databases
Moniker: quilt-sdb
Tags: [forensics, sdb, shim]
"""),
}
NAME = "QuiltAuthors.Quilt"


def write_manifest(package, place):
    package = Path(package)
    with zipfile.ZipFile(package) as archive:
        program = next(name for name in archive.namelist() if name.endswith("/quilt.exe"))
    facts = {"name": NAME, "schema": SCHEMA, "version": re.search(r"-([\d.]+)-", package.name)[1], "place": place.rstrip("/"),
             "package": package.name, "program": program.replace("/", "\\"),
             "digest": hashlib.sha256(package.read_bytes()).hexdigest().upper()}
    folder = package.with_suffix(".winget")
    folder.mkdir(exist_ok=True)
    for ending, (kind, text) in PARTS.items():
        whole = HEAD + text + "ManifestType: {kind}\nManifestVersion: {schema}\n"
        (folder / f"{NAME}{ending}.yaml").write_text(whole.format(kind=kind, **facts), "utf-8")
    return folder


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    print(write_manifest(*sys.argv[1:]))

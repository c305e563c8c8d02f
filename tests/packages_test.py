#!/usr/bin/env python3
"""Makes the packages of a build, twice, and installs, runs and removes what they hold.

    python3 tests/packages_test.py --quilt build/release/quilt [--windows "wine build/windows/quilt.exe"]

Run from the root of the repository, behind `cmake --build build/release --target quilt_static`. What needs a clean
root of Debian (the packages mmdebstrap and dpkg) or a chroot runs as root alone.
"""

import hashlib
import json
import os
import re
import shutil
import subprocess
import sys
import tarfile
import zipfile
from pathlib import Path

import yaml

from support.whole_runs import ARGUMENTS, SAMPLE, Runs, main, masked

ROOT = os.path.abspath("build/debian-root.tar")  # kept, as it takes a minute to make
# What winget asks of each of the three files of a manifest, as patterns.
WINGET = {"version": {"DefaultLocale": r"[a-z]{2}-[A-Z]{2}"},
          "installer": {"InstallerType": "zip", "NestedInstallerType": "portable"},
          "defaultLocale": {"PackageLocale": r"[a-z]{2}-[A-Z]{2}", "Publisher": ".{2,256}", "PackageName": ".{2,256}",
                            "License": ".{3,512}", "ShortDescription": ".{3,256}"}}
WINGET_ALL = {"PackageIdentifier": r"[^.\s\\/:*?\"<>|]{1,32}(\.[^.\s\\/:*?\"<>|]{1,32}){1,7}",
              "PackageVersion": r"\d[\d.]{0,127}", "ManifestVersion": r"1\.\d+\.\d+"}
SHARED = {"docs/options.md", "docs/schema/report-1.schema.json", "examples/sample.sdb", "knowledge/findings.tsv", "README.md", "SECURITY.md",
          "licenses/LICENSE", "licenses/zlib.txt", "licenses/GCC-runtime.txt", "quilt.spdx.json"}


def run(*words, **places):
    return subprocess.run(words, capture_output=True, check=True, **places)


class Packages(Runs):
    def made(self, program, generator):
        """The package of a build, made twice by different users of different clocks."""
        build = os.path.dirname(program.words[-1])
        found = []
        for number, mask in enumerate((0o022, 0o077)):
            place = Path(self.path(f"{generator}{number}"))
            place.mkdir()
            subprocess.run(["cpack", "-G", generator, "--config", f"{build}/CPackConfig.cmake"], cwd=place, check=True,
                           capture_output=True, umask=mask, env={**os.environ, "TZ": f"UTC{number * 7}"})
            found += [path for path in place.iterdir() if path.suffix in (".deb", ".gz", ".zip")]
            self.assertIn(hashlib.sha256(found[-1].read_bytes()).hexdigest(),
                          Path(f"{found[-1]}.sha256").read_text("utf-8"))
        self.assertEqual(*(hashlib.sha256(path.read_bytes()).hexdigest() for path in found))
        return str(found[0])

    def check_documents(self, folder, version):
        """What stands in the folder of documents, and that its list of parts is that of the program."""
        here = {str(path.relative_to(folder)) for path in Path(folder).rglob("*")}
        self.assertEqual(SHARED - here, set())
        document = json.loads(Path(folder, "quilt.spdx.json").read_text("utf-8"))
        self.assertEqual((document["spdxVersion"], document["SPDXID"]), ("SPDX-2.3", "SPDXRef-DOCUMENT"))
        parts = {part["name"]: part["versionInfo"] for part in document["packages"]}
        linked = {relation["relatedSpdxElement"] for relation in document["relationships"]}
        self.assertEqual({part["SPDXID"] for part in document["packages"]}, linked)
        for name, number in re.findall(r"(quilt ver:|zlib|OpenSSL|libewf|libstdc\+\+) ([\d.]+)", version):
            self.assertTrue(parts[name.replace(" ver:", "")].startswith(number), (name, number, parts))
        for name in {"zlib", "OpenSSL", "glibc", "libewf", "mingw-w64"} & set(parts):
            self.assertTrue(Path(folder, "licenses", f"{name}.txt").is_file(), name)

    def expected(self):
        return masked(self.printed("-sdb", SAMPLE, "-apps", "-quiet"))

    def as_root(self):
        if os.geteuid() != 0:
            self.skipTest("not root")

    def test_debian_package_is_installed_run_and_removed(self):
        self.as_root()
        package = self.made(ARGUMENTS.quilt, "DEB")
        if not os.path.exists(ROOT):
            run("mmdebstrap", "--variant=essential", "bookworm", ROOT)
        root = self.path("root")
        expected = self.expected()
        os.mkdir(root)
        run("tar", "-C", root, "--exclude=./dev/*", "-xf", ROOT)
        shutil.copy(package, f"{root}/quilt.deb")
        run("chroot", root, "dpkg", "-i", "/quilt.deb")
        files = [root + path for path in run("chroot", root, "dpkg", "-L", "quilt-sdb").stdout.decode().split()]
        self.assertIn(f"{root}/usr/share/man/man1/quilt.1", files)
        documents = "/usr/share/doc/quilt-sdb"
        self.check_documents(root + documents, run("chroot", root, "quilt", "--version").stdout.decode())
        shown = run("chroot", root, "quilt", "-sdb", f"{documents}/examples/sample.sdb", "-apps", "-quiet")
        self.assertEqual((masked(shown.stdout), shown.stderr), (expected, b""))
        run("chroot", root, "dpkg", "-r", "quilt-sdb")
        self.assertEqual([path for path in files if os.path.isfile(path)], [])

    def test_static_program_runs_where_there_is_nothing_else(self):
        self.as_root()
        root = Path(self.path("root"))
        with tarfile.open(self.made(ARGUMENTS.quilt, "TGZ")) as archive:
            archive.extractall(root)
        top = next(root.iterdir())
        self.assertFalse(os.getcwd().encode() in (top / "bin/quilt").read_bytes())  # where it was built
        self.check_documents(top / "share/doc/quilt-sdb", run(top / "bin/quilt", "--version").stdout.decode())
        shown = run("chroot", top, "/bin/quilt", "-sdb", "/share/doc/quilt-sdb/examples/sample.sdb", "-apps", "-quiet")
        self.assertEqual((masked(shown.stdout), shown.stderr), (self.expected(), b""))

    def test_windows_archive_is_unpacked_and_run(self):
        program = self.windows()
        package = self.made(program, "ZIP")
        with zipfile.ZipFile(package) as archive:
            archive.extractall(self.path("unpacked"))
        top = next(Path(self.path("unpacked")).iterdir())
        words = [*program.words[:-1], str(top / "quilt.exe")]
        self.check_documents(top / "doc", run(*words, "--version").stdout.decode())
        self.assertTrue((top / "doc/quilt.1").is_file())
        shown = run(*words, "-sdb", str(top / "doc/examples/sample.sdb"), "-apps", "-quiet")
        self.assertEqual(masked(shown.stdout), self.expected())
        self.check_winget_manifest(package)

    def check_winget_manifest(self, package):
        folder = run("packaging/winget.py", package, "https://example.org/releases/").stdout.decode().strip()
        parts = {part["ManifestType"]: part for part in (yaml.safe_load(path.read_text("utf-8"))
                                                         for path in Path(folder).iterdir())}
        self.assertEqual(parts.keys(), WINGET.keys())
        for kind, fields in WINGET.items():
            for name, pattern in {**WINGET_ALL, **fields}.items():
                self.assertRegex(parts[kind][name], f"^{pattern}$", (kind, name))
        nested, = parts["installer"]["NestedInstallerFiles"]
        self.assertTrue(Path(self.path("unpacked"), nested["RelativeFilePath"].replace("\\", "/")).is_file())
        self.assertEqual(parts["installer"]["Installers"], [{
            "Architecture": "x64", "InstallerUrl": f"https://example.org/releases/{os.path.basename(package)}",
            "InstallerSha256": hashlib.sha256(Path(package).read_bytes()).hexdigest().upper()}])

    def test_what_is_installed_can_be_run_from_there(self):
        build = os.path.dirname(ARGUMENTS.quilt.words[-1])
        run("cmake", "--install", build, "--prefix", self.path("prefix"))
        self.assertEqual({name.name for name in Path(self.path("prefix/bin")).iterdir()}, {"quilt", "quilt_fleet"})
        self.assertIn(b"quilt ver", run(self.path("prefix/bin/quilt"), "--version").stdout)
        shown = run("man", "-M", self.path("prefix/share/man"), "quilt") if shutil.which("man") else None
        self.assertTrue(shown is None or b"-dateformat" in shown.stdout)

    def test_the_file_for_nix_has_its_form(self):
        if not shutil.which("nix-instantiate"):
            self.skipTest("no nix-instantiate")
        self.assertIn(b"mkDerivation", run("nix-instantiate", "--parse", "packaging/quilt.nix").stdout)


if __name__ == "__main__":
    sys.exit(main())

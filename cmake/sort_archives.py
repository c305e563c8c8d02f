#!/usr/bin/env python3
"""Takes out of archives what differs from one builder to another: the order of their members, which CPack takes
as the file system gives them, owners and modes. sort_archives.py <seconds since 1970> <archive>..."""

import gzip
import io
import os
import sys
import tarfile
import time
import zipfile


def sort_tar(path, moment):
    with tarfile.open(path) as old:
        members = [(member, old.extractfile(member).read() if member.isfile() else None)
                   for member in sorted(old.getmembers(), key=lambda member: member.name)]
    with open(path, "wb") as file, gzip.GzipFile("", "wb", 9, file, moment) as packed, \
            tarfile.open(fileobj=packed, mode="w", format=tarfile.GNU_FORMAT) as new:
        for member, contents in members:
            member.mtime, member.uid, member.gid, member.uname, member.gname = moment, 0, 0, "root", "root"
            member.mode = 0o755 if member.isdir() or member.mode & 0o100 else 0o644
            new.addfile(member, io.BytesIO(contents) if contents is not None else None)


def sort_zip(path, moment):
    with zipfile.ZipFile(path) as old:
        members = [(name, old.read(name)) for name in sorted(old.namelist()) if not name.endswith("/")]
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as new:
        for name, contents in members:
            member = zipfile.ZipInfo(name, time.gmtime(moment)[:6])
            member.compress_type = zipfile.ZIP_DEFLATED
            new.writestr(member, contents)


def level_deb(path, moment):
    """The three members of a Debian package stand in an order of their own, behind heads of 60 bytes."""
    package = bytearray(open(path, "rb").read())
    at = 8
    while at < len(package):
        package[at + 16:at + 48] = b"%-12d%-6d%-6d%-8o" % (moment, 0, 0, 0o100644)
        size = int(package[at + 48:at + 58])
        at += 60 + size + size % 2
    with open(path, "wb") as file:
        file.write(package)


for archive in sys.argv[2:]:
    if os.path.splitext(archive)[1] == ".zip":
        sort_zip(archive, int(sys.argv[1]))
    elif archive.endswith(".tar.gz"):
        sort_tar(archive, int(sys.argv[1]))
    elif archive.endswith(".deb"):
        level_deb(archive, int(sys.argv[1]))

"""Copies a .deb's data.tar.gz without the named directory entries; every
other member keeps its header and contents. Used by deb-own-dirs.cmake
(GNU tar's --delete garbles the archives CPack writes).
usage: deb-drop-dirs.py IN.tar.gz OUT.tar.gz DIR..."""
import gzip
import sys
import tarfile

src, dst, *names = sys.argv[1:]
drop = {name.rstrip("/") for name in names}
with tarfile.open(src, "r:gz") as tin, \
        gzip.GzipFile(dst, "wb", compresslevel=9, mtime=0) as gz, \
        tarfile.open(fileobj=gz, mode="w", format=tarfile.GNU_FORMAT) as tout:
    for member in tin:
        if member.isdir() and member.name.rstrip("/") in drop:
            continue
        tout.addfile(member, tin.extractfile(member) if member.isfile() else None)

#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Makes the systems that the service tests boot: a bare Debian 12, and the same with this project's package. Needs root.

    image.py DIRECTORY

- DIRECTORY/base: debootstrap's smallest variant with systemd. It is made once.
- DIRECTORY/installed: files that the installation of the package with apt has added to it, for an overlay. It is made again for each
  new package.
- DIRECTORY/package.deb, and DIRECTORY/newer.deb, the same package with a higher version.

Packages come from the sources that apt on this machine uses. CPACK and CPACK_CONFIG are in the environment.
"""

import hashlib
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

SUITE = "bookworm"
MACHINE_PACKAGES = "systemd-sysv,dbus"


def run(*command, **options):
    done = subprocess.run(list(map(str, command)), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, errors="replace", **options)
    if done.returncode != 0:
        raise SystemExit(f"image.py: {' '.join(map(str, command))} ended with {done.returncode}:\n{done.stdout[-4000:]}")
    return done.stdout


def sources():
    """\\return apt's sources of Debian 12, one line of sources.list each"""
    fields = run("apt-get", "indextargets", "--format", "$(REPO_URI) $(RELEASE) $(COMPONENT) $(ORIGIN)", "Created-By: Packages")
    rows = [row.split() for row in fields.splitlines()]
    found = [f"deb {row[0]} {row[1]} {row[2]}" for row in rows
             if len(row) == 4 and row[3] == "Debian" and row[1].startswith(SUITE) and row[2] == "main"]
    if not found:
        raise SystemExit(f"image.py: apt on this machine has no source of Debian {SUITE}, or no index of it: run apt-get update")
    return sorted(found, key=lambda line: line.split()[2] != SUITE)


def make_base(base):
    """Makes the bare system, unless it is there. It has its name only when it is complete."""
    if base.is_dir():
        return
    partial = base.with_suffix(".partial")
    if partial.is_dir():
        shutil.rmtree(partial)
    lines = sources()
    run("debootstrap", "--variant=minbase", f"--include={MACHINE_PACKAGES}", SUITE, partial, lines[0].split()[1])
    (partial / "etc/apt/sources.list").write_text("\n".join(lines) + "\n")
    partial.rename(base)


def make_package(path):
    """Builds the Debian package of this build."""
    with tempfile.TemporaryDirectory() as directory:
        run(os.environ["CPACK"], "--config", os.environ["CPACK_CONFIG"], "-G", "DEB", "-B", directory)
        found, = pathlib.Path(directory).glob("mediagrabber-jai_*.deb")
        shutil.move(found, path)


def make_newer(package, path):
    """Packs the files of a package again, with a higher version."""
    with tempfile.TemporaryDirectory() as directory:
        run("dpkg-deb", "--raw-extract", package, directory)
        control = pathlib.Path(directory) / "DEBIAN/control"
        lines = [f"{line}+newer" if line.startswith("Version:") else line for line in control.read_text().splitlines()]
        control.write_text("\n".join(lines) + "\n")
        run("dpkg-deb", "--root-owner-group", "--build", directory, path)


def install(base, layer, package):
    """Installs the package with apt in the bare system, with this machine's network. The additional files go to `layer`."""
    digest = hashlib.sha256(package.read_bytes()).hexdigest()
    stamp = layer.with_suffix(".digest")
    if layer.is_dir() and stamp.exists() and stamp.read_text() == digest:
        return
    stamp.unlink(missing_ok=True)
    archives = layer.parent / "archives"  # downloads are kept for the next package
    root, work = layer.parent / "root", layer.parent / "work"
    for directory in (layer, work, root):
        if directory.is_dir():
            shutil.rmtree(directory)
    for directory in (layer, work, root, archives / "partial"):
        directory.mkdir(parents=True, exist_ok=True)
    run("mount", "-t", "overlay", "overlay", "-o", f"lowerdir={base},upperdir={layer},workdir={work}", root)
    try:
        shutil.copy(package, root / "root/package.deb")
        run("systemd-nspawn", "--quiet", "--register=no", "--keep-unit", "--console=pipe", f"--directory={root}",
            f"--bind={archives}:/var/cache/apt/archives", "--resolv-conf=copy-host", "--setenv=DEBIAN_FRONTEND=noninteractive",
            "sh", "-ec", "apt-get update -qq; apt-get install -y -qq --no-install-recommends /root/package.deb; rm /root/package.deb")
    finally:
        run("umount", root)
    stamp.write_text(digest)


def main(directory):
    directory = pathlib.Path(directory).resolve()
    directory.mkdir(parents=True, exist_ok=True)
    make_base(directory / "base")
    make_package(directory / "package.deb")
    install(directory / "base", directory / "installed", directory / "package.deb")
    make_newer(directory / "package.deb", directory / "newer.deb")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    main(sys.argv[1])

# SPDX-License-Identifier: MIT
"""A machine with the package, booted with systemd in a container of its own, and a bridge to its camera.

Needs root, and network and mount namespaces of this process. SERVICE_IMAGES is the directory that image.py has filled.
"""

import contextlib
import os
import pathlib
import shutil
import subprocess

from waiting import wait_for

IMAGES = pathlib.Path(os.environ["SERVICE_IMAGES"])
BRIDGE = "lan0"
CAMERA_ADDRESS = "192.168.77.1"
ADDRESS = "192.168.77.2"
PATH = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
# systemd-networkd gives the interface its address as soon as it appears.
NETWORK = f"[Match]\nName=host0\n[Network]\nAddress={ADDRESS}/24\nLinkLocalAddressing=no\nIPv6AcceptRA=no\n"
BOOT_SECONDS = 60
CGROUPS = pathlib.Path("/sys/fs/cgroup")


def command(*words, **options):
    """Runs a command on this machine. \\return its standard output"""
    done = subprocess.run(list(map(str, words)), capture_output=True, text=True, **options)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, words))} ended with {done.returncode}: {done.stdout}{done.stderr}")
    return done.stdout


def make_network():
    """A bridge with the camera's address, which stays when the machine on it loses its power. Only for this process."""
    command("ip", "link", "add", BRIDGE, "type", "bridge")
    command("ip", "address", "add", f"{CAMERA_ADDRESS}/24", "brd", "+", "dev", BRIDGE)
    command("ip", "link", "set", BRIDGE, "up")
    # Otherwise systemd-nspawn leaves directories on the disk: /run need not be a file system in memory here.
    pathlib.Path("/run/systemd/nspawn").mkdir(parents=True, exist_ok=True)
    command("mount", "-t", "tmpfs", "tmpfs", "/run/systemd/nspawn")
    # The hierarchy of Debian 12, also if this machine still has those of version 1. systemd filters addresses only there.
    command("mount", "-t", "cgroup2", "cgroup2", CGROUPS)


class Machine:
    """A machine whose disk starts as the installed image and keeps its files until the context is left.

    `root` is its file system, seen from here, whether it runs or not.
    """

    def __init__(self):
        self.name = f"recorder-{os.urandom(4).hex()}"  # a name that systemd accepts
        self.directory = IMAGES / "machines" / self.name
        self.root = self.directory / "root"
        self.cgroup = CGROUPS / self.name
        self.process = None
        self.leader = None

    def __enter__(self):
        for name in ("upper", "work", "root"):
            (self.directory / name).mkdir(parents=True)
        command("mount", "-t", "overlay", "overlay", "-o", f"lowerdir={IMAGES / 'installed'}:{IMAGES / 'base'},"
                f"upperdir={self.directory / 'upper'},workdir={self.directory / 'work'}", self.root)
        self.write("etc/systemd/network/10-camera.network", NETWORK)
        (self.root / "var/log/journal").mkdir(exist_ok=True)  # keeps the journal over a power failure
        command("systemctl", f"--root={self.root}", "enable", "systemd-networkd.service")
        return self

    def __exit__(self, *_):
        self.power_off()
        command("umount", "--lazy", self.root)
        shutil.rmtree(self.directory)

    def write(self, path, text, mode=0o644):
        file = self.root / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)
        file.chmod(mode)

    def boot(self, network=True):
        """Boots, and returns as soon as the system manager can be asked."""
        console = open(self.directory / "console", "a")
        bridge = [f"--network-bridge={BRIDGE}"] if network else []
        # A control group of its own for each boot, so that none finds what an earlier one has left, for example filters of
        # addresses. The container ends with this process, also if that is killed. The capabilities are those of such a filter.
        self.cgroup.mkdir()
        self.process = subprocess.Popen(
            ["sh", "-c", "echo $$ >\"$0/cgroup.procs\" && exec \"$@\"", self.cgroup,
             "setpriv", "--pdeathsig", "KILL", "systemd-nspawn", "--quiet", "--boot", "--register=no", "--keep-unit", "--private-network",
             *bridge, f"--machine={self.name}", f"--directory={self.root}", "--console=pipe", "--link-journal=no",
             "--capability=CAP_BPF,CAP_PERFMON", "--system-call-filter=bpf"],
            stdin=subprocess.DEVNULL, stdout=console, stderr=console)
        console.close()
        self.leader = None
        wait_for(self._answers, "the system manager; " + str(self.directory / "console"), BOOT_SECONDS)

    def _answers(self):
        if self.process.poll() is not None:
            raise AssertionError(f"systemd-nspawn ended: {(self.directory / 'console').read_text()}")
        children = pathlib.Path(f"/proc/{self.process.pid}/task/{self.process.pid}/children").read_text().split()
        self.leader = children[0] if children else None
        return self.leader and self.run("systemctl", "is-system-running", check=False).stdout.strip() in (
            "starting", "running", "degraded")

    def run(self, *words, check=True, seconds=60):
        """Runs a command in the machine."""
        done = subprocess.run(["nsenter", "--target", self.leader, "--all", "env", "-i", PATH, *map(str, words)],
                              capture_output=True, text=True, timeout=seconds)
        if check and done.returncode != 0:
            raise AssertionError(f"{' '.join(map(str, words))} ended with {done.returncode}: {done.stdout}{done.stderr}")
        return done

    def systemctl(self, *words):
        return self.run("systemctl", *words).stdout

    def show(self, unit, name):
        """\\return a property of a unit"""
        return self.systemctl("show", "--property", name, "--value", unit).strip()

    def journal(self, unit):
        return self.run("journalctl", "--no-pager", "--output=cat", "--unit", unit, check=False).stdout

    def connect(self):
        """Plugs in the network cable of a machine that was booted without."""
        command("ip", "link", "add", "vb-late", "type", "veth", "peer", "name", "host0", "netns", self.leader)
        command("ip", "link", "set", "vb-late", "master", BRIDGE, "up")

    def power_off(self):
        """Takes the power away: every process ends at once. The disk is as the last system call has left it."""
        if self.process is None:
            return
        (self.cgroup / "cgroup.kill").write_text("1")
        self.process.wait()
        self.process = None
        wait_for(self._remove_cgroup, "the end of all processes")

    def _remove_cgroup(self):
        for path, _, _ in os.walk(self.cgroup, topdown=False):
            with contextlib.suppress(OSError):  # a process is still ending
                os.rmdir(path)
        return not self.cgroup.exists()

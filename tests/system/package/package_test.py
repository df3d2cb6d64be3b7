# SPDX-License-Identifier: MIT
"""The Debian packages: their content, and their programs when run from an extracted copy.

Paths are in the environment variables CPACK and CPACK_CONFIG.
"""

import functools
import gzip
import os
import pathlib
import pty
import re
import select
import shutil
import subprocess
import sys
import tempfile
import time
import unittest
from unittest import mock

TEMPORARY = tempfile.TemporaryDirectory()


def run(*command, **options):
    return subprocess.run(list(map(str, command)), capture_output=True, text=True, timeout=240, **options)


@functools.cache
def packages():
    """The directory with the packages, which are built on the first call."""
    made = run(os.environ["CPACK"], "--config", os.environ["CPACK_CONFIG"], "-G", "DEB", "-B", pathlib.Path(TEMPORARY.name) / "made")
    if made.returncode != 0:
        raise AssertionError(made.stdout + made.stderr)
    return pathlib.Path(TEMPORARY.name) / "made"


def package(name="mediagrabber-jai"):
    """The path of a package."""
    found, = packages().glob(f"{name}_*.deb")
    return found


@functools.cache
def root(name="mediagrabber-jai"):
    """The path of a directory with the extracted package."""
    directory = pathlib.Path(TEMPORARY.name) / f"root-{name}"
    subprocess.run(["dpkg-deb", "--extract", package(name), directory], check=True)
    return directory


class Package(unittest.TestCase):
    FILES = ("usr/bin/mediagrabber", "usr/bin/camsim", "usr/bin/gevctl", "usr/lib/mediagrabber/libmgjai.so",
            "usr/include/mediagrabber/mg_host_api.hpp",
            "usr/lib/systemd/system/mediagrabber@.service", "usr/lib/systemd/system/mediagrabber-user@.service",
            "usr/share/bash-completion/completions/mediagrabber",
            "usr/share/zsh/vendor-completions/_mediagrabber", "usr/share/fish/vendor_completions.d/mediagrabber.fish",
            "usr/share/fish/vendor_completions.d/gevctl.fish", "usr/lib/mediagrabber/complete",
            "usr/share/man/man1/mediagrabber.1.gz", "usr/share/man/man1/camsim.1.gz", "usr/share/man/man1/gevctl.1.gz",
            "usr/share/man/man8/mediagrabber@.service.8", "usr/share/bash-completion/completions/gevctl",
            "usr/share/doc/mediagrabber-jai/copyright", "usr/share/doc/mediagrabber-jai/docs/guide/recordings.ipynb",
            "usr/share/doc/mediagrabber-jai/docs/guide/README.md",
            "usr/lib/sysctl.d/60-mediagrabber.conf")

    def test_has_all_files(self):
        for path in self.FILES:
            self.assertTrue((root() / path).is_file(), path)

    def test_manual_page_of_the_configuration_has_all_keys(self):
        shown = run("man", "--warnings", "--local-file", root() / "usr/share/man/man5/mediagrabber.toml.5",
                    env={**os.environ, "MANWIDTH": "500"})
        self.assertEqual((shown.returncode, shown.stderr), (0, ""))
        keys = re.findall(r"^\| `(\S+)` \|", run(root() / "usr/bin/mediagrabber", "keys").stdout, re.MULTILINE)
        self.assertGreater(len(keys), 50)
        for key in keys:
            self.assertRegex(shown.stdout, rf"(?m)^ +{re.escape(key)}$")

    def test_depends_on_its_libraries(self):
        depends = run("dpkg-deb", "--field", package(), "Depends").stdout
        for library in ("libpugixml1v5", "libzip", "libtiff6", "libhdf5-", "libpng16-16", "libsystemd0", "libc6", "libstdc++6"):
            self.assertIn(library, depends)
        self.assertEqual(run("dpkg-deb", "--field", package(), "Package", "Architecture").stdout.split(),
                         ["Package:", "mediagrabber-jai", "Architecture:", "amd64"])
        self.assertEqual(run("dpkg-deb", "--field", package(), "Recommends").stdout, "chrony, ethtool\n")

    def test_have_their_descriptions(self):
        shown = run("dpkg-deb", "--field", package(), "Description").stdout
        self.assertRegex(shown, r"\ACamera grabber for machine vision, JAI GigE Vision\n A plug-in for JAI GigE Vision cameras, a host")

    def test_programs_work_in_another_root_directory(self):
        programs = root() / "usr/bin"
        versions = run(programs / "mediagrabber", "--version")
        self.assertIn(f"({root()}/usr/lib/mediagrabber/libmgjai.so)", versions.stdout, versions.stderr)
        with tempfile.TemporaryDirectory() as temporary:
            configuration = pathlib.Path(temporary) / "run.toml"
            configuration.write_text("[image]\nwidth = 640\nheight = 480\n")
            camera = subprocess.Popen([programs / "camsim"], stdout=subprocess.PIPE, text=True)
            try:
                self.assertIn("ready", camera.stdout.readline())
                recorded = run(programs / "mediagrabber", "run", "--config", configuration, "--frames", 5, "--output",
                               f"{temporary}/{{time}}")
            finally:
                camera.terminate()
                camera.communicate()
            self.assertEqual(recorded.returncode, 0, recorded.stdout + recorded.stderr)
            directory, = (path for path in pathlib.Path(temporary).iterdir() if path.is_dir())
            self.assertRegex(directory.name, r"^\d{8}T\d{6}Z$")
            self.assertEqual(len(list(directory.glob("*.tif"))), 5)


class Documents(unittest.TestCase):
    """Every reference of the installed documents leads somewhere, as a reader would follow it."""

    DOCUMENTS = "usr/share/doc/mediagrabber-jai"
    # Pages of other packages that the manual pages name.
    OTHER_PAGES = {"systemctl(1)"}

    def pages(self):
        pages = list((root() / self.DOCUMENTS).rglob("*.md"))
        self.assertGreater(len(pages), 20)
        return pages

    def anchors(self, page):
        """The anchors of the headings of a page, as Markdown viewers make them, and those set by hand."""
        text = re.sub(r"(?ms)^```.*?^```", "", page.read_text())
        found = set(re.findall(r'(?:id|name)="([^"]+)"', text))
        for heading in re.findall(r"(?m)^#+ +(.*?) *$", text):
            heading = re.sub(r"\[([^]]*)\]\([^)]*\)", r"\1", heading)
            anchor = re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")
            while anchor in found:
                anchor += "-1"
            found.add(anchor)
        return found

    def test_links_between_pages_and_to_files(self):
        dead, followed = [], 0
        for page in self.pages():
            text = page.read_text()
            links = re.findall(r"\]\(([^)\s]+)", text) + re.findall(r'(?:src|href)="([^"]+)"', text)
            for link in links:
                if re.match(r"[a-z]+:", link):
                    continue
                followed += 1
                path, _, anchor = link.partition("#")
                target = (page.parent / path).resolve() if path else page
                if not target.exists():
                    dead.append(f"{page.relative_to(root())}: {link}")
                elif anchor and target.suffix == ".md" and anchor not in self.anchors(target):
                    dead.append(f"{page.relative_to(root())}: {link}: no such heading")
        self.assertEqual(dead, [])
        self.assertGreater(followed, 100)

    def test_references_of_manual_pages(self):
        installed = set()
        dead, followed = [], 0
        files = [path for path in (root() / "usr/share/man").rglob("*") if path.is_file()]
        for file in files:
            name, _, section = file.name.removesuffix(".gz").rpartition(".")
            installed.add(f"{name}({section})")
        for file in files:
            text = gzip.decompress(file.read_bytes()).decode() if file.suffix == ".gz" else file.read_text()
            text = text.replace("\\-", "-")
            for page in re.findall(r"(?m)^\.BR ([\w@.-]+) \((\d)\)", text):
                followed += 1
                if f"{page[0]}({page[1]})" not in installed | self.OTHER_PAGES:
                    dead.append(f"{file.name}: {page[0]}({page[1]})")
            for path in re.findall(r"/(usr/(?:share|lib)/[\w/.@-]+)", text):
                followed += 1
                if not (root() / path.rstrip(".")).exists():
                    dead.append(f"{file.name}: /{path}")
        self.assertEqual(dead, [])
        self.assertGreater(followed, 8)

    def test_units_and_examples_name_pages_that_exist(self):
        for unit in (root() / "usr/lib/systemd/system").iterdir():
            for page, section in re.findall(r"man:([\w@.-]+)\((\d)\)", unit.read_text()):
                self.assertEqual(len(list((root() / f"usr/share/man/man{section}").glob(f"{page}.{section}*"))), 1, unit.name)


class Python(unittest.TestCase):
    """The package python3-mediagrabber."""

    NAME = "python3-mediagrabber"
    SOURCE = pathlib.Path(__file__).parents[3] / "python"

    def field(self, name):
        return run("dpkg-deb", "--field", package(self.NAME), name).stdout.strip()

    def import_in_clean_environment(self, code, *options):
        """Runs code with the package beside those of the distribution, and nothing else: neither the source nor variables."""
        place = root(self.NAME) / "usr/lib/python3/dist-packages"
        return run("/usr/bin/python3", "-I", "-B", *options, "-c", f"import sys; sys.path.insert(0, {str(place)!r}); {code}", env={},
                   cwd="/")

    def test_has_the_files_of_the_source_and_nothing_else(self):
        made = {str(path.relative_to(root(self.NAME))) for path in root(self.NAME).rglob("*") if path.is_file()}
        sources = {f"usr/lib/python3/dist-packages/mediagrabber/{path.name}" for path in (self.SOURCE / "mediagrabber").iterdir()
                   if path.suffix == ".py" or path.name == "py.typed"}
        self.assertEqual(made, sources | {"usr/share/doc/python3-mediagrabber/copyright"})

    def test_is_for_all_architectures_and_needs_numpy_only(self):
        self.assertEqual((self.field("Architecture"), self.field("Section")), ("all", "python"))
        self.assertEqual(self.field("Depends"), "python3 (>= 3.11), python3-numpy")
        self.assertEqual((self.field("Recommends"), self.field("Suggests")), ("", "mediagrabber-jai, python3-pytest"))
        self.assertNotIn("postinst", run("dpkg-deb", "--info", package(self.NAME)).stdout)  # of the service
        self.assertRegex(self.field("Description"), r"\ARecordings of mediagrabber as NumPy arrays\n A Python package")

    def test_is_imported_in_a_clean_environment(self):
        shown = self.import_in_clean_environment("import mediagrabber; print(mediagrabber.__file__, mediagrabber.__version__)", "-W", "error")
        version = run(root() / "usr/bin/mediagrabber", "--version").stdout.split()[1]
        self.assertEqual(shown.stdout, f"{root(self.NAME)}/usr/lib/python3/dist-packages/mediagrabber/__init__.py {version}\n", shown.stderr)
        self.assertEqual(self.field("Version"), version)

    def test_imports_nothing_but_numpy_and_the_standard_library(self):
        shown = self.import_in_clean_environment(
            "import numpy; before = set(sys.modules); import mediagrabber;"
            "print(*{name.split('.')[0] for name in set(sys.modules) - before} - {*sys.stdlib_module_names, 'numpy'})")
        self.assertEqual(shown.stdout, "mediagrabber\n", shown.stderr)

    def test_reads_a_recording_and_starts_the_installed_programs(self):
        with tempfile.TemporaryDirectory() as temporary:
            done = self.import_in_clean_environment(f"""
import os
os.environ["PATH"] = "{root()}/usr/bin:/usr/sbin:/usr/bin:/sbin:/bin"
from mediagrabber import Camsim, open_recording
with Camsim() as camera:
    with camera.recorder({{"image.width": 320}}, output="{temporary}/frames", frames=3) as recorder:
        recorder.wait(60)
print([image.shape[1] for image in open_recording("{temporary}/frames")])
""")
        self.assertEqual(done.stdout, "[320, 320, 320]\n", done.stderr)


class Install(unittest.TestCase):
    def test_has_the_files_of_the_package(self):
        def files(prefix):
            return {path.relative_to(prefix) for path in prefix.rglob("*") if not path.is_dir()}

        build = pathlib.Path(os.environ["CPACK_CONFIG"]).parent
        prefix = pathlib.Path(tempfile.mkdtemp(dir=TEMPORARY.name))
        installed = run("cmake", "--install", build, "--prefix", prefix)
        self.assertEqual(installed.returncode, 0, installed.stderr)
        self.assertEqual(files(prefix), files(root() / "usr"))
        self.assertIn(f"({prefix}/lib/mediagrabber/libmgjai.so)", run(prefix / "bin/mediagrabber", "--version").stdout)


class MaintainerScripts(unittest.TestCase):
    """The scripts in a root directory with this system's programs, where /proc, /sys and /run are empty."""

    def setUp(self):
        self.control = pathlib.Path(TEMPORARY.name) / "control"
        if not self.control.exists():
            subprocess.run(["dpkg-deb", "--control", package(), self.control], check=True)
        self.root = pathlib.Path(tempfile.mkdtemp(dir=TEMPORARY.name))
        for directory in ("etc", "usr", "proc", "sys", "run", "var/lib", "dev", "control"):
            (self.root / directory).mkdir(parents=True)
        for link in ("bin", "sbin", "lib", "lib64"):
            (self.root / link).symlink_to(f"usr/{link}")
        for database in ("passwd", "group", "shadow", "gshadow"):
            (self.root / "etc" / database).write_text("")
        (self.root / "etc/nsswitch.conf").write_text("passwd: files\ngroup: files\n")
        (self.root / "dev/null").touch()
        for script in ("postinst", "prerm", "postrm"):
            shutil.copy(self.control / script, self.root / "control" / script)

    def call(self, script, *arguments):
        """Runs a script as dpkg does."""
        mounts = "mount --bind /usr $0/usr && mount --bind /dev/null $0/dev/null"
        done = run("unshare", "--mount", "sh", "-ec", f"{mounts} && root=$0 && shift 0 && exec chroot $root \"$@\"", self.root,
                   f"/control/{script}", *arguments)
        self.assertEqual((done.returncode, done.stdout + done.stderr), (0, ""))

    def test_work_without_proc_and_systemd(self):
        self.call("postinst", "configure")
        self.assertEqual((self.root / "etc/mediagrabber").stat().st_mode & 0o777, 0o755)
        self.call("prerm", "upgrade", "1")
        self.call("prerm", "remove")
        self.call("postrm", "purge")

    def test_keep_what_an_earlier_installation_has_created(self):
        self.call("postinst", "configure")
        (self.root / "etc/mediagrabber").chmod(0o700)
        self.call("postinst", "configure", "1")
        self.assertEqual((self.root / "etc/mediagrabber").stat().st_mode & 0o777, 0o700)


class Headers(unittest.TestCase):
    """Programs that others build with the installed headers: a host, and a reader of the frame ring."""

    EXAMPLES = pathlib.Path(__file__).parents[3] / "examples"
    PROJECT = """
cmake_minimum_required(VERSION 3.25)
project(user LANGUAGES C CXX)
find_package(mediagrabber {version} REQUIRED)
add_executable(example_host {examples}/host/example_host.cpp)
target_link_libraries(example_host PRIVATE mediagrabber::host)
add_executable(frame_brightness {examples}/frame_ring/frame_brightness.c)
target_link_libraries(frame_brightness PRIVATE mediagrabber::frame_ring)
file(WRITE ${{CMAKE_BINARY_DIR}}/plugin "${{mediagrabber_PLUGIN}}")
"""

    def setUp(self):
        self.directory = pathlib.Path(tempfile.mkdtemp(dir=TEMPORARY.name))

    def check_host(self, program, plugin):
        """The host exports what the plug-in resolves: without a camera, the plug-in reports an error of its own."""
        done = run(program, plugin, 1, self.directory)
        self.assertEqual(done.returncode, 1, done.stdout + done.stderr)
        self.assertNotIn("undefined symbol", done.stdout + done.stderr)

    def configure(self, version):
        source = self.directory / "source"
        source.mkdir(exist_ok=True)
        (source / "CMakeLists.txt").write_text(self.PROJECT.format(examples=self.EXAMPLES, version=version))
        return run("cmake", "-S", source, "-B", self.directory / "build", f"-DCMAKE_PREFIX_PATH={root()}/usr")

    def test_are_found_by_cmake(self):
        configured = self.configure("0.37")
        self.assertEqual(configured.returncode, 0, configured.stdout + configured.stderr)
        built = run("cmake", "--build", self.directory / "build")
        self.assertEqual(built.returncode, 0, built.stdout + built.stderr)
        plugin = (self.directory / "build/plugin").read_text()
        self.assertEqual(plugin, f"{root()}/usr/lib/mediagrabber/libmgjai.so")
        self.check_host(self.directory / "build/example_host", plugin)
        self.assertEqual(run(self.directory / "build/frame_brightness").returncode, 2)  # wrong usage

    def test_of_another_release_are_refused_by_cmake(self):
        configured = self.configure("0.99")
        self.assertNotEqual(configured.returncode, 0)
        self.assertIn("mediagrabber", configured.stderr)

    def test_are_found_by_pkg_config(self):
        environment = os.environ | {"PKG_CONFIG_PATH": f"{root()}/usr/share/pkgconfig"}
        plugin = run("pkg-config", "--variable=plugin", "mediagrabber-host", env=environment).stdout.strip()
        flags = {}
        for name in ("mediagrabber-host", "mediagrabber-frame-ring"):
            found = run("pkg-config", "--cflags", "--libs", name, env=environment)
            self.assertEqual(found.returncode, 0, found.stderr)
            flags[name] = found.stdout.split()
        host, reader = self.directory / "host", self.directory / "reader"
        for command in (["g++", "-std=c++20", self.EXAMPLES / "host/example_host.cpp", "-o", host, *flags["mediagrabber-host"]],
                        ["gcc", "-std=c11", self.EXAMPLES / "frame_ring/frame_brightness.c", "-o", reader,
                         *flags["mediagrabber-frame-ring"]]):
            built = run(*command)
            self.assertEqual(built.returncode, 0, built.stderr)
        self.check_host(host, plugin)
        self.assertEqual(run(reader).returncode, 2)


class Service(unittest.TestCase):
    def test_is_valid_for_systemd(self):
        # Units and programs that the service refers to are taken from this system.
        for path in (pathlib.Path("/usr/bin/systemd-sysusers"), pathlib.Path("/bin/sh"),
                     *pathlib.Path("/usr/lib/systemd/system").glob("*.target")):
            copy = root() / path.relative_to("/")
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(path, copy)
        checked = run("systemd-analyze", "verify", "--man=no", f"--root={root()}", "mediagrabber@left.service")
        warnings = [line for line in checked.stderr.splitlines() if "mediagrabber" in line]
        self.assertEqual((checked.returncode, warnings), (0, []), checked.stderr)

    def test_is_sandboxed(self):
        checked = run("systemd-analyze", "security", "--offline=true", "--threshold=20", f"--root={root()}",
                      "mediagrabber@left.service")
        self.assertEqual(checked.returncode, 0, checked.stdout[-500:] + checked.stderr)


class Completion:
    """The same completions in each shell. `complete` returns those of the last word."""

    def test_offers_commands(self):
        self.assertEqual(self.complete("mediagrabber", "rep"), ["report"])
        self.assertEqual(self.complete("gevctl", "forc"), ["force-ip"])

    def test_offers_the_options_of_a_command(self):
        self.assertEqual(self.complete("mediagrabber", "run", "--conf"), ["--config"])
        self.assertEqual(self.complete("mediagrabber", "doctor", "--int"), ["--interface"])
        self.assertEqual(self.complete("gevctl", "apply", "--dr"), ["--dry-run"])

    def test_offers_keys_that_can_change_during_a_recording(self):
        self.assertEqual(self.complete("mediagrabber", "set", "gain.d"), ["gain.db="])
        self.assertEqual(self.complete("mediagrabber", "set", "image.width"), [])
        self.assertEqual(self.complete("mediagrabber", "set", "line.p"), [])

    def test_offers_keys_for_one_off_values_and_for_get(self):
        self.assertEqual(self.complete("mediagrabber", "run", "--set", "output.comp"), ["output.compression="])
        self.assertEqual(self.complete("mediagrabber", "get", "image.wid"), ["image.width"])

    def test_offers_names_of_configurations(self):
        with tempfile.TemporaryDirectory() as home, mock.patch.dict(os.environ, XDG_CONFIG_HOME=home):
            (pathlib.Path(home) / "mediagrabber").mkdir()
            (pathlib.Path(home) / "mediagrabber/door9.toml").touch()
            self.assertEqual(self.complete("mediagrabber", "run", "--config", "doo"), ["door9"])
            self.assertEqual(self.complete("mediagrabber", "check", "doo"), ["door9"])

    def test_offers_requests(self):
        self.assertEqual(self.complete("mediagrabber", "signal", "1", "rel"), ["reload"])
        self.assertEqual(self.complete("mediagrabber", "signal", "--service", "left", "trig"), ["trigger"])

    def test_offers_files(self):
        self.assertEqual(self.complete("gevctl", "apply", "/etc/debian_v"), ["/etc/debian_version"])


class BashCompletion(Completion, unittest.TestCase):
    def complete(self, *words):
        script = ("source /usr/share/bash-completion/bash_completion; source \"$1\"; shift; COMP_WORDS=(\"$@\");"
                  " COMP_LINE=\"$*\"; COMP_POINT=${#COMP_LINE}; COMP_CWORD=$(($# - 1)); compopt() { :; };"
                  " _$COMPLETED \"$1\" \"${@: -1}\" \"${@: -2:1}\"; printf '%s\\n' \"${COMPREPLY[@]}\"")
        done = run("bash", "-c", script, "bash", root() / "usr/share/bash-completion/completions" / words[0],
                   root() / "usr/bin" / words[0], *words[1:], env={**os.environ, "COMPLETED": words[0]})
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout.split()


class FishCompletion(Completion, unittest.TestCase):
    def complete(self, *words):
        source = root() / "usr/share/fish/vendor_completions.d" / f"{words[0]}.fish"
        done = run("fish", "--no-config", "-c", f"source {source}; complete --do-complete '{' '.join(words)}'",
                   env={**os.environ, "PATH": f"{root()}/usr/bin:{os.environ['PATH']}", "HOME": TEMPORARY.name})
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return [line.split("\t")[0] for line in done.stdout.splitlines()]


class ZshCompletion(Completion, unittest.TestCase):
    """An interactive Zsh on a terminal. The Tab key completes; another key prints the command line."""

    SETUP = """
PS1='' PROMPT_EOL_MARK=''
unsetopt zle_bracketed_paste
fpath=({folder} $fpath)
autoload -U compinit
compinit -u -D
show() {{ print -r -- "<$BUFFER>" }}
zle -N show
zle -N zle-line-init show
bindkey '^X' show
bindkey '^I' complete-word
"""

    def complete(self, *words):
        """\\return the completed last word, as a list; empty if there is no completion"""
        folder = pathlib.Path(tempfile.mkdtemp(dir=TEMPORARY.name))
        (folder / ".zshrc").write_text(self.SETUP.format(folder=root() / "usr/share/zsh/vendor-completions"))
        master, slave = pty.openpty()
        shell = subprocess.Popen(["zsh", "-d", "-i"], stdin=slave, stdout=slave, stderr=slave, start_new_session=True,
                                 env={**os.environ, "PATH": f"{root()}/usr/bin:{os.environ['PATH']}", "TERM": "vt100",
                                      "ZDOTDIR": str(folder)})
        os.close(slave)
        output = ""

        def read_until(pattern):
            nonlocal output
            deadline = time.monotonic() + 60
            while not (found := re.search(pattern, output)):
                ready, _, _ = select.select([master], [], [], max(0, deadline - time.monotonic()))
                self.assertTrue(ready, f"timed out waiting for {pattern}: {output!r}")
                output += os.read(master, 4096).decode(errors="replace")
            return found[1]
        try:
            read_until("(<>)")  # the empty command line
            os.write(master, f"{' '.join(words)}\t\x18".encode())
            completed = read_until(r"<([^>]+)>").rstrip(" ").rpartition(" ")[2]
        finally:
            shell.kill()
            shell.wait()
            os.close(master)
        return [] if completed == words[-1] else [completed]


class Manual(unittest.TestCase):
    def test_has_the_text_of_the_help(self):
        page = gzip.decompress((root() / "usr/share/man/man1/mediagrabber.1.gz").read_bytes()).decode()
        for word in ("doctor", "calibrate", "MEDIAGRABBER_CONFIG", "\\-\\-print\\-default", "Directory for the recording", "Exit status"):
            self.assertIn(word, page)
        page = gzip.decompress((root() / "usr/share/man/man1/gevctl.1.gz").read_bytes()).decode()
        for word in ("force", "AcquisitionControl", "Exit status"):
            self.assertIn(word, page)
        self.assertIn("simulated GigE Vision", gzip.decompress((root() / "usr/share/man/man1/camsim.1.gz").read_bytes()).decode())


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])

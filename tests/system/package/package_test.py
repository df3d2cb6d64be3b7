"""The Debian package: what it holds, and whether that works from a root of its own.

Paths come from the environment: CPACK and CPACK_CONFIG, beside those of our programs.
"""

import functools
import gzip
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

PLACE = tempfile.TemporaryDirectory()


def run(*command, **options):
    return subprocess.run(list(map(str, command)), capture_output=True, text=True, timeout=240, **options)


@functools.cache
def package():
    """Path of the package, made from what was built."""
    made = run(os.environ["CPACK"], "--config", os.environ["CPACK_CONFIG"], "-G", "DEB", "-B", pathlib.Path(PLACE.name) / "made")
    if made.returncode != 0:
        raise AssertionError(made.stdout + made.stderr)
    found, = (pathlib.Path(PLACE.name) / "made").glob("*.deb")
    return found


@functools.cache
def root():
    """A directory that holds what the package holds."""
    place = pathlib.Path(PLACE.name) / "root"
    subprocess.run(["dpkg-deb", "--extract", package(), place], check=True)
    return place


class Package(unittest.TestCase):
    HELD = ("usr/bin/mediagrabber", "usr/bin/camsim", "usr/lib/mediagrabber/libmgjai.so", "usr/include/mediagrabber/mg_host_api.hpp",
            "usr/lib/systemd/system/mediagrabber@.service", "usr/lib/sysusers.d/mediagrabber.conf",
            "usr/lib/tmpfiles.d/mediagrabber.conf", "usr/share/bash-completion/completions/mediagrabber",
            "usr/share/man/man1/mediagrabber.1.gz", "usr/share/man/man1/camsim.1.gz", "usr/share/doc/mediagrabber-jai/copyright",
            "usr/share/doc/mediagrabber-jai/guide/README.md")

    def test_holds_everything(self):
        for path in self.HELD:
            self.assertTrue((root() / path).is_file(), path)

    def test_names_the_libraries_that_it_needs(self):
        depends = run("dpkg-deb", "--field", package(), "Depends").stdout
        for library in ("libaravis-0.8-0", "libtiff6", "libpng16-16", "libsystemd0", "libc6", "libstdc++6"):
            self.assertIn(library, depends)
        self.assertEqual(run("dpkg-deb", "--field", package(), "Package", "Architecture").stdout.split(),
                         ["Package:", "mediagrabber-jai", "Architecture:", "amd64"])

    def test_records_from_where_it_was_put(self):
        programs = root() / "usr/bin"
        versions = run(programs / "mediagrabber", "--version")
        self.assertIn(f"({root()}/usr/lib/mediagrabber/libmgjai.so)", versions.stdout, versions.stderr)
        with tempfile.TemporaryDirectory() as place:
            configuration = pathlib.Path(place) / "run.toml"
            configuration.write_text("[image]\nwidth = 640\nheight = 480\n")
            camera = subprocess.Popen([programs / "camsim"], stdout=subprocess.PIPE, text=True)
            try:
                self.assertIn("ready", camera.stdout.readline())
                recorded = run(programs / "mediagrabber", "run", "--config", configuration, "--frames", 5, "--output",
                               f"{place}/{{time}}")
            finally:
                camera.terminate()
                camera.communicate()
            self.assertEqual(recorded.returncode, 0, recorded.stdout + recorded.stderr)
            directory, = (path for path in pathlib.Path(place).iterdir() if path.is_dir())
            self.assertRegex(directory.name, r"^\d{8}T\d{6}Z$")
            self.assertEqual(len(list(directory.glob("*.tif"))), 5)

    def test_makes_its_user_when_it_is_installed(self):
        control = pathlib.Path(PLACE.name) / "control"
        subprocess.run(["dpkg-deb", "--control", package(), control], check=True)
        self.assertEqual(run("sh", "-n", control / "postinst").returncode, 0)
        self.assertTrue(os.access(control / "postinst", os.X_OK))
        (root() / "etc").mkdir(exist_ok=True)
        made = run("systemd-sysusers", f"--root={root()}", "mediagrabber.conf")
        self.assertEqual(made.returncode, 0, made.stderr)
        self.assertIn("mediagrabber:", (root() / "etc/passwd").read_text())


class Service(unittest.TestCase):
    def test_is_one_that_systemd_understands(self):
        # What it refers to is there in a system.
        for path in (pathlib.Path("/bin/kill"), *pathlib.Path("/usr/lib/systemd/system").glob("*.target")):
            copy = root() / path.relative_to("/")
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(path, copy)
        checked = run("systemd-analyze", "verify", "--man=no", f"--root={root()}", "mediagrabber@left.service")
        told = [line for line in checked.stderr.splitlines() if "mediagrabber" in line]
        self.assertEqual((checked.returncode, told), (0, []), checked.stderr)

    def test_has_hardly_anything_that_it_could_harm(self):
        judged = run("systemd-analyze", "security", "--offline=true", "--threshold=20", f"--root={root()}",
                     "mediagrabber@left.service")
        self.assertEqual(judged.returncode, 0, judged.stdout[-500:] + judged.stderr)


class Completion(unittest.TestCase):
    def complete(self, *words):
        """What is offered for the last one of these words."""
        script = ("source /usr/share/bash-completion/bash_completion; source \"$1\"; shift; COMP_WORDS=(\"$@\");"
                  " COMP_LINE=\"$*\"; COMP_POINT=${#COMP_LINE}; COMP_CWORD=$(($# - 1)); compopt() { :; };"
                  " _mediagrabber \"$1\" \"${@: -1}\" \"${@: -2:1}\"; printf '%s\\n' \"${COMPREPLY[@]}\"")
        done = run("bash", "-c", script, "bash", root() / "usr/share/bash-completion/completions/mediagrabber",
                   root() / "usr/bin/mediagrabber", *words)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout.split()

    def test_offers_commands(self):
        self.assertEqual(self.complete("re"), ["report"])
        self.assertIn("doctor", self.complete(""))

    def test_offers_the_options_of_a_command(self):
        self.assertEqual(self.complete("run", "--co"), ["--config"])
        self.assertEqual(self.complete("doctor", "--int"), ["--interface"])

    def test_offers_what_can_be_set_while_it_runs(self):
        self.assertEqual(self.complete("set", "gain.d"), ["gain.db="])
        self.assertEqual(self.complete("set", "image.width"), [])

    def test_offers_requests(self):
        self.assertEqual(self.complete("signal", "1", "re"), ["reload"])


class Manual(unittest.TestCase):
    def test_says_what_the_help_says(self):
        page = gzip.decompress((root() / "usr/share/man/man1/mediagrabber.1.gz").read_bytes()).decode()
        for word in ("doctor", "calibrate", "Directory to record to", "Exit status"):
            self.assertIn(word, page)
        self.assertIn("simulated GigE Vision", gzip.decompress((root() / "usr/share/man/man1/camsim.1.gz").read_bytes()).decode())


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])

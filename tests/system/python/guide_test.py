# SPDX-License-Identifier: MIT
"""The code of the guide: the examples of its page about Python, and the notebook.

GUIDE is the folder of the guide. The programs are on PATH, as when the packages are installed.
"""

import contextlib
import io
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

import matplotlib.image
import nbclient
import nbformat
import numpy
from mediagrabber import INDEX_DTYPE, PIXEL_FORMATS, Recorder, open_recording

from camera_process import Camera

GUIDE = pathlib.Path(os.environ["GUIDE"])
os.environ["PATH"] = f"{pathlib.Path(os.environ['MEDIAGRABBER']).parent}:{os.environ['PATH']}"
RING_IN_GUIDE = "/run/user/1000/frames.sock"
FAST = {"image": {"width": 160, "height": 120}, "timing.frame_rate_hz": 100, "memory.export_buffers": 300}


def examples():
    """The code of the page, in its order."""
    return re.findall(r"(?m)^```python\n(.*?)^```", (GUIDE / "python.md").read_text(), re.DOTALL)


class InDirectory(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.root = pathlib.Path(temporary.name)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(self.root)


class Page(InDirectory):
    def run_example(self, text, values):
        """Runs an example. Comments after print() are what it prints, with "..." for any text."""
        printed = io.StringIO()
        with contextlib.redirect_stdout(printed):
            exec(compile(text, "python.md", "exec"), values)
        for expected in re.findall(r"print\(.*\)\s+# (.*)", text):
            pattern = ".*".join(map(re.escape, expected.split("...")))
            self.assertRegex(printed.getvalue(), f"(?s){pattern}")
        return printed.getvalue()

    def test_examples_run_in_their_order(self):
        texts = examples()
        self.assertEqual(len(texts), 10)
        values = {}
        ring = self.root / "ring"
        with Camera():
            with Recorder({**FAST, "output.format": "raw"}, output="recording", frames=210) as recorder:
                recorder.wait(60)
            for text in texts:
                with self.subTest(text):
                    if "pytest_plugins" in text:
                        (self.root / "conftest.py").write_text(text)
                    elif "import pytest" in text:
                        self.run_in_pytest(text)
                    elif RING_IN_GUIDE in text:
                        with Recorder({**FAST, "ring.socket": ring}, output="ring-recording", frames=100) as recorder:
                            printed = self.run_example(text.replace(RING_IN_GUIDE, str(ring)), values)
                            recorder.wait(60)
                        self.assertRegex(printed.splitlines()[-1], r"^100 \d+ [\d.]+$")
                    else:
                        self.run_example(text, values)
        self.assertEqual(values["stack"].shape, (10, 120, 160))
        self.assertEqual(len(values["intervals_ms"]), 209)
        self.assertGreaterEqual(values["summary"].saved, 1)
        self.assertEqual(len(open_recording("simulated")), 50)
        self.assertGreaterEqual(len(values["exposed"]), 50)

    def run_in_pytest(self, text):
        (self.root / "test_example.py").write_text(text)
        done = subprocess.run([sys.executable, "-m", "pytest", "-p", "no:cacheprovider", "test_example.py"], capture_output=True, text=True)
        self.assertIn("1 passed", done.stdout, done.stdout + done.stderr)

    def test_names_all_fields_of_the_index(self):
        rows = re.findall(r"(?m)^\| (`\w+`(?:, `\w+`)*) \| (\w+) \|", (GUIDE / "python.md").read_text())
        named = {name: kind for names, kind in rows for name in re.findall(r"\w+", names)}
        self.assertEqual(named, {name: "text" if INDEX_DTYPE[name].kind == "U" else INDEX_DTYPE[name].name for name in INDEX_DTYPE.names})


class Notebook(InDirectory):
    def setUp(self):
        super().setUp()
        self.notebook = nbformat.read(GUIDE / "recordings.ipynb", as_version=4)
        for name in ("HOME", "IPYTHONDIR", "JUPYTER_RUNTIME_DIR", "TMPDIR"):
            os.environ[name] = str(self.root)

    def test_is_stored_without_outputs(self):
        nbformat.validate(self.notebook)
        for cell in self.notebook.cells:
            self.assertFalse(cell.get("outputs"), cell.source)
            self.assertIsNone(cell.get("execution_count"), cell.source)

    def test_opens_plots_and_exports_a_recording_of_each_format(self):
        nbclient.NotebookClient(self.notebook, timeout=120, kernel_name="python3").execute()
        outputs = [output for cell in self.notebook.cells for output in cell.get("outputs", [])]
        plots = [output for output in outputs if "image/png" in output.get("data", {})]
        self.assertEqual(len(plots), 3)
        self.assertFalse([output for output in outputs if output.get("name") == "stderr"])
        made, = self.root.glob("recordings-*")
        kinds = {path.name: open_recording(path) for path in made.iterdir() if path.name != "exported"}
        self.assertEqual(set(kinds), {"tiff", "bigtiff", "raw", "hdf5"})
        for kind, frames in kinds.items():
            exported = numpy.load(made / f"exported/{kind}.npz")
            self.assertTrue(numpy.array_equal(exported["images"], frames[5:15].load()), kind)
            self.assertEqual(exported["index"]["frame"].tolist(), list(range(6, 16)))
            self.assertEqual(matplotlib.image.imread(made / f"exported/{kind}.png").shape[:2], (480, 640))
            header, *rows = (made / f"exported/{kind}.csv").read_text().splitlines()
            self.assertEqual((header.split(","), len(rows)), (list(INDEX_DTYPE.names), 20))
            self.assertIn(rows[0].split(",")[header.split(",").index("pixel_format")], PIXEL_FORMATS)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])

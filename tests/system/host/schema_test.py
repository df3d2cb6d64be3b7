# SPDX-License-Identifier: MIT
"""`mediagrabber keys --json` prints a JSON schema of the configuration file, which an independent validator (python3-jsonschema) uses.

The directory of the sources is in the environment variable SOURCES.
"""

import functools
import json
import os
import pathlib
import re
import sys
import tempfile
import tomllib
import unittest

import jsonschema

from host_process import command

SOURCES = pathlib.Path(os.environ["SOURCES"])
# Each is refused by `mediagrabber check`, too.
BAD = (
    "[cameras]\n", "gain.decibels = 1\n", "image.width = 0\n", "image.width = 65536\n", "image.width = 1.5\n", "image.width = \"640\"\n",
    "image = 5\n", "image.format = \"Mono10\"\n", "image.rotation_deg = 90\n", "gain.db = 61\n", "gain.limits_db = [1]\n",
    "gain.limits_db = [1, 2, 3]\n", "gain.limits_db = [1, 61]\n", "auto.area = 1\n", "run.give_up_after = \"always\"\n",
    "run.give_up_after = -1\n", "log.sinks = [\"file\"]\n", "log.sinks = \"stdout\"\n", "camera.model = \"\"\n", "camera.serial = \"S\"\n",
    "camera.name = \"a/b\"\n", "camera.name = \".a\"\n", "camera.name = \"a \"\n", "camera.name = \"a\\u0007b\"\n",
    "camera.name = \"012345678901234567890123456789012\"\n", "[line]\npin = \"Out1\"\n", "[[line]]\npin = \"Out1\"\n",
    "[[line]]\npin = \"Out3\"\nsource = \"Low\"\n", "[[line]]\npin = \"Out1\"\nsource = \"Low\"\nlevel = 1\n",
)


@functools.cache
def validator():
    schema = json.loads(command("keys", "--json").stdout)
    assert schema["$schema"] == "https://json-schema.org/draft/2020-12/schema"
    jsonschema.Draft202012Validator.check_schema(schema)
    return jsonschema.Draft202012Validator(schema)


def errors(text):
    return [f"{list(error.path)}: {error.message}" for error in validator().iter_errors(tomllib.loads(text))]


def is_accepted(text):
    """\\return whether `mediagrabber check` accepts a configuration"""
    with tempfile.NamedTemporaryFile("w", suffix=".toml") as file:
        file.write(text)
        file.flush()
        return command("check", file.name).returncode == 0


def samples():
    """Each key of the default configuration, as a configuration of its own; camera.serial with the model that it needs."""
    table = None
    for line in command("check", "--print-default").stdout.splitlines():
        if header := re.fullmatch(r"\[(\w+)\]", line):
            table = header[1]
        elif line == "#[[line]]":
            return
        elif assignment := re.fullmatch(r"#(\w+ = .*)", line):
            yield f"[{table}]\n" + ("model = \"M\"\n" if assignment[1].startswith("serial") else "") + assignment[1] + "\n"


class JsonSchema(unittest.TestCase):
    def test_accepts_example_configurations(self):
        files = [*(SOURCES / "examples/configuration").glob("*.toml"), *(SOURCES / "tests/fuzz/seeds/configuration_file").iterdir()]
        accepted = [file for file in files if is_accepted(file.read_text())]
        self.assertIn(SOURCES / "examples/configuration/line1.toml", accepted)
        self.assertGreater(len(accepted), 4)
        for file in accepted:
            with self.subTest(file.name):
                self.assertEqual(errors(file.read_text()), [])

    def test_accepts_every_key_of_the_default_configuration(self):
        found = list(samples())
        keys = re.findall(r"(?m)^\| `(?!line\.)", command("keys").stdout)
        self.assertEqual(len(found), len(keys))
        for text in found:
            with self.subTest(text):
                self.assertEqual(errors(text), [])

    def test_refuses_bad_configurations(self):
        for text in BAD:
            with self.subTest(text):
                self.assertFalse(is_accepted(text))
                self.assertNotEqual(errors(text), [])


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])

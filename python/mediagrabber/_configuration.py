# SPDX-License-Identifier: MIT
"""Configurations as dictionaries, written as TOML."""

import json
import os
from collections.abc import Iterator, Mapping, Sequence
from typing import Any

Configuration = Mapping[str, Any]


def toml_value(value: object) -> str:
    """\\throws TypeError"""
    if isinstance(value, bool):
        return "true" if value else "false"
    if isinstance(value, (int, float)):
        return repr(value)
    if hasattr(value, "item") and not isinstance(value, (str, bytes)):  # a number of NumPy
        return toml_value(value.item())
    if isinstance(value, os.PathLike):
        return toml_value(os.fspath(value))
    if isinstance(value, str):
        return json.dumps(value, ensure_ascii=False).replace("\x7f", "\\u007F")
    if isinstance(value, Sequence) and not isinstance(value, bytes):
        return f"[{', '.join(map(toml_value, value))}]"
    raise TypeError(f"{value!r} is not a value of a configuration: expected a truth value, a number, a text or a list of them")


def toml_text(configuration: Configuration) -> str:
    """\\param configuration  nested, {"gain": {"db": 6}}, or with the keys of the manual, {"gain.db": 6}; "line" is a list of tables
    \\throws TypeError"""
    lines = [f"{key} = {toml_value(value)}" for key, value in flattened(configuration).items() if key != "line"]
    for table in configuration.get("line", []):
        lines += ["[[line]]", *(f"{key} = {toml_value(value)}" for key, value in table.items())]
    return "\n".join(lines) + "\n"


def flattened(configuration: Configuration) -> dict[str, Any]:
    """The configuration with the keys of the manual."""
    return dict(_pairs(configuration, ""))


def _pairs(table: Configuration, prefix: str) -> Iterator[tuple[str, Any]]:
    for key, value in table.items():
        if isinstance(value, Mapping):
            yield from _pairs(value, f"{prefix}{key}.")
        else:
            yield f"{prefix}{key}", value

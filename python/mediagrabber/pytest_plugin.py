# SPDX-License-Identifier: MIT
"""The fixture `camsim` for pytest. conftest.py enables it:

    pytest_plugins = ["mediagrabber.pytest_plugin"]
"""

from collections.abc import Iterator

import pytest

from .camsim import Camsim


def pytest_configure(config: pytest.Config) -> None:
    config.addinivalue_line("markers", "camsim(*options): options of the simulated camera of the fixture `camsim`")


@pytest.fixture
def camsim(request: pytest.FixtureRequest) -> Iterator[Camsim]:
    """A simulated camera in a network namespace of its own. `camsim.recorder(configuration)` records from it."""
    marker = request.node.get_closest_marker("camsim")
    with Camsim(*(marker.args if marker else ())) as camera:
        yield camera

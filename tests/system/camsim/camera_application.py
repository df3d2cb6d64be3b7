# SPDX-License-Identifier: MIT
"""Functions that applications in these tests share."""

import struct

import gvcp
from camera_process import CAMSIM, run

ADDRESSES = gvcp.feature_addresses(run(CAMSIM, "--print-xml"))


def small_images(application, rate=100.0):
    for name, value in (("Width", 320), ("Height", 100)):
        assert application.write(ADDRESSES[name], value) == gvcp.SUCCESS
    payload = struct.pack(">Id", ADDRESSES["AcquisitionFrameRate"], rate)
    assert application.execute(gvcp.WRITEMEM, payload)[0] == gvcp.SUCCESS


def start(application):
    assert application.write(ADDRESSES["AcquisitionStart"], 1) == gvcp.SUCCESS

# SPDX-License-Identifier: MIT
"""Processor time of this machine, and the part of it that other virtual machines took."""

import pathlib


def used_idle_stolen(path="/proc/stat"):
    """The time of all processors since the boot, in clock ticks: used by programs and interrupts, idle, and taken by other virtual
    machines."""
    user, nice, system, idle, io_wait, interrupt, soft_interrupt, stolen = (
        int(field) for field in pathlib.Path(path).read_text().split("\n", 1)[0].split()[1:9])
    return user + nice + system + interrupt + soft_interrupt, idle + io_wait, stolen


def processor_times(path="/proc/stat"):
    """\\return the time that other virtual machines took, and all processor time, in clock ticks since the boot"""
    times = used_idle_stolen(path)
    return times[2], sum(times)


def stolen_between(before, after):
    """\\return the fraction of the processor time that was stolen between two results of processor_times()"""
    stolen, total = (now - then for now, then in zip(after, before))
    return stolen / max(total, 1)

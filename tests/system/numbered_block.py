"""Reads a segment whose figures all carry one number a cycle, by byte offsets, and tells a block that was put together
from two cycles."""

import fcntl
import os
import struct
import time

NAME = "qzGpuInfo_v2"
SIZE = 7472
PUBLISHED = 7469
VERSION = 68865
_HEAD = struct.Struct("<5I")
_RECORDS = ((20, 16), (2452, 16))
_RECORD_SIZE = 152
_SUMMARY = 7316


class Torn(Exception):
    """A block that no cycle published."""


def read_locked(directory, wait=2.0):
    """The segment's bytes, copied out under its lock; None while there is none."""
    try:
        descriptor = os.open(os.path.join(directory, NAME), os.O_RDONLY | os.O_CLOEXEC)
    except FileNotFoundError:
        return None
    try:
        end = time.monotonic() + wait
        while True:
            try:
                fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
                break
            except BlockingIOError:
                if time.monotonic() > end:
                    raise
                time.sleep(0.0002)
        return os.pread(descriptor, SIZE + 1, 0)
    finally:
        os.close(descriptor)


def number_of(data, figures):
    """The number that the ready block's every figure carries; None for one that is not ready. `figures(bytes, offset)`
    gives the figures of the record at an offset. Raises Torn for a mixture."""
    if len(data) != SIZE:
        raise Torn(f"{len(data)} bytes")
    version, ready, cuda, amd, metal = _HEAD.unpack_from(data)
    if ready == 0:
        return None
    if (version, ready, cuda, amd, metal) != (VERSION, 1, 16, 16, 0):
        raise Torn(f"head {version} {ready} {cuda} {amd} {metal}")
    number = struct.unpack_from("<i", data, _RECORDS[0][0] + 88)[0]
    for start, count in _RECORDS:
        for index in range(count):
            found = figures(data, start + index * _RECORD_SIZE)
            if set(found) != {number}:
                raise Torn(f"record at {start + index * _RECORD_SIZE}: {found}, first record: {number}")
    temperature, usage = (struct.unpack_from("<i", data, _SUMMARY + offset)[0] for offset in (88, 116))
    if (temperature, usage) != (number, 32 * number):
        raise Torn(f"summary: {temperature} and {usage}, first record: {number}")
    return number


_FIGURES = struct.Struct("<i4xi4xii4xi4xf")


def all_figures(data, offset):
    """Temperature, total, used and free memory, usage and score."""
    return _FIGURES.unpack_from(data, offset + 88)

"""Reads a segment whose figures all carry one number a cycle, by byte offsets, and detects a block that was put together
from two cycles."""

import struct

from segment_bytes import AMD, CUDA, LIST_SIZE, RECORD_SIZE, SIZE, SUMMARY, VERSION

_HEAD = struct.Struct("<5I")


class Torn(Exception):
    """A block that no cycle published."""


def number_of(data, figures):
    """The number that the ready block's every figure carries; None for one that is not ready. `figures(bytes, offset)`
    gives the figures of the record at an offset. Raises Torn for a mixture."""
    if len(data) != SIZE:
        raise Torn(f"{len(data)} bytes")
    version, ready, cuda, amd, metal = _HEAD.unpack_from(data)
    if ready == 0:
        return None
    if (version, ready, cuda, amd, metal) != (VERSION, 1, LIST_SIZE, LIST_SIZE, 0):
        raise Torn(f"head {version} {ready} {cuda} {amd} {metal}")
    number = struct.unpack_from("<i", data, CUDA + 88)[0]
    for start in (CUDA, AMD):
        for at in range(start, start + LIST_SIZE * RECORD_SIZE, RECORD_SIZE):
            found = figures(data, at)
            if set(found) != {number}:
                raise Torn(f"record at {at}: {found}, first record: {number}")
    temperature, usage = (struct.unpack_from("<i", data, SUMMARY + offset)[0] for offset in (88, 116))
    if (temperature, usage) != (number, 32 * number):
        raise Torn(f"summary: {temperature} and {usage}, first record: {number}")
    return number


_FIGURES = struct.Struct("<i4xi4xii4xi4xf")


def all_figures(data, offset):
    """Temperature, total, used and free memory, usage and score."""
    return _FIGURES.unpack_from(data, offset + 88)

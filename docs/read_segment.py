#!/usr/bin/env python3
"""Reads the GPU list that qzGpuInfo publishes: `read_segment.py [PATH]`. What the bytes mean: segment.md."""

import fcntl
import os
import stat
import struct
import sys
import time

KINDS = {0: "Other", 1: "Cuda", 2: "AMD", 3: "Metal"}


def locked_bytes(path, seconds=1.0):
    """The segment's 7472 bytes, copied under its lock, and their age in seconds."""
    descriptor = os.open(path, os.O_RDONLY | os.O_NOFOLLOW | os.O_NONBLOCK | os.O_CLOEXEC)
    try:
        info = os.fstat(descriptor)
        if not stat.S_ISREG(info.st_mode) or info.st_uid != os.geteuid() or info.st_nlink > 1:
            raise ValueError("not a segment of this user")
        deadline = time.monotonic() + seconds
        while True:
            try:
                fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
                break
            except BlockingIOError:
                if time.monotonic() >= deadline:
                    raise TimeoutError("the lock was not free in time") from None
                time.sleep(0.001)
        return os.pread(descriptor, 7472, 0), max(0.0, time.time() - os.fstat(descriptor).st_mtime)
    finally:
        os.close(descriptor)  # gives the lock back, too


def gpus(data):
    """The GPUs of a block as dictionaries: NVIDIA, AMD, Apple. An absent figure is None."""
    if len(data) < 7472:
        raise ValueError("too small")
    version, ready, *counts = struct.unpack_from("<5I", data)
    if (version, ready) == (0, 0) or (version == 68865 and ready == 0):
        raise ValueError("no data yet")
    if version != 68865 or max(counts) > 16:
        raise ValueError("another version")
    for count, start in zip(counts[:1] if data[7468] else counts, (20, 2452, 4884)):
        for offset in range(start, start + 152 * count, 152):
            (valid, name, optix, rt, kind, index, opencl, has_t, t, has_total, total, has_memory, used, free, has_usage,
             usage, has_speed, speed) = struct.unpack_from("<B64sx3B3xiQB3xiB3xiB3xiiB3xiB3xf", data, offset)
            yield {"name": name.split(b"\0")[0].decode("utf-8", "replace"), "kind": KINDS.get(kind, "unknown"),
                   "device": index, "opencl": opencl != 0, "optix": optix != 0, "ray_tracing": rt != 0,
                   "usage": usage if valid and has_usage else None, "temperature": t if valid and has_t else None,
                   "total": total if valid and has_total else None, "used": used if valid and has_memory else None,
                   "free": free if valid and has_memory else None, "speed": speed if valid and has_speed else None}


if __name__ == "__main__":
    block, age = locked_bytes(sys.argv[1] if len(sys.argv) > 1 else "/dev/shm/qzGpuInfo_v2")
    print(f"published {age:.1f} s ago")
    for gpu in gpus(block):
        print(gpu)

"""Makes segments for tests byte by byte, and plays the process that keeps one fresh. Knows the offsets of
docs/segment.md and nothing of the program's headers."""

import contextlib
import fcntl
import os
import struct
import tempfile
import time

NAME = "qzGpuInfo_v2"
SIZE = 7472
VERSION = 68865
CUDA, AMD, METAL, SUMMARY = 20, 2452, 4884, 7316
RECORD_SIZE = 152
ATTACHED, PUBLISHED, MEASURING = (1 << 62) + 0, (1 << 62) + 1, (1 << 62) + 2
WRITER = (ATTACHED, PUBLISHED)
F_OFD_GETLK, F_OFD_SETLK = 36, 37
LOCK = "hh4xqqi4x"  # struct flock


def record(name=b"", kind=1, index=0, valid=1, optix=0, ray_tracing=0, cl_device=0, temperature=None, total=None,
           memory=None, usage=None, speed=None):
    """152 bytes of one GPU; a figure that is None has its marker cleared and a left-over number behind it."""
    data = bytearray(b"\xa5" * RECORD_SIZE)
    data[0] = valid
    data[1:65] = name[:64].ljust(64, b"\0")
    data[65:69] = bytes([0, optix, ray_tracing, kind])
    struct.pack_into("<i", data, 72, index)
    struct.pack_into("<Q", data, 76, cl_device)

    def figure(marker_at, layout, *values):
        absent = None in values
        data[marker_at] = 0 if absent else 1
        struct.pack_into(layout, data, marker_at + 4, *((77 for _ in values) if absent else values))

    figure(84, "<i", temperature)
    figure(92, "<i", total)
    figure(100, "<ii", *(memory or (None, None)))
    figure(112, "<i", usage)
    figure(120, "<f", speed)
    return bytes(data)


def block(cuda=(), amd=(), metal=(), summary=None, version=VERSION, ready=1, counts=None, only_cuda=0, size=SIZE):
    """The bytes of a segment. Entries beyond a count hold what no reader may show."""
    data = bytearray(b"\xa5" * SIZE)
    counts = counts or (len(cuda), len(amd), len(metal))
    struct.pack_into("<IIIII", data, 0, version, ready, *counts)
    stale = record(b"beyond the count", usage=99)
    for offset, gpus in ((CUDA, cuda), (AMD, amd), (METAL, metal)):
        for i in range(16):
            start = offset + i * RECORD_SIZE
            data[start:start + RECORD_SIZE] = gpus[i] if i < len(gpus) else stale
    data[SUMMARY:SUMMARY + RECORD_SIZE] = summary or record(b"Summary", kind=4, index=99)
    data[7468] = only_cuda
    return bytes(data[:size]).ljust(size, b"\xa5")


def is_set(path, flag):
    """Whether any process has the flag set."""
    with open(path, "rb") as file:
        asked = struct.pack(LOCK, fcntl.F_WRLCK, os.SEEK_SET, flag, 1, 0)
        return struct.unpack(LOCK, fcntl.fcntl(file, F_OFD_GETLK, asked))[0] != fcntl.F_UNLCK


class Segment:
    """A directory with one segment in it, and the flags of a writer that has published, or the given ones."""

    def __init__(self, data=None, age=0.0, flags=WRITER):
        self._folder = tempfile.TemporaryDirectory()
        self.directory = self._folder.name
        self.path = os.path.join(self.directory, NAME)
        self._writer = None
        if data is not None:
            self.write(data, age)
            if flags:
                self.attach(*flags)

    def write(self, data, age=0.0):
        descriptor = os.open(self.path, os.O_RDWR | os.O_CREAT, 0o600)
        with os.fdopen(descriptor, "r+b") as file:
            file.truncate(len(data))
            file.write(data)
        self.set_age(age)

    def set_age(self, age):
        instant = time.time() - age
        os.utime(self.path, (instant, instant))

    def attach(self, *flags):
        """Takes the writer's part, with these flags set or those of one that has published."""
        self._writer = os.open(self.path, os.O_RDWR)
        self.set(*flags or WRITER)

    def set(self, *flags):
        for flag in flags:
            fcntl.fcntl(self._writer, F_OFD_SETLK, struct.pack(LOCK, fcntl.F_RDLCK, os.SEEK_SET, flag, 1, 0))

    def detach(self):
        if self._writer is not None:
            os.close(self._writer)
            self._writer = None

    @contextlib.contextmanager
    def locked(self):
        descriptor = os.open(self.path, os.O_RDWR)
        try:
            fcntl.flock(descriptor, fcntl.LOCK_EX)
            yield
        finally:
            os.close(descriptor)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.detach()
        self._folder.cleanup()

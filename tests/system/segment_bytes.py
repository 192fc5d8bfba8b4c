"""Makes segments for tests byte by byte, copies them out as a reader does, and plays the process that keeps one fresh.
Knows the offsets of docs/segment.md and nothing of the program's headers. What decodes a block is
docs/read_segment.py, which test_read_segment.py checks against the blocks made here."""

import contextlib
import fcntl
import os
import struct
import tempfile
import time

NAME = "qzGpuInfo_v2"
SIZE = 7472
VERSION = 68865
CUDA, AMD, METAL, SUMMARY, ONLY_CUDA = 20, 2452, 4884, 7316, 7468
RECORD_SIZE = 152
LIST_SIZE = 16
ATTACHED, PUBLISHED, MEASURING = (1 << 62) + 0, (1 << 62) + 1, (1 << 62) + 2
WRITER = (ATTACHED, PUBLISHED)
F_OFD_GETLK, F_OFD_SETLK = 36, 37
LOCK = "hh4xqqi4x"  # struct flock


class Gone(tuple):
    """The numbers behind a cleared marker."""


def gone(*values):
    return Gone(values)


def record(name=b"", kind=1, index=0, valid=1, optix=0, ray_tracing=0, cl_device=0, temperature=None, total=None,
           memory=None, usage=None, speed=None, fill=0xa5, left_over=77):
    """152 bytes of one GPU, `fill` in those that mean nothing. A figure that is None has its marker off and `left_over`
    behind it."""
    data = bytearray([fill]) * RECORD_SIZE
    data[0] = valid
    data[1:65] = name[:64].ljust(64, b"\0")
    data[65:69] = bytes([0, optix, ray_tracing, kind])
    struct.pack_into("<i", data, 72, index)
    struct.pack_into("<Q", data, 76, cl_device)

    for at, layout, given in ((84, "<i", temperature), (92, "<i", total), (100, "<ii", memory), (112, "<i", usage),
                              (120, "<f", speed)):
        if given is None:
            given = gone(*[left_over] * (len(layout) - 1))
        data[at] = not isinstance(given, Gone)
        struct.pack_into(layout, data, at + 4, *(given if isinstance(given, tuple) else (given,)))
    return bytes(data)


BEYOND_COUNT = record(b"beyond the count", usage=99)


def block(cuda=(), amd=(), metal=(), summary=None, version=VERSION, ready=1, counts=None, only_cuda=0, size=SIZE,
          fill=0xa5, beyond=BEYOND_COUNT):
    """The bytes of a segment, `beyond` in the entries beyond a count: what no reader may show."""
    counts = counts or (len(cuda), len(amd), len(metal))
    data = struct.pack("<IIIII", version, ready, *counts)
    for gpus in (cuda, amd, metal):
        data += b"".join([*gpus, *[beyond] * (LIST_SIZE - len(gpus))])
    data += (summary or record(b"Summary", kind=4, index=99)) + bytes([only_cuda])
    return data[:size].ljust(size, bytes([fill]))


def published_record(*arguments, **settings):
    """A record as the program writes it: zeros where nothing was ever written."""
    return record(*arguments, **settings, fill=0, left_over=0)


def published_block(cuda=(), amd=(), summary=b"", size=SIZE):
    """A block as the program writes it into a segment of zeros."""
    empty = published_record(kind=0, index=-1, valid=0)
    return block(cuda, amd, summary=summary, size=size, fill=0, beyond=empty)


def empty_block(size=SIZE):
    """What a machine without GPUs publishes."""
    return published_block(summary=published_record(b"Summary", kind=4, index=99, valid=0, total=gone(65535),
                                                    memory=gone(0, 65535)), size=size)


def read_locked(path, wait=2.0):
    """All of the segment's bytes, copied out under its lock; None if there is none."""
    try:
        file = open(path, "rb", buffering=0)
    except FileNotFoundError:
        return None
    with file:
        end = time.monotonic() + wait
        while True:
            try:
                fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
                return file.read()
            except BlockingIOError:
                if time.monotonic() > end:
                    raise
                time.sleep(0.0002)


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
        """Plays the writer, with these flags set or those of one that has published."""
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

#!/usr/bin/env python3
"""Reads the GPU list that qzGpuInfo publishes: `read_segment.py [PATH [USER]]`. The bytes are described in segment.md."""

import fcntl, os, pwd, stat, struct, sys, time

F_OFD_GETLK = 36
FLAGS = ("attached", "published", "measuring")  # record locks of living companions, from byte 2^62 on
KINDS = ("Other", "Cuda", "AMD", "Metal")
# Where a figure's marker is in a record, and the layout from there to the figure.
FIGURES = {"usage": (112, "<?3xi"), "temperature": (84, "<?3xi"), "total": (92, "<?3xi"), "used": (100, "<?3xi"),
           "free": (100, "<?7xi"), "speed": (120, "<?3xf")}


def flags_of(file):
    """The FLAGS that some process has set. Asking takes no lock."""
    def answer(number):
        return fcntl.fcntl(file, F_OFD_GETLK, struct.pack("@hhqqi4x", fcntl.F_WRLCK, 0, (1 << 62) + number, 1, 0))
    return {name for number, name in enumerate(FLAGS) if struct.unpack_from("@h", answer(number))[0] != fcntl.F_UNLCK}


def fresh(age, flags, max_age=None):
    """Whether a living companion published the list, and recently. `max_age` in seconds replaces the limits, 0: none."""
    limit = max_age if max_age is not None else 1800 if "measuring" in flags else 20
    return "published" in flags and age >= -10 and (age <= limit or limit == 0)


def is_mapped(user):
    """Whether this user namespace has the user: those that it lacks are all shown as one."""
    with open("/proc/self/uid_map", encoding="ascii") as file:
        return any(first <= user < first + count for first, _, count in (map(int, line.split()) for line in file))


def user_id(name):
    """The number of a user; without a name, the caller's."""
    try:
        return os.geteuid() if name is None else pwd.getpwnam(name).pw_uid
    except KeyError:
        raise ValueError(f"unknown user '{name}'") from None


def locked_bytes(path, seconds=1.0, user=None):
    """The segment's 7472 bytes, copied under its lock, their age in seconds (below 0: dated ahead), and its flags.
    Refuses the segment of anyone but `user`, by default the caller."""
    owner = user_id(user)
    guards = os.O_NOFOLLOW | os.O_NONBLOCK
    with open(path, "rb", buffering=0, opener=lambda name, flags: os.open(name, flags | guards)) as file:
        info = os.fstat(file.fileno())
        if (info.st_mode, info.st_uid, info.st_nlink > 1) != (stat.S_IFREG | 0o600, owner, False):
            raise ValueError("not a segment of this user's alone")
        if not is_mapped(info.st_uid):
            raise ValueError("this user namespace cannot tell whose segment it is")
        for _ in range(1 + round(1000 * seconds)):
            try:
                fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)  # given back by closing
                age = time.time() - os.fstat(file.fileno()).st_mtime
                return os.pread(file.fileno(), 7472, 0), age, flags_of(file)
            except BlockingIOError:
                time.sleep(0.001)
        raise TimeoutError("the lock was not free in time")


def gpus(data):
    """The GPUs of a block as dictionaries: NVIDIA, AMD, Apple. An absent figure is None; one that is lost does not answer."""
    if len(data) < 7472:
        raise ValueError("too small")
    version, ready, *counts = struct.unpack_from("<5I", data)
    if version in (0, 68865) and not ready:
        raise ValueError("no data yet")
    if version != 68865 or max(counts) > 16:
        raise ValueError("another version")
    for count, start in zip(counts[:1] if data[7468] else counts, (20, 2452, 4884)):
        for at in range(start, start + 152 * count, 152):
            valid, name, optix, rays, kind, device, opencl = struct.unpack_from("<?64sx??B3xiQ", data, at)
            gpu = {"name": name.split(b"\0")[0].decode("utf-8", "replace"), "device": device, "opencl": opencl != 0,
                   "kind": KINDS[kind] if kind < len(KINDS) else "unknown", "optix": optix, "ray_tracing": rays}
            for figure, (offset, layout) in FIGURES.items():
                present, value = struct.unpack_from(layout, data, at + offset)
                gpu[figure] = value if valid and present else None
            gpu["answers"] = any(gpu[figure] is not None for figure in ("usage", "temperature", "used"))
            yield gpu


if __name__ == "__main__":
    if sys.stdout:  # a name need not fit the locale's characters
        sys.stdout.reconfigure(errors="backslashreplace")
    try:
        segment = sys.argv[1] if len(sys.argv) > 1 else "/dev/shm/qzGpuInfo_v2"
        block, age, flags = locked_bytes(segment, user=sys.argv[2] if len(sys.argv) > 2 else None)
        print(f"published {age:.1f} s ago" + ("" if fresh(age, flags) else ", stale"), *gpus(block), sep="\n")
    except (OSError, ValueError) as error:
        sys.exit(f"read_segment.py: {error}")

"""Runs `qzGpuStatus` for the tests."""

import os
import subprocess

PROGRAM = os.path.join(os.environ["QZGPUINFO_BUILD"], "qzGpuStatus")


def run(*arguments, directory=None, timeout=20, **options):
    """Runs the command on a segment's directory; standard output and error as bytes."""
    command = [PROGRAM, *arguments]
    if directory is not None:
        command += ["--directory", directory]
    options.setdefault("stdout", subprocess.PIPE)
    return subprocess.run(command, stderr=subprocess.PIPE, stdin=subprocess.DEVNULL, timeout=timeout, **options)


def reachable_by_nobody(path):
    """Whether user 65534 may enter the folder or run the program."""
    return subprocess.run(["test", "-x", path], user=65534).returncode == 0

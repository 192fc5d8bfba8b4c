#!/usr/bin/env python3
"""Whether this machine has a GPU: ends with 0 if it has, 1 if not, 2 if there is no answer. has_gpu.py [SECONDS]"""

import subprocess
import sys


def has_gpu(seconds):
    """True or False; raises OSError, subprocess.TimeoutExpired or RuntimeError if there is no answer."""
    code = subprocess.run(["qzGpuInfo", "-queryGPU"], stdout=subprocess.DEVNULL, timeout=seconds).returncode
    if code not in (0, 1):
        raise RuntimeError(f"qzGpuInfo crashed: signal {-code}" if code < 0 else f"qzGpuInfo failed: exit code {code}")
    return code == 1


try:
    found = has_gpu(float(sys.argv[1]) if len(sys.argv) > 1 else 60)
except (OSError, RuntimeError, subprocess.TimeoutExpired) as error:
    print(error, file=sys.stderr)
    sys.exit(2)
print("at least one GPU" if found else "no GPU")
sys.exit(0 if found else 1)

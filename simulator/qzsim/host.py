"""The host's own vendor libraries: which have to be hidden, and which OpenCL loader is the real one."""

import functools
import re
import subprocess
from pathlib import Path
from typing import List, Optional

_VENDOR = re.compile(r"lib(OpenCL|cuda|cudart|nvidia-ml)\.so(\.[0-9.]+)?$")
_FOLDERS = ("/lib", "/lib64", "/usr/lib", "/usr/lib64", "/usr/local/lib", "/lib/x86_64-linux-gnu",
            "/usr/lib/x86_64-linux-gnu", "/usr/local/cuda/lib64", "/usr/lib/wsl/lib")


@functools.lru_cache(maxsize=None)
def vendor_libraries() -> tuple:
    """Every file that the dynamic loader could find under a vendor library's name, links resolved."""
    found = set()
    for command in ("/sbin/ldconfig", "/usr/sbin/ldconfig"):
        try:
            cache = subprocess.run([command, "-p"], capture_output=True, check=False).stdout.decode("utf-8", "replace")
        except OSError:
            continue
        found.update(line.rsplit(" => ", 1)[1].strip() for line in cache.splitlines() if " => " in line)
        break
    for folder in _FOLDERS:
        found.update(str(path) for path in Path(folder).glob("lib*.so*"))
    return tuple(sorted({str(Path(path).resolve()) for path in found
                         if _VENDOR.search(path) and Path(path).is_file()}))


def real_opencl_loader() -> Optional[Path]:
    """The system's OpenCL loader, or None when it has none."""
    loaders = [path for path in vendor_libraries() if Path(path).name.startswith("libOpenCL.so")]
    return Path(loaders[0]) if loaders else None


def pocl_vendor_files() -> List[Path]:
    """The registrations of PoCL with the OpenCL loader."""
    return sorted(path for path in Path("/etc/OpenCL/vendors").glob("*.icd")
                  if b"pocl" in path.read_bytes().lower())


def opencl_is_missing(driver: Optional[Path]) -> Optional[str]:
    """Why the driver (a library; None: PoCL) cannot run kernels on this host, or None if it can."""
    if real_opencl_loader() is None:
        return "no OpenCL loader is installed (package ocl-icd-libopencl1)"
    if driver is not None and not driver.exists():
        return f"{driver} is not installed"
    if driver is None and not pocl_vendor_files():
        return "PoCL is not installed (package pocl-opencl-icd)"
    return None

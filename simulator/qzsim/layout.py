"""The folder from which a machine is laid around the program: /sys, the libraries, os-release, /dev/shm."""

import os
import shutil
from pathlib import Path
from typing import Optional

from . import elf
from .description import Card, Library, Machine, SysfsFile
from .host import pocl_vendor_files, real_opencl_loader


def _write_file(path: Path, file: SysfsFile) -> None:
    path.parent.mkdir(parents=True, exist_ok=True)
    if file.kind == "directory":
        path.mkdir()
    elif file.kind == "dangling":
        path.symlink_to("nowhere")
    elif file.kind != "missing":
        path.write_bytes(file.content)
        if file.kind == "unreadable":
            path.chmod(0)


def _write_card(sys: Path, card: Card) -> None:
    entry = sys / "class/drm" / card.name
    entry.mkdir(parents=True)
    for connector in card.connectors:
        (sys / "class/drm" / f"{card.name}-{connector}").mkdir()
    if card.device == "missing":
        return
    device = entry / "device"
    if card.device == "dangling":
        device.symlink_to("../../../devices/nowhere/" + card.address)
        return
    if card.device == "bytes":
        folder = sys / "devices/pci0000:00" / card.address
        folder.mkdir(parents=True, exist_ok=True)
        device.symlink_to(f"../../../devices/pci0000:00/{card.address}")
        device = folder
    device.mkdir(exist_ok=True)
    for name in card.hwmon:
        (device / "hwmon" / name).mkdir(parents=True, exist_ok=True)
    for file in card.files:
        _write_file(device / file.path, file)


class Layout:
    """A machine's files below `root`. What a test changes there while the program runs, the program sees."""

    def __init__(self, root: Path, machine: Machine, stand_ins: Path) -> None:
        self.root = root
        self.sys = root / "sys"
        self.libraries = root / "lib"
        self.counters = root / "counters"
        self.os_release: Optional[Path] = None
        self.real_opencl: Optional[Path] = None
        self.opencl_drivers = root / "opencl-drivers"
        self._write_sys(machine)
        self._write_libraries(machine, stand_ins)
        if machine.os_release is not None:
            self.os_release = root / "os-release"
            self.os_release.write_bytes(machine.os_release)
        if machine.pocl:
            self._copy_opencl_loader()
            self._register_pocl()

    def card(self, name: str) -> Path:
        """The device folder of a card, for tests that change it."""
        return (self.sys / "class/drm" / name / "device").resolve()

    def _write_sys(self, machine: Machine) -> None:
        drm = self.sys / "class/drm"
        drm.mkdir(parents=True)
        # The processor's own entries show through here, since PoCL looks at them.
        (self.sys / "devices/system").mkdir(parents=True)
        (drm / "version").write_text("drm 1.1.0 20060810\n")
        for name in machine.drm_entries:
            (drm / name).mkdir()
        for card in machine.cards:
            _write_card(self.sys, card)

    def _write_libraries(self, machine: Machine, stand_ins: Path) -> None:
        self.libraries.mkdir()
        for library in machine.libraries:
            self._write_library(library, stand_ins / library.file)

    def _write_library(self, library: Library, stand_in: Path) -> None:
        link = self.libraries / library.link
        if library.form == "absent":
            return
        if library.form == "text-file":
            link.write_text("this is no library\n")
            return
        if library.form == "good" and not library.omit:
            link.symlink_to(stand_in)
            return
        image = stand_in.read_bytes()
        for symbol in library.omit:
            image = elf.without_symbol(image, symbol)
        if library.form == "other-architecture":
            image = elf.of_other_architecture(image)
        link.write_bytes(image)

    def _copy_opencl_loader(self) -> None:
        """A copy, since the original is hidden, under a soname of its own, since the stand-in has that one."""
        real = real_opencl_loader()
        if real is None:
            return
        self.real_opencl = self.root / "libRealOpenCL.so"
        self.real_opencl.write_bytes(elf.with_other_soname(real.read_bytes(), "libOpenCL.so.1"))

    def _register_pocl(self) -> None:
        """Registers PoCL alone with the loader, which would load every driver of the host otherwise."""
        self.opencl_drivers.mkdir()
        for path in pocl_vendor_files():
            shutil.copy(path, self.opencl_drivers)

    def remove(self) -> None:
        shutil.rmtree(self.root, ignore_errors=True)


def kernel_cache(fallback: Path) -> Path:
    """Where PoCL keeps compiled kernels between runs; below `fallback` where the user's own cache cannot be used."""
    base = os.environ.get("XDG_CACHE_HOME") or os.path.join(os.path.expanduser("~"), ".cache")
    cache = Path(base) / "qzsim-pocl"
    try:
        cache.mkdir(parents=True, exist_ok=True)
    except OSError:
        cache = fallback / "pocl"
        cache.mkdir()
    return cache

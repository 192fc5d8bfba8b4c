"""Small changes to a shared library's bytes: enough to make it lack a symbol or be another machine's."""

import struct


class ElfError(Exception):
    """The bytes are no library of this kind, or do not hold what is to be changed."""


def _check(image: bytes) -> None:
    if image[:5] != b"\x7fELF\x02":
        raise ElfError("not a 64-bit ELF file")


def _rename(image: bytes, name: str, new_name: str) -> bytes:
    """Replaces a NUL-terminated name of the string tables by one of the same length."""
    _check(image)
    old = b"\0" + name.encode() + b"\0"
    new = b"\0" + new_name.encode() + b"\0"
    if old not in image or len(old) != len(new):
        raise ElfError(f"no name {name} that could become {new_name}")
    return image.replace(old, new)


def without_symbol(image: bytes, name: str) -> bytes:
    """The library without that symbol: a look-up by its name finds nothing."""
    return _rename(image, name, "~" + name[1:])


def with_other_soname(image: bytes, name: str) -> bytes:
    """The library under another soname, so that the dynamic loader does not take it for the one it stands beside."""
    return _rename(image, name, "~" + name[1:])


def of_other_architecture(image: bytes) -> bytes:
    """The library with the machine number of AArch64 (183) in its header."""
    _check(image)
    return image[:18] + struct.pack("<H", 183) + image[20:]

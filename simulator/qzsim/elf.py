"""Small changes to a shared library's bytes: enough to make it lack a symbol or be another machine's."""

import struct
from typing import Tuple

_SHT_DYNSYM = 11


class ElfError(Exception):
    """The bytes are no library of this kind, or do not hold what is to be changed."""


def _check(image: bytes) -> None:
    if image[:5] != b"\x7fELF\x02":
        raise ElfError("not a 64-bit ELF file")


def _dynamic_names(image: bytes) -> Tuple[int, int]:
    """Where the names that the dynamic loader looks at begin and end."""
    _check(image)
    table, = struct.unpack_from("<Q", image, 40)
    size, count = struct.unpack_from("<HH", image, 58)
    sections = [struct.unpack_from("<IIQQQQI", image, table + index * size) for index in range(count)]
    for section in sections:
        if section[1] == _SHT_DYNSYM:
            names = sections[section[6]]
            return names[4], names[4] + names[5]
    raise ElfError("no dynamic symbols")


def _rename(image: bytes, name: str, new_name: str) -> bytes:
    """Replaces a dynamic name by one of the same length; the same text elsewhere in the file stays."""
    begin, end = _dynamic_names(image)
    old = b"\0" + name.encode() + b"\0"
    new = b"\0" + new_name.encode() + b"\0"
    names = image[begin:end]
    if old not in names or len(old) != len(new):
        raise ElfError(f"no name {name} that could become {new_name}")
    return image[:begin] + names.replace(old, new) + image[end:]


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

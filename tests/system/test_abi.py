"""The binary interface of libqzgpuinfo.so.1. reader/c/abi.txt records what programs rely on that were built with an
earlier header: lines may be added at the end of their group; one that changes or goes needs another soname."""

import os
import re
import subprocess
import tempfile
import unittest
from pathlib import Path

FOLDER = Path(os.environ["QZGPUINFO_SOURCE"]) / "reader" / "c"
LIBRARY = Path(os.environ["QZGPUINFO_BUILD"]) / "reader" / "c" / "libqzgpuinfo.so.1"
HEADER = (FOLDER / "qzgpuinfo.h").read_text(encoding="utf-8")
# The oldest system that it has to run on.
NEWEST = {"GLIBC": (2, 34), "GLIBCXX": (3, 4, 29), "CXXABI": (1, 3, 13), "GCC": (11,)}


def call(*command):
    return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True, timeout=60, check=True).stdout


def without_comments(text):
    return re.sub(r"/\*.*?\*/", "", text, flags=re.DOTALL)


def structures():
    """Each structure of the header with the names of its members."""
    for name, body in re.findall(r"typedef struct (\w+) \{(.*?)\} \1;", without_comments(HEADER), re.DOTALL):
        yield name, re.findall(r"(\w+)(?:\[\w+\])?;", body)


def constants():
    for body in re.findall(r"typedef enum \w+ \{(.*?)\}", without_comments(HEADER), re.DOTALL):
        yield from re.findall(r"QZGPUINFO_\w+", body)
    yield from re.findall(r"#define (QZGPUINFO_\w+) \d", HEADER)


def layout():
    """What a C compiler makes of the header: a line for each structure, member and constant."""
    lines = []
    for name, members in structures():
        lines.append(f'printf("struct {name}: %zu bytes\\n", sizeof(struct {name}));')
        lines += [f'printf("struct {name}: %zu %zu {member}\\n", offsetof(struct {name}, {member}), '
                  f'sizeof ((struct {name}*)0)->{member});' for member in members]
    lines += [f'printf("{name} = %d\\n", (int){name});' for name in constants()]
    source = f'#include <stddef.h>\n#include <stdio.h>\n#include "qzgpuinfo.h"\nint main(void) {{ {" ".join(lines)} return 0; }}'
    with tempfile.TemporaryDirectory() as folder:
        path = Path(folder) / "layout.c"
        path.write_text(source, encoding="utf-8")
        call("gcc", "-std=c99", "-Wall", "-Werror", "-I", FOLDER, path, "-o", path.with_suffix(""))
        return call(path.with_suffix("")).splitlines()


def symbols():
    """What the library exports, with versions; not the version's own symbol."""
    for line in call("nm", "--dynamic", "--defined-only", "--with-symbol-versions", LIBRARY).splitlines():
        _, kind, symbol = line.split()
        if kind != "A":
            yield f"{kind} {symbol}"


class BinaryInterface(unittest.TestCase):
    def test_as_recorded(self):
        recorded = (FOLDER / "abi.txt").read_text(encoding="utf-8").splitlines()
        recorded = [line for line in recorded if line and not line.startswith("#")]
        self.assertGreater(len(recorded), 60)
        self.assertEqual([*layout(), *sorted(symbols())], recorded)

    def test_every_function_of_the_header_is_exported(self):
        declared = set(re.findall(r"(qzgpuinfo_\w+)\(", without_comments(HEADER)))
        self.assertEqual(declared, {symbol.split()[1].split("@")[0] for symbol in symbols()})

    def test_name(self):
        self.assertIn("[libqzgpuinfo.so.1]", call("readelf", "--dynamic", LIBRARY))

    def test_needs_the_c_and_cpp_libraries_alone(self):
        needed = set(re.findall(r"\(NEEDED\).*\[(.*?)\]", call("readelf", "--dynamic", "--wide", LIBRARY)))
        sanitizers = {name for name in needed if re.match(r"lib(asan|ubsan|clang_rt)", name)}
        self.assertLessEqual(needed - sanitizers, {"libstdc++.so.6", "libgcc_s.so.1", "libc.so.6", "libm.so.6"})

    def test_needs_no_newer_libraries(self):
        versions = re.findall(r"Name: (\w+?)_([\d.]+) ", call("readelf", "--version-info", "--wide", LIBRARY))
        self.assertLessEqual({"GLIBC", "GLIBCXX"}, {kind for kind, _ in versions})
        self.assertEqual([(kind, number) for kind, number in versions
                          if kind in NEWEST and tuple(map(int, number.split("."))) > NEWEST[kind]], [])


if __name__ == "__main__":
    unittest.main()

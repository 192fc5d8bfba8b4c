"""The installed libraries as outside projects use them: by CMake packages and by pkg-config, staged and moved, with the
examples of docs/library.md as the programs."""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import textwrap
import unittest
from pathlib import Path

from segment_bytes import Segment, block, record

BUILD = Path(os.environ["QZGPUINFO_BUILD"])
SOURCE = Path(os.environ["QZGPUINFO_SOURCE"])
EXAMPLES = SOURCE / "docs" / "examples"
WARNINGS = ["-Wall", "-Wextra", "-Werror", "-pedantic"]

PROJECT = """
cmake_minimum_required(VERSION 3.16)
project(outside LANGUAGES C CXX)
find_package(qzgpuinfo 1.0 REQUIRED)
find_package(qzGpuInfoReader 1.0 REQUIRED)
add_executable(in_c gpus.c)
target_link_libraries(in_c PRIVATE qzgpuinfo::qzgpuinfo)
add_executable(in_cpp gpus.cpp)
target_link_libraries(in_cpp PRIVATE qzGpuInfoReader::qzgpureader)
"""
# Written for the deprecated headers; looks at no GPU.
DEPRECATED = r"""
#include <cstdio>
#include "reader/isFresh.h"
int main(int, char** argv) {
    GpuSnapshot snapshot;
    const SegmentResult result = GpuSegmentReader(argv[1]).read(snapshot);
    std::printf("%s, %sfresh\n", segmentResultText(result), isFresh(snapshot) ? "" : "not ");
    std::printf("%d\n", snapshot.gpuCount());
}
"""


def call(*command, **options):
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=120, **options)
    if result.returncode != 0:
        raise AssertionError(f"{command}: {result.stdout}")
    return result.stdout


def cached(variable):
    with open(BUILD / "CMakeCache.txt", encoding="utf-8") as cache:
        return next(line.split("=", 1)[1].strip() for line in cache if line.startswith(variable + ":"))


def c_compiler():
    """The one that belongs to the C++ compiler: its sanitizers are the library's."""
    return re.sub(r"(c|g|clang)\+\+", lambda match: {"c": "cc", "g": "gcc"}.get(match[1], match[1]),
                  cached("CMAKE_CXX_COMPILER"))


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        staged = cls.folder / "staged"
        call("cmake", "--install", BUILD, "--prefix", staged, "--component", "reader")
        cls.prefix = cls.folder / "moved"
        staged.rename(cls.prefix)
        cls.shared = next(cls.prefix.rglob("libqzgpuinfo.so.1"))
        # A library built with sanitizers needs their run-time library in whatever links it.
        cls.sanitizers = cached("QZGPUINFO_SANITIZE")
        cls.flags = [f"-fsanitize={cls.sanitizers}"] if cls.sanitizers else []

    def environment(self):
        """Finds the shared library; for programs that are not built here, its sanitizers too. What those programs
        leak is theirs."""
        found = {**os.environ, "LD_LIBRARY_PATH": str(self.shared.parent)}
        if self.sanitizers:
            found["LD_PRELOAD"] = call(c_compiler(), "-print-file-name=libasan.so").strip()
            found["ASAN_OPTIONS"] = "detect_leaks=0"
        return found

    def flags_of(self, package):
        description = next(self.prefix.rglob(f"{package}.pc"))
        return call("pkg-config", "--cflags", "--libs", description).split()

    def compile(self, compiler, *arguments):
        program = self.folder / "program"
        call(compiler, *self.flags, *arguments[:1], "-o", program, *arguments[1:])
        return program

    def expect_to_read(self, *program, **options):
        """The example's lines for each thing that it distinguishes."""
        def said():
            done = subprocess.run([*program, segment.directory], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT, text=True, timeout=60, **options)
            return done.returncode, done.stdout
        gpus = [record("RTX ü".encode(), usage=20), record(b"\xff", index=1, temperature=0)], [record(b"Navi", kind=2, speed=1)]
        lines = "Cuda RTX ü: 20 %\nCuda \N{REPLACEMENT CHARACTER}: load unknown\nAMD Navi: does not answer\n"
        with Segment(block(*gpus)) as segment:
            self.assertEqual(said(), (0, lines))
        with Segment(block(*gpus), age=1000) as segment:
            code, text = said()
            self.assertEqual(code, 1)
            self.assertRegex(text, rf"\Astale, published 10\d\d s ago\n{re.escape(lines)}\Z")
        with Segment(block(ready=0)) as segment:
            self.assertEqual(said(), (1, "the segment holds no data yet; its first update cycle is not done\n"))
        with Segment() as segment:
            self.assertEqual(said(), (1, "there is no segment; the companion does not run\n"))

    def test_cmake_packages(self):
        project = self.folder / "project"
        shutil.copytree(EXAMPLES, project)
        (project / "CMakeLists.txt").write_text(PROJECT, encoding="utf-8")
        call("cmake", "-S", project, "-B", project / "build", f"-DCMAKE_PREFIX_PATH={self.prefix}",
             f"-DCMAKE_CXX_COMPILER={cached('CMAKE_CXX_COMPILER')}", f"-DCMAKE_C_COMPILER={c_compiler()}",
             f"-DCMAKE_CXX_FLAGS={' '.join(self.flags)}", f"-DCMAKE_C_FLAGS={' '.join(self.flags)}")
        call("cmake", "--build", project / "build")
        for program in ("in_c", "in_cpp"):
            with self.subTest(program):
                self.expect_to_read(project / "build" / program)

    @unittest.skipUnless(shutil.which("pkg-config"), "SKIPPED: pkg-config is not installed")
    def test_c_by_pkg_config(self):
        program = self.compile(c_compiler(), EXAMPLES / "gpus.c", "-std=c99", *WARNINGS, *self.flags_of("qzgpuinfo"))
        self.expect_to_read(program, env={**os.environ, "LD_LIBRARY_PATH": str(self.shared.parent)})

    @unittest.skipUnless(shutil.which("pkg-config"), "SKIPPED: pkg-config is not installed")
    def test_cpp_by_pkg_config(self):
        self.expect_to_read(self.compile(cached("CMAKE_CXX_COMPILER"), EXAMPLES / "gpus.cpp", "-std=c++17", *WARNINGS,
                                         *self.flags_of("qzGpuInfoReader")))

    def test_python(self):
        self.expect_to_read(sys.executable, EXAMPLES / "gpus.py", env={**self.environment(), "PYTHONIOENCODING": "utf-8"})

    @unittest.skipUnless(shutil.which("luajit"), "SKIPPED: luajit is not installed")
    def test_luajit(self):
        self.expect_to_read("luajit", EXAMPLES / "gpus.lua", env=self.environment())

    def test_the_examples_are_those_of_the_page(self):
        page = (SOURCE / "docs" / "library.md").read_text(encoding="utf-8")
        for name in ("gpus.c", "gpus.py", "gpus.lua", "gpus.cpp"):
            with self.subTest(name):
                self.assertIn("\n\n" + textwrap.indent((EXAMPLES / name).read_text(encoding="utf-8"), "    ") + "\n", page)

    def test_the_c_header_in_cpp(self):
        header = self.prefix / "include" / "qzgpuinfo.h"
        for language, standard in (("c", "c99"), ("c++", "c++11"), ("c++", "c++17")):
            call(cached("CMAKE_CXX_COMPILER"), "-x", language, f"-std={standard}", *WARNINGS, "-fsyntax-only", header)

    def test_each_header_is_complete(self):
        headers = sorted(path.relative_to(self.prefix / "include") for path in self.prefix.rglob("*.h"))
        self.assertEqual({str(header) for header in headers if "reader" not in header.parts},
                         {"qzgpuinfo.h", *(f"qzgpuinfo/{name}.h" for name in ("Gpu", "Reader", "SegmentState", "Snapshot"))})
        for header in headers:
            if "reader" not in header.parts:
                source = self.folder / "alone.cpp"
                source.write_text(f"#include <{header}>\n", encoding="utf-8")
                call(cached("CMAKE_CXX_COMPILER"), "-std=c++17", *WARNINGS, "-fsyntax-only", "-I", self.prefix / "include",
                     source)

    def test_deprecated_headers(self):
        source = self.folder / "deprecated.cpp"
        source.write_text(DEPRECATED, encoding="utf-8")
        library = next(self.prefix.rglob("libqzgpureader.a"))
        command = [cached("CMAKE_CXX_COMPILER"), "-std=c++17", *self.flags, source, "-o", self.folder / "deprecated",
                   "-I", self.prefix / "include", "-I", self.prefix / "include" / "qzgpuinfo", library]
        self.assertIn("reader/GpuSegmentReader.h is deprecated: include qzgpuinfo/Reader.h", call(*command))
        with Segment(block([record(b"RTX")])) as segment:
            self.assertEqual(call(self.folder / "deprecated", segment.directory), "the GPU list was read, fresh\n1\n")

    def test_the_command_is_installed_too(self):
        program = self.prefix / "bin" / "qzGpuStatus"
        self.assertRegex(call(program, "--version"), r"\AqzGpuStatus \d")
        self.assertNotRegex(call("ldd", program), r"Qt|OpenCL|nvidia|cuda")


if __name__ == "__main__":
    unittest.main()

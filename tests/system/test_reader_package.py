"""The installed reader as an outside project uses it: by its CMake package and by pkg-config, staged and moved."""

import os
import re
import shutil
import subprocess
import tempfile
import unittest

from segment_bytes import Segment, block, record

BUILD = os.environ["QZGPUINFO_BUILD"]

SOURCE = r"""
#include <cstdio>
#include "reader/isFresh.h"
int main(int, char** argv) {
    GpuSnapshot snapshot;
    const SegmentResult result = GpuSegmentReader(argv[1]).read(snapshot);
    std::printf("%s, %sfresh\n", segmentResultText(result), isFresh(snapshot) ? "" : "not ");
    for (int i = 0; i < snapshot.gpuCount(); ++i)
        std::printf("%s %s\n", gpuTypeName(snapshot.gpu(i)), snapshot.gpu(i).name);
}
"""
PROJECT = """
cmake_minimum_required(VERSION 3.16)
project(outside LANGUAGES CXX)
find_package(qzGpuInfoReader 1.0 REQUIRED)
add_executable(outside outside.cpp)
target_link_libraries(outside PRIVATE qzGpuInfoReader::qzgpureader)
"""


def call(*command, **options):
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=120, **options)
    if result.returncode != 0:
        raise AssertionError(f"{command}: {result.stdout}")
    return result.stdout


def cached(variable):
    with open(os.path.join(BUILD, "CMakeCache.txt"), encoding="utf-8") as cache:
        return next(line.split("=", 1)[1].strip() for line in cache if line.startswith(variable + ":"))


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = folder.name
        staged = os.path.join(cls.folder, "staged")
        call("cmake", "--install", BUILD, "--prefix", staged, "--component", "reader")
        cls.prefix = os.path.join(cls.folder, "moved")
        os.rename(staged, cls.prefix)
        with open(os.path.join(cls.folder, "outside.cpp"), "w", encoding="utf-8") as file:
            file.write(SOURCE)
        with open(os.path.join(cls.folder, "CMakeLists.txt"), "w", encoding="utf-8") as file:
            file.write(PROJECT)
        # A library built with sanitizers needs their run-time library in whatever links it.
        sanitizers = cached("QZGPUINFO_SANITIZE")
        cls.flags = [f"-fsanitize={sanitizers}"] if sanitizers else []

    def expect_to_read(self, program):
        with Segment(block([record(b"RTX")], [record(b"Navi", kind=2)])) as segment:
            self.assertEqual(call(program, segment.directory), "the GPU list was read, fresh\nCuda RTX\nAMD Navi\n")
        with Segment() as segment:
            self.assertEqual(call(program, segment.directory), "there is no segment; the companion does not run, not fresh\n")

    def test_cmake_package(self):
        build = os.path.join(self.folder, "build")
        call("cmake", "-S", self.folder, "-B", build, f"-DCMAKE_PREFIX_PATH={self.prefix}",
             f"-DCMAKE_CXX_COMPILER={cached('CMAKE_CXX_COMPILER')}", f"-DCMAKE_CXX_FLAGS={' '.join(self.flags)}")
        call("cmake", "--build", build)
        self.expect_to_read(os.path.join(build, "outside"))

    def test_the_documented_example(self):
        with open(os.path.join(os.environ["QZGPUINFO_SOURCE"], "docs", "segment.md"), encoding="utf-8") as file:
            example = file.read().split("## The C++ library\n")[1]
        head, body = re.search(r'( {4}#include "reader.*?\n)(.*?)\n(?! {4}|\n)', example, re.S).groups()
        source = os.path.join(self.folder, "example.cpp")
        with open(source, "w", encoding="utf-8") as file:
            file.write(f"#include <cstdio>\n{head}int main() {{\n{body}\n}}\n")
        includes = os.path.join(self.prefix, "include", "qzgpuinfo")
        call(cached("CMAKE_CXX_COMPILER"), "-std=c++17", "-Wall", "-Werror", "-fsyntax-only", "-I", includes, source)

    @unittest.skipUnless(shutil.which("pkg-config"), "SKIPPED: pkg-config is not installed")
    def test_pkg_config(self):
        found = next(os.path.join(folder, "qzGpuInfoReader.pc") for folder, _, files in os.walk(self.prefix)
                     if "qzGpuInfoReader.pc" in files)
        flags = call("pkg-config", "--cflags", "--libs", found).split()
        program = os.path.join(self.folder, "outside")
        call(cached("CMAKE_CXX_COMPILER"), "-std=c++17", *self.flags, os.path.join(self.folder, "outside.cpp"), "-o",
             program, *flags)
        self.expect_to_read(program)

    def test_the_command_is_installed_too(self):
        program = os.path.join(self.prefix, "bin", "qzGpuStatus")
        self.assertRegex(call(program, "--version"), r"\AqzGpuStatus \d")
        needed = call("ldd", program)
        self.assertNotRegex(needed, r"Qt|OpenCL|nvidia|cuda")


if __name__ == "__main__":
    unittest.main()

#!/usr/bin/env python3
"""Prints the GPUs that a companion publishes: gpus.py [DIRECTORY]"""

import ctypes
import sys
from ctypes import c_char, c_char_p, c_double, c_float, c_int32, c_uint8, c_uint32, c_void_p

OK = FRESH = 0


class State(ctypes.Structure):
    _fields_ = [("size", c_uint32), ("gpu_count", c_uint32), ("freshness", c_uint32), ("system_error", c_int32),
                ("opened", c_uint8), ("attached", c_uint8), ("published", c_uint8), ("measuring", c_uint8),
                ("reserved", c_uint8 * 4), ("published_at", c_double), ("age_seconds", c_double)]


class Gpu(ctypes.Structure):
    _fields_ = [("size", c_uint32), ("kind", c_uint32), ("device_index", c_int32), ("listed", c_uint8),
                ("answering", c_uint8), ("opencl_matched", c_uint8), ("optix_capable", c_uint8),
                ("amd_ray_tracing", c_uint8), ("has_usage", c_uint8), ("has_temperature", c_uint8),
                ("has_memory_total", c_uint8), ("has_memory_used", c_uint8), ("has_memory_free", c_uint8),
                ("has_speed", c_uint8), ("reserved", c_uint8), ("usage_percent", c_int32),
                ("temperature_celsius", c_int32), ("memory_total_mib", c_int32), ("memory_used_mib", c_int32),
                ("memory_free_mib", c_int32), ("speed_gps", c_float), ("name", c_char * 192)]


library = ctypes.CDLL("libqzgpuinfo.so.1")
library.qzgpuinfo_open.argtypes = [c_char_p, ctypes.POINTER(c_void_p)]
library.qzgpuinfo_read.argtypes = [c_void_p, c_uint32, ctypes.POINTER(State)]
library.qzgpuinfo_get_gpu.argtypes = [c_void_p, c_uint32, ctypes.POINTER(Gpu)]
library.qzgpuinfo_close.argtypes = [c_void_p]
library.qzgpuinfo_result_text.restype = library.qzgpuinfo_kind_text.restype = c_char_p

reader = c_void_p()
state = State(size=ctypes.sizeof(State))
gpu = Gpu(size=ctypes.sizeof(Gpu))

directory = sys.argv[1].encode() if len(sys.argv) > 1 else None
result = library.qzgpuinfo_open(directory, reader)
if result == OK:
    result = library.qzgpuinfo_read(reader, 1000, state)

if result != OK:
    print(library.qzgpuinfo_result_text(result).decode())
elif state.freshness != FRESH:
    print(f"stale, published {state.age_seconds:.0f} s ago")

for i in range(state.gpu_count):
    library.qzgpuinfo_get_gpu(reader, i, gpu)
    load = f"{gpu.usage_percent} %" if gpu.has_usage else "load unknown" if gpu.answering else "does not answer"
    print(f"{library.qzgpuinfo_kind_text(gpu.kind).decode()} {gpu.name.decode()}: {load}")

library.qzgpuinfo_close(reader)
sys.exit(0 if result == OK and state.freshness == FRESH else 1)

# Stand-ins for the dynamic loader and the vendors' libraries, which the tests of opencl/, nvidia/ and amd/ share.
add_library(qz_fakes STATIC FakeCalls.cpp FakeCuda.cpp FakeLoader.cpp FakeNvml.cpp FakeOpenCL.cpp
            VirtualTime.cpp)
target_link_libraries(qz_fakes PUBLIC qz_opencl)

qz_unit_test(errorName LINK qz_opencl)
qz_unit_test(OpenCLDevices LINK qz_fakes)
qz_unit_test(GpuBenchmarkOpenCL_Context LINK qz_fakes)
qz_unit_test(GpuBenchmarkOpenCL LINK qz_fakes)
qz_unit_test(GpuBenchmarkOpenCL_score LINK qz_fakes)
qz_unit_test(GpuBenchmarkOpenCL_failures LINK qz_fakes)
qz_unit_test(benchmarkGpu LINK qz_fakes)

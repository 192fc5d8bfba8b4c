# The simulated machine's own parts: its descriptions, and its stand-in libraries through the dynamic loader.
qz_unit_test(SimulatorDescription LINK qzsim)
qz_unit_test(SimulatorFault LINK qzsim)
qz_unit_test(SimulatorKernelSide LINK qzsim)
foreach(name SimulatorNvidia SimulatorOpenCl SimulatorFiles)
    qz_unit_test(${name} LINK qzsim ${CMAKE_DL_LIBS})
    add_dependencies(test_${name} qzsim-nvml qzsim-cuda qzsim-cudart11 qzsim-cudart12 qzsim-cudart13 qzsim-opencl
                     qzsim-sysfs)
    target_compile_definitions(test_${name} PRIVATE QZSIM_LIB_DIR="${PROJECT_BINARY_DIR}/simulator/lib")
endforeach()

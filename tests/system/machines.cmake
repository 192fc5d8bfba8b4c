# The program on simulated machines. They need bubblewrap, and those whose kernels are really run need PoCL.

qz_system_test(simulate_command)
qz_system_test(demo TIMEOUT 180)
qz_system_test(simulator TIMEOUT 180)
qz_system_test(reports TIMEOUT 180)
qz_system_test(advice TIMEOUT 180)
qz_system_test(answers TIMEOUT 400)
qz_system_test(published TIMEOUT 180)
# The time is for the machines of many GPUs, which QZ_MACHINES=all asks for.
qz_system_test(scores TIMEOUT 1800 ONCE)
if(QZGPUINFO_SANITIZE)
    set_property(TEST system.scores APPEND PROPERTY ENVIRONMENT QZ_MACHINES=both-vendors,no-opencl)
endif()

# What `./dev bench` is made of, and the comparison with nvidia-smi.
qz_system_test(benchmarks TIMEOUT 180 ONCE)
qz_system_test(real_gpu TIMEOUT 180)

# The program with a benchmark on small buffers, for the test that runs it some thousand times.
add_executable(smallBenchmark "${PROJECT_SOURCE_DIR}/app/main.cpp"
               "${PROJECT_SOURCE_DIR}/tests/harness/smallBenchmark.cpp")
target_link_libraries(smallBenchmark PRIVATE qz_app)
set_target_properties(smallBenchmark PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/tests/harness")

# Oclgrind checks memory by itself.
if(NOT QZGPUINFO_SANITIZE)
    qz_system_test(oclgrind TIMEOUT 600 ONCE)
endif()

# The time is for the whole product, which QZ_SWEEP=full asks for; the usual run takes a minute.
qz_system_test(fault_sweep TIMEOUT 3600 ONCE)
if(QZGPUINFO_SANITIZE)
    set_property(TEST system.fault_sweep APPEND PROPERTY ENVIRONMENT QZ_SWEEP=5)
endif()

# Failures of drivers, libraries and cards that were reported from the field.
qz_system_test(field_failures)
qz_system_test(field_failures_files)
qz_system_test(field_failures_process)
qz_test_driver(brokenIcd libbrokenIcd)
qz_system_test(field_failures_opencl)

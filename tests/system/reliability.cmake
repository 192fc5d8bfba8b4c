# What must hold when everything around the program misbehaves.

add_subdirectory("${PROJECT_SOURCE_DIR}/tests/harness" "${PROJECT_BINARY_DIR}/tests/harness")

qz_system_test(kills TIMEOUT 300 ONCE)
qz_system_test(neighbours)
qz_system_test(stuck_reader)
qz_test_driver(exiting libnvidia-ml)
qz_system_test(surroundings)
qz_system_test(weeks TIMEOUT 300 ONCE)
qz_system_test(kills_program ONCE)
# The model's result does not depend on how the programs were built.
if(NOT QZGPUINFO_SANITIZE)
    qz_system_test(model TIMEOUT 900 ONCE)
endif()

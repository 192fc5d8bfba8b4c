# The program's frame and the tree's own tools.

qz_system_test(tooling)
qz_system_test(releases)

# qz_test_driver(<source> <library>): stand-ins for what a broken driver installs, one folder each.
function(qz_test_driver source library)
    add_library(driver_${source} MODULE drivers/${source}.cpp)
    set_target_properties(driver_${source} PROPERTIES
        PREFIX "" OUTPUT_NAME "${library}" SUFFIX ".so.1"
        LIBRARY_OUTPUT_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/drivers/${source}")
endfunction()

qz_test_driver(incompleteNvml libnvidia-ml)
qz_test_driver(incompleteOpenCL libOpenCL)
qz_test_driver(slow libnvidia-ml)
qz_test_driver(slowEnd libnvidia-ml)
qz_test_driver(tellsOrder libtellsOrder)
target_link_libraries(driver_tellsOrder PRIVATE Qt5::Core)
qz_system_test(single)
qz_system_test(segment)
qz_system_test(continuous)
qz_test_driver(talkative libnvidia-ml)
qz_system_test(stuck_output)

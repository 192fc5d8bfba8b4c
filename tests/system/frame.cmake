# The program's frame and the tree's own tools.

qz_system_test(tooling)

# qz_test_vendor_library(<source> <library>): stand-ins for what a broken driver installs, one folder each.
function(qz_test_vendor_library source library)
    add_library(vendor_${source} MODULE vendor/${source}.cpp)
    set_target_properties(vendor_${source} PROPERTIES
        PREFIX "" OUTPUT_NAME "${library}" SUFFIX ".so.1"
        LIBRARY_OUTPUT_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/vendor/${source}")
endfunction()

qz_test_vendor_library(incompleteNvml libnvidia-ml)
qz_test_vendor_library(incompleteOpenCL libOpenCL)
qz_test_vendor_library(slow libnvidia-ml)
qz_test_vendor_library(slowEnd libnvidia-ml)
qz_test_vendor_library(tellsOrder libtellsOrder)
target_link_libraries(vendor_tellsOrder PRIVATE Qt5::Core)
qz_system_test(single)
qz_system_test(segment)
qz_system_test(continuous)

# The installed library: headers below include/qzgpuinfo with the folders they have here, a CMake package and a
# pkg-config file. An outside project writes #include "reader/GpuSegmentReader.h" as this tree does.
include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/qzGpuInfoReader")
set(pkgconfig_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

install(TARGETS qzgpureader EXPORT qzGpuInfoReader
        ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT reader)
install(FILES GpuSegmentReader.h isFresh.h
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/qzgpuinfo/reader" COMPONENT reader)
install(FILES "${PROJECT_SOURCE_DIR}/gpu/GpuDevice.h" "${PROJECT_SOURCE_DIR}/gpu/GpuInfoBlock.h"
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/qzgpuinfo/gpu" COMPONENT reader)

install(EXPORT qzGpuInfoReader NAMESPACE qzGpuInfoReader:: FILE qzGpuInfoReaderConfig.cmake
        DESTINATION "${package_dir}" COMPONENT reader)
write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/qzGpuInfoReaderConfigVersion.cmake"
                                 COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/qzGpuInfoReaderConfigVersion.cmake"
        DESTINATION "${package_dir}" COMPONENT reader)

# The prefix is found from the file's own place, so that a tree may be moved or staged.
file(RELATIVE_PATH pkgconfig_to_prefix "/${pkgconfig_dir}" "/")
configure_file(qzGpuInfoReader.pc.in qzGpuInfoReader.pc @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/qzGpuInfoReader.pc"
        DESTINATION "${pkgconfig_dir}" COMPONENT reader)

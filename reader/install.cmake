# The installed libraries: headers, CMake packages and pkg-config files, whose prefix is relative to the file, so that an
# installed tree can be moved.
include(CMakePackageConfigHelpers)

set(pkgconfig_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
file(RELATIVE_PATH pkgconfig_to_prefix "/${pkgconfig_dir}" "/")

# install_reader(<target> <package>): a library with its CMake package, whose targets are <package>::<target>, and
# <package>.pc.
function(install_reader target package)
    set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/${package}")
    set(version_file "${CMAKE_CURRENT_BINARY_DIR}/${package}ConfigVersion.cmake")
    install(TARGETS ${target} EXPORT ${package} DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT reader)
    install(EXPORT ${package} NAMESPACE ${package}:: FILE ${package}Config.cmake
            DESTINATION "${package_dir}" COMPONENT reader)
    write_basic_package_version_file("${version_file}" COMPATIBILITY SameMajorVersion)
    install(FILES "${version_file}" DESTINATION "${package_dir}" COMPONENT reader)
    configure_file(${package}.pc.in ${package}.pc @ONLY)
    install(FILES "${CMAKE_CURRENT_BINARY_DIR}/${package}.pc" DESTINATION "${pkgconfig_dir}" COMPONENT reader)
endfunction()

install_reader(qzgpureader qzGpuInfoReader)
install_reader(qzgpuinfo qzgpuinfo)
install(DIRECTORY include/ DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT reader)
install(DIRECTORY deprecated/ DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/qzgpuinfo" COMPONENT reader)
install(FILES c/qzgpuinfo.h DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT reader)

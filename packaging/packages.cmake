# The packages that CPack makes of what is installed; stage.cmake adapts the files to each kind.
compressed("${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian.gz" debian/changelog.in)

# All that `./dev package` builds.
add_custom_target(packaged DEPENDS qzGpuInfo qzGpuStatus qzGpuDoctor qzgpureader qzgpuinfo
                  qz_compressed_changelog qz_compressed_changelog.Debian)

set(CPACK_PACKAGE_NAME qzgpuinfo)
set(CPACK_PACKAGE_VENDOR "qzGpuInfo developers")
set(CPACK_PACKAGE_CONTACT "${QZGPUINFO_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "detects and benchmarks the GPUs of a machine")
set(description "\
qzGpuInfo detects the NVIDIA and AMD GPUs of a machine, reads their load,
temperature and memory, and benchmarks them with OpenCL. A single run
answers a question about the GPUs by its exit code; as a companion it
publishes the figures of every GPU in shared memory, every 4 seconds.
@blank@
qzGpuStatus shows what a companion publishes: as a table, as JSON or as
metrics for Prometheus. Libraries with a C and a C++ interface, with their
CMake packages and pkg-config files, read the published list in other
programs.
@blank@
qzGpuDoctor explains why a GPU is missing or slow to answer: it examines
drivers, rights and OpenCL, and says what to do.
@blank@
No vendor library is needed; installed ones are loaded.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_BINARY_DIR}/stage.cmake")
configure_file(stage.cmake.in stage.cmake @ONLY)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

string(REPLACE "@blank@" "." CPACK_DEBIAN_PACKAGE_DESCRIPTION "${description}")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${QZGPUINFO_PACKAGE_RELEASE})
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Gives packages that link the library their dependency on this one.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "ocl-icd-libopencl1 | libopencl1")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
foreach(file postinst prerm postrm triggers)
    list(APPEND CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA "${CMAKE_CURRENT_SOURCE_DIR}/debian/${file}")
endforeach()

string(REPLACE "@blank@" "" CPACK_RPM_PACKAGE_DESCRIPTION "${description}")
set(CPACK_PACKAGE_RELOCATABLE OFF)
set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_RELEASE ${QZGPUINFO_PACKAGE_RELEASE})
set(CPACK_RPM_PACKAGE_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_RPM_PACKAGE_LICENSE LicenseRef-all-rights-reserved)
set(CPACK_RPM_USER_FILELIST "%license /usr/share/doc/qzgpuinfo/copyright")
set(CPACK_RPM_COMPRESSION_TYPE xz)
configure_file(rpm/changelog.in changelog.rpm @ONLY)
set(CPACK_RPM_CHANGELOG_FILE "${CMAKE_CURRENT_BINARY_DIR}/changelog.rpm")
# An .rpm depends on libraries by their sonames; the versions that Debian's ncurses gives its symbols are not in Fedora's.
# pkg-config, which reads the .pc files, is left to developers. The same tree gives the same package.
set(CPACK_RPM_SPEC_MORE_DEFINE "\
Recommends: libOpenCL.so.1()(64bit)
%define __requires_exclude ^/usr/bin/pkg-config$|[(]NCURSES
%define _build_id_links none
%define _buildhost localhost
%define use_source_date_epoch_as_buildtime 1
%define clamp_mtime_to_source_date_epoch 1")
foreach(folder include lib libexec lib/systemd lib/systemd/system lib64/cmake lib64/pkgconfig share/bash-completion
               share/bash-completion/completions share/fish share/fish/vendor_completions.d share/man share/man/man1
               share/man/man5 share/zsh share/zsh/site-functions)
    list(APPEND CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION "/usr/${folder}")
endforeach()
set(CPACK_RPM_POST_INSTALL_SCRIPT_FILE "${CMAKE_CURRENT_SOURCE_DIR}/rpm/post")
set(CPACK_RPM_PRE_UNINSTALL_SCRIPT_FILE "${CMAKE_CURRENT_SOURCE_DIR}/rpm/preun")
set(CPACK_RPM_POST_UNINSTALL_SCRIPT_FILE "${CMAKE_CURRENT_SOURCE_DIR}/rpm/postun")
include(CPack)

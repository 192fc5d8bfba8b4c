# Settings for every target of the tree, and the functions that its CMake files use.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()
# -O2 rather than CMake's -O3, and assertions stay in a debug build only.
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
endif()

include(CheckPIESupported)
check_pie_supported()

add_library(qz_build INTERFACE)
target_include_directories(qz_build INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_options(qz_build INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(QZGPUINFO_SANITIZE)
    target_compile_options(qz_build INTERFACE -fsanitize=${QZGPUINFO_SANITIZE} -fno-omit-frame-pointer
                           -fno-sanitize-recover=all)
    target_link_options(qz_build INTERFACE -fsanitize=${QZGPUINFO_SANITIZE})
else()
    target_compile_options(qz_build INTERFACE -fstack-protector-strong)
    target_compile_definitions(qz_build INTERFACE $<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
endif()
target_link_options(qz_build INTERFACE LINKER:-z,relro LINKER:-z,now LINKER:--as-needed)

# qz_library(<target> SOURCES <file>... [LINK <target>...] [MOC]): one folder's static library. What it links
# is visible to targets that link it, so the order of the folders is the order of the link lines.
function(qz_library target)
    cmake_parse_arguments(ARG "MOC" "" "SOURCES;LINK" ${ARGN})
    add_library(${target} STATIC ${ARG_SOURCES})
    target_link_libraries(${target} PUBLIC qz_build ${ARG_LINK})
    if(ARG_MOC)
        set_target_properties(${target} PROPERTIES AUTOMOC ON)
    endif()
endfunction()

# qz_rooms(<variable>): the folders that rooms.txt lists, in its order.
function(qz_rooms variable)
    set_property(DIRECTORY "${PROJECT_SOURCE_DIR}" APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS rooms.txt)
    file(STRINGS "${PROJECT_SOURCE_DIR}/rooms.txt" rooms REGEX "^[a-z]")
    list(TRANSFORM rooms REPLACE " .*" "")
    set(${variable} "${rooms}" PARENT_SCOPE)
endfunction()

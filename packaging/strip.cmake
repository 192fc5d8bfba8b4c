# Run by CPack on the staged files: takes out of programs and libraries what only a debugger or nobody reads.
find_program(STRIP_PROGRAM strip REQUIRED)
file(GLOB programs "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/bin/*")
file(GLOB_RECURSE archives "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/lib/*.a")
foreach(option_and_files "--strip-unneeded;${programs}" "--strip-debug;${archives}")
    list(POP_FRONT option_and_files option)
    execute_process(COMMAND "${STRIP_PROGRAM}" ${option} --enable-deterministic-archives
                            --remove-section=.comment --remove-section=.note ${option_and_files}
                    COMMAND_ERROR_IS_FATAL ANY)
endforeach()

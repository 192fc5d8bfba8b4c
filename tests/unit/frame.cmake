qz_unit_test(logLine LINK qz_log)
qz_unit_test(CommandLine LINK qz_app)
qz_unit_test(exitCode LINK qz_app)
qz_unit_test(banner LINK qz_app)
target_compile_definitions(test_banner PRIVATE QZ_TEST_VERSION="${PROJECT_VERSION}"
                                               QZ_TEST_LEGAL_NOTICE="${QZGPUINFO_LEGAL_NOTICE}")
qz_unit_test(WatchDog LINK qz_app)

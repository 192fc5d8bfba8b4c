qz_unit_test(logLine LINK qz_log)
qz_unit_test(output LINK qz_log)

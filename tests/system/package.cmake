# What is handed out: the manual's pages and the shells' completion against the programs, and the packages in a
# fresh root. A build with sanitizers is not packed.

if(NOT QZGPUINFO_SANITIZE)
    qz_system_test(completion)
    qz_system_test(manual)
    qz_system_test(package TIMEOUT 600)
    qz_system_test(rpm TIMEOUT 600)
endif()

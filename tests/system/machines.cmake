# The program on simulated machines. They need bubblewrap, and those whose kernels are really run need PoCL.

qz_system_test(simulator TIMEOUT 180)
qz_system_test(reports TIMEOUT 180)
qz_system_test(advice TIMEOUT 180)
qz_system_test(answers TIMEOUT 400)
qz_system_test(published TIMEOUT 180)

# The program on simulated machines. They need bubblewrap, and those whose kernels are really run need PoCL.

qz_system_test(simulator TIMEOUT 180)

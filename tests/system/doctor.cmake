# The second program, on simulated machines.

qz_system_test(doctor TIMEOUT 300)

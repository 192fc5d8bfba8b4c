# The second program, on simulated machines.

qz_system_test(doctor TIMEOUT 600)
qz_system_test(doctor_causes TIMEOUT 300)
qz_system_test(doctor_recording TIMEOUT 1500)

# The second program, on simulated machines.

qz_system_test(doctor TIMEOUT 300)
qz_system_test(doctor_causes TIMEOUT 200)
qz_system_test(doctor_recording TIMEOUT 400)

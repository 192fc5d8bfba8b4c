qz_unit_test(StepRunner LINK qz_doctor)
qz_unit_test(DoctorOptions LINK qz_doctor)
qz_unit_test(DoctorFacts LINK qz_doctor)

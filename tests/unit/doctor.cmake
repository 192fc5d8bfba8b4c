qz_unit_test(StepRunner LINK qz_doctor)

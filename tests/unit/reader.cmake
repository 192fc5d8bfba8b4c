qz_unit_test(GpuSegmentReader LINK qzgpureader)
qz_unit_test(StatusText LINK qz_gpu_status)
qz_unit_test(ReaderAndWriter LINK qzgpureader qz_support)

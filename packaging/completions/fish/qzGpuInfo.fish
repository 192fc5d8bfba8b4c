# fish completion for qzGpuInfo

# The names of the processes, one per line: neither empty, nor taken for an option, nor with characters that are not
# text. Fish escapes what it inserts and evaluates none of it.
function __qzGpuInfo_processes
    # A NUL after each, since a name may contain newlines.
    string match --regex '^[^-\pC]\PC*(?=\n$)' -- (grep -ahsz "" /proc/*/comm | string split0)
end

complete --command qzGpuInfo --no-files --arguments '(__qzGpuInfo_processes)' --description process
complete --command qzGpuInfo --old-option bench --description 'Measure each GPU at every update, 25 seconds each'
complete --command qzGpuInfo --old-option benchShort --description 'Measure each GPU at every update, 6 seconds each'
complete --command qzGpuInfo --old-option v --description 'The whole report and every step'
complete --command qzGpuInfo --old-option debug --description 'The whole report and every step'
complete --command qzGpuInfo --old-option single --description 'One look'
complete --command qzGpuInfo --old-option queryGPU --description 'Exit code 1 if there is any GPU'
complete --command qzGpuInfo --old-option queryNvCuda --description 'Exit code 1 if an NVIDIA GPU supports CUDA and OpenCL'
complete --command qzGpuInfo --old-option queryNvOptix --description 'Exit code 1 if an NVIDIA GPU supports OptiX'
complete --command qzGpuInfo --old-option queryAmdRt --description 'Exit code 1 if an AMD GPU supports ray tracing'
complete --command qzGpuInfo --old-option returnGPS --description 'Exit code is the score of the first GPU'

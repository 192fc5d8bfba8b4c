# fish completion for qzGpuStatus

complete --command qzGpuStatus --no-files
complete --command qzGpuStatus --long-option json --description 'One JSON object'
complete --command qzGpuStatus --long-option prometheus --description 'Metrics for Prometheus'
complete --command qzGpuStatus --long-option features --description 'What a job scheduler can ask for'
complete --command qzGpuStatus --long-option watch --description 'A live table or graphs'
complete --command qzGpuStatus --long-option output --require-parameter --force-files --description 'Write to a file'
complete --command qzGpuStatus --long-option wait --exclusive --description 'Wait so many seconds for fresh data'
complete --command qzGpuStatus --long-option max-age --exclusive --description 'Older data are stale, in seconds'
complete --command qzGpuStatus --long-option user --exclusive --arguments '(__fish_complete_users)' \
    --description 'Whose segment to read'
complete --command qzGpuStatus --long-option directory --exclusive --arguments '(__fish_complete_directories)' \
    --description 'Where the segment is'
complete --command qzGpuStatus --short-option h --long-option help --description 'Options and exit codes'
complete --command qzGpuStatus --long-option version --description Version

# fish completion for qzGpuDoctor

set --local groups 'system pci nvidia amd opencl pairing answers segment'

complete --command qzGpuDoctor --no-files
complete --command qzGpuDoctor --long-option only --exclusive --arguments $groups --description 'Only these checks'
complete --command qzGpuDoctor --long-option skip --exclusive --arguments $groups --description 'All checks but these'
complete --command qzGpuDoctor --long-option checks --description 'List the checks'
complete --command qzGpuDoctor --long-option json --description 'The report as JSON'
complete --command qzGpuDoctor --long-option prometheus --description 'The report as metrics for Prometheus'
complete --command qzGpuDoctor --long-option output --require-parameter --force-files \
    --description 'Write the report to a file'
complete --command qzGpuDoctor --long-option user --exclusive --arguments '(__fish_complete_users)' \
    --description 'Judge rights for that user'
complete --command qzGpuDoctor --long-option timeout --exclusive --description 'Time limit of each step, in seconds'
complete --command qzGpuDoctor --long-option wake --description 'Examine GPUs that sleep'
complete --command qzGpuDoctor --long-option record --require-parameter --force-files \
    --description 'Write the machine as a description for the simulator'
complete --command qzGpuDoctor --long-option readings --exclusive --description 'Update cycles that are recorded'
complete --command qzGpuDoctor --long-option with-identifiers --description 'Leave UUIDs in the recording'
complete --command qzGpuDoctor --short-option h --long-option help --description 'Options and exit codes'
complete --command qzGpuDoctor --long-option version --description Version

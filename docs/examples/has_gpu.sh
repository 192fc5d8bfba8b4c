#!/bin/sh
# Whether this machine has a GPU: ends with 0 if it has, 1 if not, 2 if there is no answer. has_gpu.sh [SECONDS]
timeout -k 1 "${1:-60}" qzGpuInfo -queryGPU >/dev/null
case $? in
    1) echo "at least one GPU"; exit 0 ;;
    0) echo "no GPU"; exit 1 ;;
    124 | 137) echo "no answer in time" >&2 ;;
    126 | 127) echo "qzGpuInfo or a library it needs was not found" >&2 ;;
    *) echo "qzGpuInfo crashed" >&2 ;;
esac
exit 2

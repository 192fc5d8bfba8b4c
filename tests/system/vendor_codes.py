"""The error codes that the vendors publish for their libraries, and their texts."""


def _numbers(text):
    """Numbers and ranges, as in "1-4 999"."""
    found = []
    for word in text.split():
        first, _, last = word.partition("-")
        found += range(int(first), int(last or first) + 1)
    return found


NVML = _numbers("1-28 999")

CUDA_RUNTIME = _numbers(
    "1-9 12-13 16-28 31-32 34-37 43-46 49 52-53 65-69 98 100-103 127 200-201 205-226 300-304 400-402 500 600 "
    "700-705 708-721 800-812 900-918 999 10000")

CUDA_DRIVER = _numbers(
    "1-8 34-36 46 100-102 200-202 205-226 300-304 400-402 500 600 700-721 800-812 900-918 999")

# The versions up to 3.0, and what extensions for sharing, loading and partitioning add.
OPENCL = [-code for code in _numbers("1-19 30-72 1000-1001 1057-1060")]

_NVML_TEXTS = (
    "Success", "Uninitialized", "Invalid Argument", "Not Supported", "Insufficient Permissions",
    "Already Initialized", "Not Found", "Insufficient Size", "Insufficient External Power", "Driver Not Loaded",
    "Timeout", "Interrupt Request Issue", "NVML Shared Library Not Found", "Function Not Found",
    "Corrupted infoROM", "GPU is lost", "GPU requires reset", "The operating system has blocked the request",
    "Driver/library version mismatch", "In use by another client", "Insufficient Memory", "No data",
    "VGPU ECC operation not supported", "Insufficient Resources", "Frequency not supported")

_OPENCL_NAMES = {
    0: "CL_SUCCESS", -1: "CL_DEVICE_NOT_FOUND", -2: "CL_DEVICE_NOT_AVAILABLE", -3: "CL_COMPILER_NOT_AVAILABLE",
    -4: "CL_MEM_OBJECT_ALLOCATION_FAILURE", -5: "CL_OUT_OF_RESOURCES", -6: "CL_OUT_OF_HOST_MEMORY",
    -11: "CL_BUILD_PROGRAM_FAILURE", -30: "CL_INVALID_VALUE", -31: "CL_INVALID_DEVICE_TYPE",
    -32: "CL_INVALID_PLATFORM", -33: "CL_INVALID_DEVICE", -34: "CL_INVALID_CONTEXT",
    -36: "CL_INVALID_COMMAND_QUEUE", -38: "CL_INVALID_MEM_OBJECT", -44: "CL_INVALID_PROGRAM",
    -45: "CL_INVALID_PROGRAM_EXECUTABLE", -46: "CL_INVALID_KERNEL_NAME", -48: "CL_INVALID_KERNEL",
    -51: "CL_INVALID_ARG_SIZE", -52: "CL_INVALID_KERNEL_ARGS", -53: "CL_INVALID_WORK_DIMENSION",
    -54: "CL_INVALID_WORK_GROUP_SIZE", -55: "CL_INVALID_WORK_ITEM_SIZE", -63: "CL_INVALID_GLOBAL_WORK_SIZE"}


def nvml_text(code):
    """What the simulated driver's nvmlErrorString says."""
    return _NVML_TEXTS[code] if code < len(_NVML_TEXTS) else "Unknown Error"


def opencl_name(code):
    """A code as the program prints it, which knows some of them only."""
    return _OPENCL_NAMES.get(code, "CL_UNKNOWN_ERROR")

#pragma once

#include <CL/cl.h>

/// The symbolic name of an OpenCL status, "CL_UNKNOWN_ERROR" for one that has none here. Never null.
const char* errorName(cl_int code);

// The OpenCL declarations, visible from outside the stand-in: its definitions of them are its interface.
#pragma once

#ifndef CL_TARGET_OPENCL_VERSION
#define CL_TARGET_OPENCL_VERSION 120
#endif
#define CL_USE_DEPRECATED_OPENCL_1_2_APIS
#pragma GCC visibility push(default)
#include <CL/cl.h>
#include <CL/cl_ext.h>
#pragma GCC visibility pop

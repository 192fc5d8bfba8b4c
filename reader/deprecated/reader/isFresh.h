// Deprecated; gone in the next release.
#pragma once

#include "reader/GpuSegmentReader.h"

// Deprecated; gone in the next release. The records of shared memory are no longer an interface: a GPU is a
// qzgpuinfo::Gpu, whose figures are std::optional, and Snapshot::gpu returns a pointer.
#pragma once

#pragma message("reader/GpuSegmentReader.h is deprecated: include qzgpuinfo/Reader.h")

#include "qzgpuinfo/Reader.h"

using GpuSegmentReader = qzgpuinfo::Reader;
using GpuSnapshot = qzgpuinfo::Snapshot;
using qzgpuinfo::Freshness;
using qzgpuinfo::freshness;
using qzgpuinfo::isFresh;
using qzgpuinfo::SegmentResult;
using qzgpuinfo::segmentResultText;

// Whether a list that was read describes the GPUs as they are now: the names of qzgpuinfo/SegmentState.h.
#pragma once

#include "reader/GpuSegmentReader.h"

using qzgpuinfo::ageLimit;
using qzgpuinfo::clockTolerance;
using qzgpuinfo::Freshness;
using qzgpuinfo::freshness;
using qzgpuinfo::idleAgeLimit;
using qzgpuinfo::isFresh;
using qzgpuinfo::measuringAgeLimit;

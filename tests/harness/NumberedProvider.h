// A vendor whose GPUs all show one number, so that a list assembled from two cycles is detected.
#pragma once

#include <cstdint>

#include "gpu/GpuInfo.h"

/// As many GPUs as a list holds, each with `number` in every figure.
class NumberedProvider : public GpuInfo {
  public:
    /// `shared`: the number of all providers of one program; read at every refresh.
    NumberedProvider(GpuType kind, const std::int32_t& shared) : type(kind), number(shared) {}

    int detectGpus() override;
    int updateUsage(const bool& doBenchmark) override;
    int shutdown() override { return 1; }

  private:
    GpuType type;
    const std::int32_t& number;
};

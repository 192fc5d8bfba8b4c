// A machine with NVIDIA's GPUs.
#pragma once

#include "nvidia/GpuCuda_Loader.h"
#include "nvidia/GpuInfoNvml_CUDA.h"
#include "nvidia/GpuNvml_Loader.h"
#include "tests/unit/FakeCuda.h"
#include "tests/unit/FakeNvml.h"
#include "tests/unit/VendorMachine.h"

using NvidiaProvider = OpenProvider<GpuInfoNvml_CUDA>;

class NvidiaMachine : public VendorMachine {
  public:
    NvidiaMachine()
        : VendorMachine([] {
              GpuNvml_Loader::unload();
              GpuCuda_Loader::unload();
          }) {}

    void setGpus(const std::vector<NamedGpu>& gpus) override {
        std::vector<FakeNvmlDevice> devices;
        std::vector<FakeCudaDevice> cudaDevices;
        for (const auto& [name, bus] : gpus) {
            devices.push_back({name, bus});
            cudaDevices.push_back({bus, 8, 9});
        }
        FakeNvml::install(devices);
        FakeCuda::installDriver(cudaDevices);
    }

    FakeClDevice openCLDevice(unsigned char bus) const override {
        FakeClDevice device;
        device.busNv = bus;
        return device;
    }

    GpuInfo& anyProvider() override { return provider; }
    GpuDevice& record(const QByteArray& name) override { return provider.named(name); }

    NvidiaProvider provider{osReleasePath(), FakeLoader::functions()};
};

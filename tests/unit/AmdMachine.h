// A machine with AMD's cards.
#pragma once

#include "amd/GpuInfoAmdLinux.h"
#include "tests/unit/VendorMachine.h"

class AmdMachine : public VendorMachine {
  public:
    AmdMachine() : VendorMachine([] {}) {}

    void setGpus(const std::vector<NamedGpu>& gpus) override {
        for (const auto& [name, bus] : gpus)
            drm.addAmdCard(QStringLiteral("card%1").arg(bus),
                           QStringLiteral("0000:%1:00.0").arg(bus, 2, 16, QChar('0')),
                           {{"product_name", name}, {"gpu_busy_percent", "37\n"}});
    }

    FakeClDevice openCLDevice(unsigned char bus) const override {
        FakeClDevice device;
        device.name = "gfx"; // a nameless one would match every card
        device.topologyBus = bus;
        return device;
    }

    GpuInfo& anyProvider() override { return provider; }
    GpuDevice& record(const QByteArray& name) override { return provider.named(name); }

    OpenProvider<GpuInfoAmdLinux> provider{drm.path(), osReleasePath(), FakeLoader::functions()};
};
